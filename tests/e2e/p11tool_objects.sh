#!/bin/sh
# GnuTLS's p11tool lists the token's objects with their pkcs11: URLs (private keys only after
# login) and exports a certificate and public keys equal to the files they came from.
. "$(dirname "$0")/e2e_common.sh"

"$TOKEN_TOOL" init E2E00031 --label "GnuTLS objects" --pin 1234 >/dev/null
openssl genrsa -out "$WORK/alice.key" 2048 2>/dev/null
openssl ecparam -name prime256v1 -genkey -noout -out "$WORK/ec.key"
self_signed "$WORK/alice.key" "/CN=Alice" "$WORK/alice.der"
"$TOKEN_TOOL" import-key E2E00031 "$WORK/alice.key" --pin 1234 --label "Alice key" --id 0a >/dev/null
"$TOKEN_TOOL" import-cert E2E00031 "$WORK/alice.der" --label "Alice cert" --id 0a >/dev/null
"$TOKEN_TOOL" import-key E2E00031 "$WORK/ec.key" --pin 1234 --label "EC key" --id 0b >/dev/null

p11tool_run() {
    GNUTLS_PIN=1234 p11tool --provider "$MODULE" "$@" 2>&1 || true
}
urls() {
    printf '%s\n' "$1" | sed -n 's/^[[:space:]]*URL: //p'
}
# The object part of each URL.
objects() {
    urls "$1" | sed 's/.*;id=/id=/'
}
# The URL of the object whose URL ends so.
url_of() {
    urls "$1" | grep -F -- "$2" | head -n 1
}

public=$(p11tool_run --list-all)
printf '%s\n' "$public"
expect_lines "objects without login" "$(objects "$public")" \
"id=%0A;object=Alice%20key;type=public
id=%0A;object=Alice%20cert;type=cert
id=%0B;object=EC%20key;type=public"
expect_in "$public" "Type: Public key (RSA-2048)" "Type: Public key (EC/ECDSA-SECP256R1)" \
    "Type: X.509 Certificate (RSA-2048)"
for url in $(urls "$public"); do
    expect_in "$url" "serial=E2E00031" "token=GnuTLS%20objects"
done

all=$(p11tool_run --login --list-all)
expect_lines "objects after login" "$(objects "$all")" \
"id=%0A;object=Alice%20key;type=public
id=%0A;object=Alice%20key;type=private
id=%0A;object=Alice%20cert;type=cert
id=%0B;object=EC%20key;type=public
id=%0B;object=EC%20key;type=private"
expect_in "$all" "Type: Private key (RSA-2048)" "Type: Private key (EC/ECDSA-SECP256R1)"

p11tool_run --export "$(url_of "$public" "type=cert")" --outfile "$WORK/exported.pem" >/dev/null
openssl x509 -in "$WORK/exported.pem" -outform DER | cmp -s - "$WORK/alice.der" ||
    fail "the exported certificate differs"
p11tool_run --login --export-pubkey "$(url_of "$public" "object=Alice%20key;type=public")" \
    --outfile "$WORK/alice.pub" >/dev/null
[ "$(cat "$WORK/alice.pub")" = "$(openssl pkey -in "$WORK/alice.key" -pubout)" ] ||
    fail "the exported RSA public key differs"
p11tool_run --login --export-pubkey "$(url_of "$all" "object=EC%20key;type=private")" \
    --outfile "$WORK/ec.pub" >/dev/null
[ "$(cat "$WORK/ec.pub")" = "$(openssl pkey -in "$WORK/ec.key" -pubout)" ] ||
    fail "the EC public key exported through the private key differs"

expect_no_module_errors
finish
