#!/bin/sh
# OpenSC's pkcs11-tool against the software token: slots, token information, mechanisms, login
# with the right and the wrong PIN, and a PIN change.
. "$(dirname "$0")/e2e_common.sh"

"$TOKEN_TOOL" init E2E00001 --label "Signing token" --pin 1234 --so-pin 87654321 --model SW1-SOFT --firmware 2.15.3 >/dev/null
"$TOKEN_TOOL" init E2E00002 --label "FIPS token" --pin 4321 --model SW3-FIPS --retries 3 --pin-changed 0 >/dev/null

slots=$(p11 --list-slots)
printf '%s\n' "$slots"
expect_in "$slots" "Slot 0 (0x50000001): Signing token" "Slot 1 (0x50000002): FIPS token" \
    "token manufacturer : Kelvanetics" "token model        : SW1-SOFT" "serial num         : E2E00001" \
    "firmware version   : 2.15" "pin min/max        : 4/63" "token model        : SW3-FIPS"
# The second token's PIN is still the initial one.
expect_in "$slots" "PIN to be changed"

mechanisms=$(p11 --list-mechanisms --slot-index 0)
expect_in "$mechanisms" "RSA-PKCS-KEY-PAIR-GEN, keySize={2048,4096}, generate_key_pair" \
    "RSA-PKCS-OAEP, keySize={1024,4096}, encrypt, decrypt" "SHA1-RSA-PKCS, keySize={2048,4096}, sign, verify" \
    "ECDH1-DERIVE, keySize={256,521}, derive" "SHA512, digest"
[ "$(printf '%s\n' "$mechanisms" | grep -c '^  ')" -eq 26 ] || fail "26 mechanisms on a non-FIPS token"
fips=$(p11 --list-mechanisms --slot-index 1)
[ "$(printf '%s\n' "$fips" | grep -c '^  ')" -eq 23 ] || fail "23 mechanisms on a FIPS 140-3 token"
expect_not_in "$fips" "SHA1-RSA-PKCS," "ECDSA-SHA1"

# Right PIN: the login goes through (what follows it is not this test's business).
login=$(p11 --slot-index 0 --login --pin 1234 --list-objects)
expect_not_in "$login" "C_Login failed"

# Wrong PINs: refused, and the token's retry count falls until the PIN locks.
wrong=$(p11 --slot-index 1 --login --pin 9999 --list-objects)
expect_in "$wrong" "CKR_PIN_INCORRECT"
expect_in "$("$TOKEN_TOOL" show E2E00002)" "retries: 2/3"
expect_in "$(p11 --list-slots)" "user PIN count low"
p11 --slot-index 1 --login --pin 9999 --list-objects >/dev/null
expect_in "$(p11 --list-slots)" "final user PIN try"
expect_in "$(p11 --slot-index 1 --login --pin 9999 --list-objects)" "CKR_PIN_LOCKED"
expect_in "$(p11 --slot-index 1 --login --pin 4321 --list-objects)" "CKR_PIN_LOCKED"
expect_in "$(p11 --list-slots)" "user PIN locked"

# PIN change: the new PIN works and the old one no longer does.
change=$(p11 --slot-index 0 --change-pin --pin 1234 --new-pin 56789)
expect_not_in "$change" "C_SetPIN failed"
expect_not_in "$(p11 --slot-index 0 --login --pin 56789 --list-objects)" "C_Login failed"
expect_in "$(p11 --slot-index 0 --login --pin 1234 --list-objects)" "CKR_PIN_INCORRECT"

finish
