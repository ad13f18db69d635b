#!/bin/sh
# pkcs11-tool writes a certificate to the token, reads it back, and deletes it again. Logged in,
# the certificate brings its issuer from the installation's certificate folder and names its
# key pair; deleting the private key takes the whole pair.
. "$(dirname "$0")/e2e_common.sh"

"$TOKEN_TOOL" init E2E00021 --label "Write token" --pin 1234 >/dev/null
"$TOKEN_TOOL" keygen E2E00021 --type p256 --pin 1234 --label "Stays" --id 01 >/dev/null
certificates() {
    object_lines "$(p11 --list-objects --type cert)"
}

# A self-signed certificate, written without login.
openssl genrsa -out "$WORK/bob.key" 2048 2>/dev/null
self_signed "$WORK/bob.key" "/O=Example/CN=Bob" "$WORK/bob.der"
written=$(p11 --write-object "$WORK/bob.der" --type cert --id 0b --label "Bob's certificate")
printf '%s\n' "$written"
expect_in "$written" "Created certificate:" "subject:    DN: O=Example, CN=Bob"
expect_lines "certificates after writing" "$(certificates)" \
    "Certificate Object; type = X.509 cert|Bob's certificate|0b"
p11 --read-object --type cert --id 0b --output-file "$WORK/read.der" >/dev/null
cmp "$WORK/bob.der" "$WORK/read.der" || fail "the certificate read back differs"
p11 --delete-object --type cert --id 0b >/dev/null
expect_lines "certificates after deleting" "$(certificates)" ""
expect_not_in "$("$TOKEN_TOOL" show E2E00021)" "certificate"

# Logged in: Alice's certificate comes with its issuer, and her unnamed key pair takes the
# certificate's label (subject and issuer common names).
openssl ecparam -name prime256v1 -genkey -noout -out "$WORK/ca.key"
openssl req -x509 -new -key "$WORK/ca.key" -subj "/O=Example/CN=Test CA" -days 30 -out "$WORK/ca.pem"
openssl genrsa -out "$WORK/alice.key" 2048 2>/dev/null
openssl req -new -key "$WORK/alice.key" -subj "/O=Example/CN=Alice" |
    openssl x509 -req -CA "$WORK/ca.pem" -CAkey "$WORK/ca.key" -days 30 -outform DER \
        -out "$WORK/alice.der" 2>/dev/null
OSTREL_HOME=$WORK/home
export OSTREL_HOME
mkdir -p "$OSTREL_HOME/OstrelDSC/Certificates"
cp "$WORK/ca.pem" "$OSTREL_HOME/OstrelDSC/Certificates/test-ca.crt"
"$TOKEN_TOOL" import-key E2E00021 "$WORK/alice.key" --pin 1234 --id 0a >/dev/null
p11 --login --pin 1234 --write-object "$WORK/alice.der" --type cert --id 0a >/dev/null
all_objects() {
    object_lines "$(p11 --login --pin 1234 --list-objects)"
}
expect_lines "objects after writing with the chain" "$(all_objects)" \
"Public Key Object; EC EC_POINT 256 bits|Stays|01
Private Key Object; EC|Stays|01
Public Key Object; RSA 2048 bits|Alice_Test CA|0a
Private Key Object; RSA|Alice_Test CA|0a
Certificate Object; type = X.509 cert|Test CA_Test CA|
Certificate Object; type = X.509 cert|Alice_Test CA|0a"
# The label was written to the token, not only computed.
expect_in "$("$TOKEN_TOOL" show E2E00021)" "id=0A label=Alice_Test CA"

p11 --login --pin 1234 --delete-object --type cert --id 0a >/dev/null
p11 --login --pin 1234 --delete-object --type privkey --id 0a >/dev/null
expect_lines "objects after deleting Alice's" "$(all_objects)" \
"Public Key Object; EC EC_POINT 256 bits|Stays|01
Private Key Object; EC|Stays|01
Certificate Object; type = X.509 cert|Test CA_Test CA|"

expect_no_module_errors
finish
