import java.nio.charset.StandardCharsets;
import java.security.KeyStore;
import java.security.MessageDigest;
import java.security.PrivateKey;
import java.security.Provider;
import java.security.Security;
import java.security.Signature;
import java.security.cert.X509Certificate;
import java.util.Collections;
import java.util.HexFormat;

/**
 * Signs with every private key of a PKCS #11 token through the SunPKCS11 provider, and verifies
 * each signature with the JDK's own provider and the public key of the key's certificate.
 * Arguments: the provider configuration file and the user PIN. Prints one line per key:
 * algorithm, certificate SHA-256 fingerprint, "verified" or "NOT VERIFIED".
 */
public final class AppsSign {
    public static void main(String[] args) throws Exception {
        Provider token = Security.getProvider("SunPKCS11").configure(args[0]);
        KeyStore store = KeyStore.getInstance("PKCS11", token);
        store.load(null, args[1].toCharArray());
        byte[] message = "signed by the token".getBytes(StandardCharsets.UTF_8);
        byte[] other = "signed by somebody else".getBytes(StandardCharsets.UTF_8);
        for (String alias : Collections.list(store.aliases())) {
            if (!store.isKeyEntry(alias)) {
                continue;
            }
            PrivateKey key = (PrivateKey) store.getKey(alias, null);
            X509Certificate certificate = (X509Certificate) store.getCertificate(alias);
            String algorithm =
                    key.getAlgorithm().equals("RSA") ? "SHA256withRSA" : "SHA256withECDSA";
            Signature signer = Signature.getInstance(algorithm, token);
            signer.initSign(key);
            signer.update(message);
            byte[] signature = signer.sign();
            // The token's provider was never installed, so this is the JDK's own verifier.
            Signature verifier = Signature.getInstance(algorithm);
            verifier.initVerify(certificate.getPublicKey());
            verifier.update(message);
            boolean verified = verifier.verify(signature);
            verifier.initVerify(certificate.getPublicKey());
            verifier.update(other);
            boolean forgeryAccepted = verifier.verify(signature);
            String fingerprint = HexFormat.ofDelimiter(":").withUpperCase().formatHex(
                    MessageDigest.getInstance("SHA-256").digest(certificate.getEncoded()));
            System.out.println(algorithm + " " + fingerprint + " "
                    + (verified && !forgeryAccepted ? "verified" : "NOT VERIFIED"));
        }
    }
}
