import java.nio.file.Files;
import java.nio.file.Path;
import java.security.KeyStore;
import java.security.PrivateKey;
import java.security.Provider;
import java.security.Security;
import java.security.Signature;
import java.security.cert.Certificate;
import java.util.Collections;

/**
 * Signs a file with every private key of the token through SunPKCS11 (SHA256withRSA or
 * SHA256withECDSA), feeding the data in parts of different sizes, writes each signature to
 * ALIAS.sig in the output folder and checks it with the public key of the entry's certificate in
 * Java's own providers. Prints one line per key: alias, algorithm, parts, verdict.
 *
 * <p>Usage: java TokenSignature CONFIG PIN DATA_FILE OUTPUT_FOLDER
 */
public final class TokenSignature {
    private static final int[] PART_SIZES = {1, 7, 100, 4096};

    public static void main(String[] args) throws Exception {
        Provider token = Security.getProvider("SunPKCS11").configure(args[0]);
        KeyStore store = KeyStore.getInstance("PKCS11", token);
        store.load(null, args[1].toCharArray());
        byte[] data = Files.readAllBytes(Path.of(args[2]));
        for (String alias : Collections.list(store.aliases())) {
            if (!store.isKeyEntry(alias)) {
                continue;
            }
            PrivateKey key = (PrivateKey) store.getKey(alias, null);
            boolean rsa = key.getAlgorithm().equals("RSA");
            String algorithm = rsa ? "SHA256withRSA" : "SHA256withECDSA";

            Signature signer = Signature.getInstance(algorithm, token);
            signer.initSign(key);
            int parts = feed(signer, data);
            byte[] signature = signer.sign();
            Files.write(Path.of(args[3], alias + ".sig"), signature);

            Certificate certificate = store.getCertificate(alias);
            Signature verifier = Signature.getInstance(algorithm, rsa ? "SunRsaSign" : "SunEC");
            verifier.initVerify(certificate.getPublicKey());
            feed(verifier, data);
            System.out.println(alias + " " + algorithm + " parts=" + parts + " verified="
                    + verifier.verify(signature));
        }
    }

    // The data in parts of the sizes above, the rest as one last part; answers the count.
    private static int feed(Signature signature, byte[] data) throws Exception {
        int offset = 0;
        int parts = 0;
        for (int size : PART_SIZES) {
            int length = Math.min(size, data.length - offset);
            if (length == 1) {
                signature.update(data[offset]);
            } else {
                signature.update(data, offset, length);
            }
            offset += length;
            parts++;
        }
        if (offset < data.length) {
            signature.update(data, offset, data.length - offset);
            parts++;
        }
        return parts;
    }

    private TokenSignature() {}
}
