#!/bin/sh
# Java's SunPKCS11 provider: keytool lists both key entries with their certificates, jarsigner
# signs a JAR with each token key and verifies it (its signature block must also verify with
# OpenSSL against the test CA and name the token's certificate), and AppsSign signs
# SHA256withRSA and SHA256withECDSA and verifies with the certificates' public keys.
. "$(dirname "$0")/common.sh"
need keytool jarsigner javac java jar
make_pki
make_token

# slotListIndex, not slot: Java then calls C_GetSlotList, which this module needs first.
printf 'name = Apps\nlibrary = %s\nslotListIndex = 0\n' "$MODULE" >pkcs11.cfg
token_store() {
    "$@" -keystore NONE -storetype PKCS11 -addprovider SunPKCS11 -providerArg pkcs11.cfg \
        -storepass "$PIN"
}

listing=$(token_store keytool -list -v 2>&1 || true)
printf '%s\n' "$listing" >keytool.txt
for key in rsa ec; do
    # The entry of the key's certificate label, a key entry with the certificate.
    entry=$(printf '%s\n' "$listing" | sed -n "/^Alias name: $key cert\$/,/^Alias name:/p")
    expect_in "$entry" "Entry type: PrivateKeyEntry" "SHA256: $(fingerprint $key.pem)"
done
elapsed "keytool"

mkdir classes
javac -d classes "$APPS/AppsSign.java"
(cd classes && jar cf ../unsigned.jar AppsSign.class)
elapsed "javac"
for key in rsa ec; do
    if ! token_store jarsigner -signedjar $key-signed.jar unsigned.jar "$key cert" \
        >jarsigner-$key.txt 2>&1; then
        fail "jarsigner could not sign with the $key key: $(cat jarsigner-$key.txt)"
        continue
    fi
    expect_in "$(jarsigner -verify $key-signed.jar 2>&1)" "jar verified."
    mkdir $key-signed
    (cd $key-signed && jar xf ../$key-signed.jar META-INF)
    block=$(ls $key-signed/META-INF/*.RSA $key-signed/META-INF/*.EC 2>/dev/null | head -1)
    if [ -z "$block" ] || ! openssl cms -verify -inform DER -in "$block" -binary -purpose any \
        -content "${block%.*}.SF" -CAfile ca.pem -signer $key-signer.pem -out /dev/null 2>/dev/null; then
        fail "the $key-signed.jar signature block does not verify with OpenSSL"
    elif [ "$(fingerprint $key-signer.pem)" != "$(fingerprint $key.pem)" ]; then
        fail "$key-signed.jar was not signed by the token's $key certificate"
    fi
    elapsed "jarsigner, $key key"
done

signatures=$(java -cp classes AppsSign pkcs11.cfg "$PIN" 2>&1 || true)
printf '%s\n' "$signatures"
expect_in "$signatures" "SHA256withRSA $(fingerprint rsa.pem) verified" \
    "SHA256withECDSA $(fingerprint ec.pem) verified"
elapsed "AppsSign"
finish
