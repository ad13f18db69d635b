#!/bin/sh
# ssh-keygen -D prints the public keys of the token's key pairs, labels as comments, and they are
# the keys that ssh-keygen computes from the OpenSSL key files they were imported from: RSA
# through the token tool and through the module's own import (pkcs11-tool --write-object), and
# EC on the three curves.
. "$(dirname "$0")/e2e_common.sh"

"$TOKEN_TOOL" init E2E00051 --label "SSH token" --pin 1234 >/dev/null
openssl genrsa -out "$WORK/rsa2048.key" 2048 2>/dev/null
openssl genrsa -out "$WORK/rsa3072.key" 3072 2>/dev/null
for curve in prime256v1 secp384r1 secp521r1; do
    openssl ecparam -name $curve -genkey -noout -out "$WORK/$curve.key"
done
chmod 600 "$WORK"/*.key
import_key() {
    "$TOKEN_TOOL" import-key E2E00051 "$WORK/$1.key" --pin 1234 --label "$2" --id "$3" >/dev/null
}
import_key rsa2048 "RSA 2048" 01
import_key prime256v1 P-256 02
import_key secp384r1 P-384 03
import_key secp521r1 P-521 04
openssl pkcs8 -topk8 -nocrypt -in "$WORK/rsa3072.key" -outform DER -out "$WORK/rsa3072.p8"
written=$(p11 --login --pin 1234 --write-object "$WORK/rsa3072.p8" --type privkey --id 05 --label "RSA 3072")
expect_in "$written" "Created private key:"

expected() {
    printf '%s %s\n' "$(ssh-keygen -y -f "$WORK/$1.key")" "$2"
}
keys=$(ssh-keygen -D "$MODULE" 2>&1 || true)
printf '%s\n' "$keys"
expect_lines "public keys" "$keys" "$(expected rsa2048 "RSA 2048")
$(expected prime256v1 P-256)
$(expected secp384r1 P-384)
$(expected secp521r1 P-521)
$(expected rsa3072 "RSA 3072")"

expect_no_module_errors
finish
