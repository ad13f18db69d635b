#!/bin/sh
# Java's SunPKCS11 signs with token keys through java.security.Signature (SHA256withRSA and
# SHA256withECDSA), the data fed in five update calls: Java's own providers accept each
# signature with the public key of the key's certificate, and so does OpenSSL.
# Usage: java_signature.sh MODULE TOKEN_TOOL WORK_FOLDER
. "$(dirname "$0")/e2e_common.sh"

"$TOKEN_TOOL" init E2E00075 --label "Java signing" --pin 1234 >/dev/null
openssl_key rsa rsa
openssl_key ec p256
"$TOKEN_TOOL" import-key E2E00075 "$WORK/rsa.key" --pin 1234 --label "RSA key" --id 01 >/dev/null
"$TOKEN_TOOL" import-cert E2E00075 "$WORK/rsa.der" --label "Alice" --id 01 >/dev/null
"$TOKEN_TOOL" import-key E2E00075 "$WORK/ec.key" --pin 1234 --label "EC key" --id 02 >/dev/null
"$TOKEN_TOOL" import-cert E2E00075 "$WORK/ec.der" --label "Bob" --id 02 >/dev/null
openssl rand -out "$WORK/data" 20000

# slotListIndex, not slot: with a slot id Java never calls C_GetSlotList, and the module knows
# its slots only after that call.
cat >"$WORK/sunpkcs11.cfg" <<CONFIG
name = Ostrel
library = $MODULE
slotListIndex = 0
CONFIG
javac -d "$WORK" "$(dirname "$0")/TokenSignature.java"
mkdir "$WORK/signatures"
output=$(java -cp "$WORK" TokenSignature "$WORK/sunpkcs11.cfg" 1234 "$WORK/data" \
    "$WORK/signatures" 2>&1 || true)
printf '%s\n' "$output"
expect_lines "Java's signatures" "$(printf '%s\n' "$output" | grep ' parts=')" \
"Alice SHA256withRSA parts=5 verified=true
Bob SHA256withECDSA parts=5 verified=true"

for entry in Alice:rsa Bob:ec; do
    openssl x509 -inform DER -in "$WORK/${entry#*:}.der" -noout -pubkey >"$WORK/cert.pub"
    openssl_verifies "${entry%:*}" dgst -sha256 -verify "$WORK/cert.pub" \
        -signature "$WORK/signatures/${entry%:*}.sig" "$WORK/data"
done

expect_no_module_errors
finish
