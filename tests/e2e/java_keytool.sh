#!/bin/sh
# Java's keytool with the SunPKCS11 provider lists the token as a key store: each private key
# paired by CKA_ID with its certificate as a PrivateKeyEntry, a certificate without a key as a
# trustedCertEntry, each with the fingerprint of the certificate that was imported.
. "$(dirname "$0")/e2e_common.sh"

"$TOKEN_TOOL" init E2E00061 --label "Java token" --pin 1234 >/dev/null
openssl genrsa -out "$WORK/alice.key" 2048 2>/dev/null
openssl ecparam -name prime256v1 -genkey -noout -out "$WORK/bob.key"
openssl genrsa -out "$WORK/carol.key" 2048 2>/dev/null
for name in alice bob carol; do
    self_signed "$WORK/$name.key" "/O=Example/CN=$name" "$WORK/$name.der"
done
"$TOKEN_TOOL" import-key E2E00061 "$WORK/alice.key" --pin 1234 --label "Alice key" --id 0a >/dev/null
"$TOKEN_TOOL" import-cert E2E00061 "$WORK/alice.der" --label "Alice" --id 0a >/dev/null
"$TOKEN_TOOL" import-key E2E00061 "$WORK/bob.key" --pin 1234 --label "Bob key" --id 0b >/dev/null
"$TOKEN_TOOL" import-cert E2E00061 "$WORK/bob.der" --label "Bob" --id 0b >/dev/null
"$TOKEN_TOOL" import-cert E2E00061 "$WORK/carol.der" --label "Carol" --id 0c >/dev/null
# A key without a certificate is no key store entry.
"$TOKEN_TOOL" keygen E2E00061 --type rsa2048 --pin 1234 --label "Lonely key" --id 0d >/dev/null

# slotListIndex, not slot: with a slot id Java never calls C_GetSlotList, and the module knows
# its slots only after that call.
cat >"$WORK/sunpkcs11.cfg" <<CONFIG
name = Ostrel
library = $MODULE
slotListIndex = 0
CONFIG
listing=$(keytool -list -keystore NONE -storetype PKCS11 -providerClass sun.security.pkcs11.SunPKCS11 \
    -providerArg "$WORK/sunpkcs11.cfg" -storepass 1234 2>&1 || true)
printf '%s\n' "$listing"
fingerprint() {
    openssl x509 -inform DER -in "$WORK/$1.der" -noout -fingerprint -sha256 | sed 's/.*=//'
}
expect_in "$listing" "Your keystore contains 3 entries"
expect_lines "entries" "$(printf '%s\n' "$listing" | awk '
    /, (PrivateKeyEntry|trustedCertEntry|SecretKeyEntry),/ { entry = $0; sub(/ +$/, "", entry) }
    /^Certificate fingerprint/ { print entry " " $NF }')" \
"Alice, PrivateKeyEntry, $(fingerprint alice)
Bob, PrivateKeyEntry, $(fingerprint bob)
Carol, trustedCertEntry, $(fingerprint carol)"

expect_no_module_errors
finish
