#!/bin/sh
# pkcs11-tool decrypts on the token what OpenSSL encrypted with the token's certificate:
# PKCS #1 v1.5, OAEP with SHA-1 and OAEP with SHA-256, each with the longest plaintext the
# padding allows and one that starts with zero bytes. A ciphertext for another key is refused.
# (pkcs11-tool of OpenSC 0.23 encrypts with secret keys only: encryption on the token is driven
# through PyKCS11 in pykcs11_crypto.py.)
. "$(dirname "$0")/e2e_common.sh"

"$TOKEN_TOOL" init E2E00076 --label "Decryption token" --pin 1234 >/dev/null
openssl_key rsa rsa
openssl_key other rsa
"$TOKEN_TOOL" import-key E2E00076 "$WORK/rsa.key" --pin 1234 --label "RSA key" --id 01 >/dev/null
"$TOKEN_TOOL" import-cert E2E00076 "$WORK/rsa.der" --label "RSA cert" --id 01 >/dev/null
openssl x509 -inform DER -in "$WORK/rsa.der" -noout -pubkey >"$WORK/rsa.cert.pub"

# token_decrypt CIPHERTEXT PLAINTEXT PKCS11_TOOL_OPTIONS...
token_decrypt() {
    decrypt_input=$1 decrypt_output=$2
    shift 2
    rm -f "$decrypt_output"
    p11 --login --pin 1234 --decrypt --id 01 -i "$decrypt_input" -o "$decrypt_output" "$@" \
        >/dev/null
}

# padding | longest plaintext for a 2048-bit key | OpenSSL's options | pkcs11-tool's options
oaep="-pkeyopt rsa_padding_mode:oaep"
sha256="-pkeyopt rsa_oaep_md:sha256 -pkeyopt rsa_mgf1_md:sha256"
for case in \
    "pkcs1|245|-pkeyopt rsa_padding_mode:pkcs1|-m RSA-PKCS" \
    "oaep|214|$oaep|-m RSA-PKCS-OAEP --hash-algorithm SHA-1 --mgf MGF1-SHA1" \
    "oaep-sha256|190|$oaep $sha256|-m RSA-PKCS-OAEP --hash-algorithm SHA256 --mgf MGF1-SHA256"; do
    padding=${case%%|*}
    rest=${case#*|}
    longest=${rest%%|*}
    rest=${rest#*|}
    openssl_options=${rest%%|*}
    tool_options=${rest#*|}
    openssl rand -out "$WORK/$padding.longest" "$longest"
    printf '\000\000two zero bytes first' >"$WORK/$padding.zeros"
    for plaintext in longest zeros; do
        # shellcheck disable=SC2086
        openssl pkeyutl -encrypt -pubin -inkey "$WORK/rsa.cert.pub" $openssl_options \
            -in "$WORK/$padding.$plaintext" -out "$WORK/$padding.$plaintext.enc"
        # shellcheck disable=SC2086
        token_decrypt "$WORK/$padding.$plaintext.enc" "$WORK/$padding.$plaintext.dec" $tool_options
        same_bytes "$padding, $plaintext plaintext" "$WORK/$padding.$plaintext" \
            "$WORK/$padding.$plaintext.dec"
    done
done

# Encrypted for another key: no plaintext, and the device's refusal in the log.
openssl pkeyutl -encrypt -pubin -inkey "$WORK/other.pub" -in "$WORK/pkcs1.zeros" \
    -out "$WORK/other.enc"
token_decrypt "$WORK/other.enc" "$WORK/other.dec" -m RSA-PKCS
[ ! -s "$WORK/other.dec" ] || fail "a ciphertext for another key was decrypted"

# pkcs11-tool tries again in parts after C_Decrypt failed; the failed decryption is still
# active (compatibility register, entry 41), so its second C_DecryptInit is refused with
# CKR_OPERATION_ACTIVE and that is the error the user sees. The line it logs is left aside.
logged=$(module_log_texts | grep -vF 'C_DecryptInit: operation already active' || true)
expect_lines "module log" "$logged" "Dacrypt data failed : 23"
finish
