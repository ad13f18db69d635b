#!/bin/sh
# pkcs11-tool -O lists a token's objects with their labels and ids: public keys and certificates
# without login, private keys too after login, and nothing of another token.
. "$(dirname "$0")/e2e_common.sh"

"$TOKEN_TOOL" init E2E00011 --label "Objects token" --pin 1234 >/dev/null
"$TOKEN_TOOL" init E2E00012 --label "Other token" --pin 5678 >/dev/null
"$TOKEN_TOOL" keygen E2E00011 --type rsa2048 --pin 1234 --label "Signing key" --id 01 >/dev/null
"$TOKEN_TOOL" keygen E2E00011 --type p384 --pin 1234 --label "EC key" --id 02 >/dev/null
# Alice's key has no label of its own: it is named after its certificate's common names.
openssl genrsa -out "$WORK/alice.key" 2048 2>/dev/null
self_signed "$WORK/alice.key" "/O=Example/CN=Alice" "$WORK/alice.der"
"$TOKEN_TOOL" import-key E2E00011 "$WORK/alice.key" --pin 1234 --id 03 >/dev/null
"$TOKEN_TOOL" import-cert E2E00011 "$WORK/alice.der" --label "Alice's certificate" --id 03 >/dev/null
"$TOKEN_TOOL" keygen E2E00012 --type p256 --pin 5678 --label "Other key" --id 01 >/dev/null

public=$(p11 --slot-index 0 --list-objects)
printf '%s\n' "$public"
expect_lines "objects without login" "$(object_lines "$public")" \
"Public Key Object; RSA 2048 bits|Signing key|01
Public Key Object; EC EC_POINT 384 bits|EC key|02
Public Key Object; RSA 2048 bits|Alice_Alice|03
Certificate Object; type = X.509 cert|Alice's certificate|03"
expect_in "$public" "subject:    DN: O=Example, CN=Alice" "EC_PARAMS:  06052b81040022"

private=$(p11 --slot-index 0 --login --pin 1234 --list-objects)
expect_lines "objects after login" "$(object_lines "$private")" \
"Public Key Object; RSA 2048 bits|Signing key|01
Public Key Object; EC EC_POINT 384 bits|EC key|02
Public Key Object; RSA 2048 bits|Alice_Alice|03
Private Key Object; RSA|Signing key|01
Private Key Object; EC|EC key|02
Private Key Object; RSA|Alice_Alice|03
Certificate Object; type = X.509 cert|Alice's certificate|03"

other=$(p11 --slot-index 1 --login --pin 5678 --list-objects)
expect_lines "objects of the other token" "$(object_lines "$other")" \
"Public Key Object; EC EC_POINT 256 bits|Other key|01
Private Key Object; EC|Other key|01"

expect_no_module_errors
finish
