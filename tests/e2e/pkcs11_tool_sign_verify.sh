#!/bin/sh
# pkcs11-tool signs with token keys whose key files OpenSSL keeps: OpenSSL accepts every
# signature (SHA256-RSA-PKCS, RSA-PKCS, SHA256-RSA-PKCS-PSS, ECDSA, ECDSA-SHA256); the token
# accepts OpenSSL's signatures and its own and refuses a changed one; pkcs11-tool --hash gives
# OpenSSL's digests. Inputs below 1025 bytes go through C_Sign and C_Verify, longer ones through
# the Update and Final calls.
. "$(dirname "$0")/e2e_common.sh"

"$TOKEN_TOOL" init E2E00071 --label "Signing token" --pin 1234 >/dev/null
openssl_key rsa rsa
openssl_key ec p256
"$TOKEN_TOOL" import-key E2E00071 "$WORK/rsa.key" --pin 1234 --label "RSA key" --id 01 >/dev/null
"$TOKEN_TOOL" import-cert E2E00071 "$WORK/rsa.der" --label "RSA cert" --id 01 >/dev/null
"$TOKEN_TOOL" import-key E2E00071 "$WORK/ec.key" --pin 1234 --label "EC key" --id 02 >/dev/null
"$TOKEN_TOOL" import-cert E2E00071 "$WORK/ec.der" --label "EC cert" --id 02 >/dev/null
# OpenSSL checks with the certificates' public keys, not with the key files.
for name in rsa ec; do
    openssl x509 -inform DER -in "$WORK/$name.der" -noout -pubkey >"$WORK/$name.cert.pub"
done
openssl rand -out "$WORK/small" 300
openssl rand -out "$WORK/big" 5000
openssl dgst -sha256 -binary -out "$WORK/small.sha256" "$WORK/small"
# The DigestInfo of that digest: what a client hands CKM_RSA_PKCS for a SHA-256 signature.
printf '\060\061\060\015\006\011\140\206\110\001\145\003\004\002\001\005\000\004\040' |
    cat - "$WORK/small.sha256" >"$WORK/small.digestinfo"
# Raw CKM_RSA_PKCS input that is neither a digest nor a DigestInfo.
printf 'forty bytes of raw input, padded as is.\n' >"$WORK/raw"

# token_sign MECHANISM ID INPUT SIGNATURE [OPTIONS]
token_sign() {
    sign_mechanism=$1 sign_id=$2 sign_input=$3 sign_output=$4
    shift 4
    rm -f "$sign_output"
    p11 --login --pin 1234 --sign -m "$sign_mechanism" --id "$sign_id" -i "$sign_input" \
        -o "$sign_output" "$@" >/dev/null
    [ -s "$sign_output" ] || fail "$sign_mechanism over $(basename "$sign_input"): no signature"
}
# token_verdict MECHANISM ID INPUT SIGNATURE [OPTIONS]: valid, invalid, or what went wrong.
token_verdict() {
    verify_mechanism=$1 verify_id=$2 verify_input=$3 verify_signature=$4
    shift 4
    answer=$(p11 --verify -m "$verify_mechanism" --id "$verify_id" -i "$verify_input" \
        --signature-file "$verify_signature" "$@")
    case $answer in
        *"Signature is valid"*) echo valid ;;
        *"Invalid signature"*) echo invalid ;;
        *) echo "$answer" ;;
    esac
}
expect_verdict() {
    [ "$2" = "$3" ] || fail "$1: the token says '$3', expected '$2'"
}
# Every signature the token refuses leaves one line in the module's log.
expected_log=""
refused() {
    expected_log="$expected_log$1
"
}
# expect_refused WHAT MECHANISM ID INPUT SIGNATURE [OPTIONS]: a signature with one bit changed
# is refused.
expect_refused() {
    refused_what=$1 refused_mechanism=$2 refused_id=$3 refused_input=$4
    flip_byte "$5" 7 "$WORK/changed.sig"
    shift 5
    expect_verdict "$refused_what, changed signature" invalid "$(token_verdict \
        "$refused_mechanism" "$refused_id" "$refused_input" "$WORK/changed.sig" "$@")"
}

# SHA256-RSA-PKCS, one part and several.
for input in small big; do
    token_sign SHA256-RSA-PKCS 01 "$WORK/$input" "$WORK/$input.rsa.sig"
    openssl_verifies "SHA256-RSA-PKCS over $input" dgst -sha256 -verify "$WORK/rsa.cert.pub" \
        -signature "$WORK/$input.rsa.sig" "$WORK/$input"
    expect_verdict "SHA256-RSA-PKCS over $input, own signature" valid \
        "$(token_verdict SHA256-RSA-PKCS 01 "$WORK/$input" "$WORK/$input.rsa.sig")"
    openssl dgst -sha256 -sign "$WORK/rsa.key" -out "$WORK/$input.rsa.openssl" "$WORK/$input"
    expect_verdict "SHA256-RSA-PKCS over $input, OpenSSL's signature" valid \
        "$(token_verdict SHA256-RSA-PKCS 01 "$WORK/$input" "$WORK/$input.rsa.openssl")"
done
expect_refused "SHA256-RSA-PKCS over small" SHA256-RSA-PKCS 01 "$WORK/small" "$WORK/small.rsa.sig"
refused "Verify signature failed : 22"
expect_refused "SHA256-RSA-PKCS over big" SHA256-RSA-PKCS 01 "$WORK/big" "$WORK/big.rsa.sig"
refused "C_VerifyFinal: verify failed 22"
# Changed data, right signature.
flip_byte "$WORK/big" 4000 "$WORK/big.changed"
expect_verdict "SHA256-RSA-PKCS over changed data" invalid \
    "$(token_verdict SHA256-RSA-PKCS 01 "$WORK/big.changed" "$WORK/big.rsa.sig")"
refused "C_VerifyFinal: verify failed 22"

# RSA-PKCS pads the caller's bytes as they are: OpenSSL recovers exactly them.
for input in small.digestinfo raw; do
    token_sign RSA-PKCS 01 "$WORK/$input" "$WORK/$input.sig"
    openssl pkeyutl -verifyrecover -pubin -inkey "$WORK/rsa.cert.pub" -in "$WORK/$input.sig" \
        -out "$WORK/$input.recovered" 2>/dev/null || true
    same_bytes "RSA-PKCS over $input, recovered by OpenSSL" "$WORK/$input" "$WORK/$input.recovered"
    openssl pkeyutl -sign -inkey "$WORK/rsa.key" -in "$WORK/$input" -out "$WORK/$input.openssl"
    expect_verdict "RSA-PKCS over $input, OpenSSL's signature" valid \
        "$(token_verdict RSA-PKCS 01 "$WORK/$input" "$WORK/$input.openssl")"
done
# A DigestInfo signed raw is an ordinary SHA-256 signature of the data.
openssl_verifies "RSA-PKCS over the DigestInfo" dgst -sha256 -verify "$WORK/rsa.cert.pub" \
    -signature "$WORK/small.digestinfo.sig" "$WORK/small"
expect_refused "RSA-PKCS" RSA-PKCS 01 "$WORK/raw" "$WORK/raw.sig"
refused "Verify signature failed : 22"

# SHA256-RSA-PKCS-PSS: pkcs11-tool asks for MGF1-SHA256 and a 32-byte salt, which OpenSSL
# requires here.
pss_options="-sigopt rsa_padding_mode:pss -sigopt rsa_pss_saltlen:32 -sigopt rsa_mgf1_md:sha256"
for input in small big; do
    token_sign SHA256-RSA-PKCS-PSS 01 "$WORK/$input" "$WORK/$input.pss.sig"
    # shellcheck disable=SC2086
    openssl_verifies "SHA256-RSA-PKCS-PSS over $input" dgst -sha256 $pss_options \
        -verify "$WORK/rsa.cert.pub" -signature "$WORK/$input.pss.sig" "$WORK/$input"
done
# PSS salts are random: two signatures of the same data differ.
token_sign SHA256-RSA-PKCS-PSS 01 "$WORK/small" "$WORK/small.pss.again"
if cmp -s "$WORK/small.pss.sig" "$WORK/small.pss.again"; then
    fail "two PSS signatures of the same data are equal"
fi
# The token verifies PSS in one part only: C_VerifyFinal checks every signature as PKCS #1
# v1.5 (compatibility register, entry 30), so pkcs11-tool --verify calls a valid PSS signature
# of 1025 bytes or more invalid. Not checked here; see the report of this test's commit.
expect_verdict "SHA256-RSA-PKCS-PSS, own signature" valid \
    "$(token_verdict SHA256-RSA-PKCS-PSS 01 "$WORK/small" "$WORK/small.pss.sig")"
# shellcheck disable=SC2086
openssl dgst -sha256 $pss_options -sign "$WORK/rsa.key" -out "$WORK/small.pss.openssl" "$WORK/small"
expect_verdict "SHA256-RSA-PKCS-PSS, OpenSSL's signature" valid \
    "$(token_verdict SHA256-RSA-PKCS-PSS 01 "$WORK/small" "$WORK/small.pss.openssl")"
expect_refused "SHA256-RSA-PKCS-PSS" SHA256-RSA-PKCS-PSS 01 "$WORK/small" "$WORK/small.pss.sig"
refused "Verify signature failed : 22"

# ECDSA over a SHA-256 digest: r and s of 32 bytes each, and in OpenSSL's DER form.
token_sign ECDSA 02 "$WORK/small.sha256" "$WORK/ecdsa.rs"
[ "$(wc -c <"$WORK/ecdsa.rs")" -eq 64 ] || fail "ECDSA: the signature is not 64 bytes of r and s"
token_sign ECDSA 02 "$WORK/small.sha256" "$WORK/ecdsa.der" --signature-format openssl
openssl_verifies "ECDSA" pkeyutl -verify -pubin -inkey "$WORK/ec.cert.pub" \
    -in "$WORK/small.sha256" -sigfile "$WORK/ecdsa.der"
expect_verdict "ECDSA, own signature" valid \
    "$(token_verdict ECDSA 02 "$WORK/small.sha256" "$WORK/ecdsa.rs")"
openssl pkeyutl -sign -inkey "$WORK/ec.key" -in "$WORK/small.sha256" -out "$WORK/ecdsa.openssl"
expect_verdict "ECDSA, OpenSSL's signature" valid "$(token_verdict ECDSA 02 "$WORK/small.sha256" \
    "$WORK/ecdsa.openssl" --signature-format openssl)"
expect_refused "ECDSA" ECDSA 02 "$WORK/small.sha256" "$WORK/ecdsa.rs"
refused "Verify signature failed : 22"

# ECDSA-SHA256, one part and several.
for input in small big; do
    token_sign ECDSA-SHA256 02 "$WORK/$input" "$WORK/$input.ec.sig" --signature-format openssl
    openssl_verifies "ECDSA-SHA256 over $input" dgst -sha256 -verify "$WORK/ec.cert.pub" \
        -signature "$WORK/$input.ec.sig" "$WORK/$input"
    openssl dgst -sha256 -sign "$WORK/ec.key" -out "$WORK/$input.ec.openssl" "$WORK/$input"
    expect_verdict "ECDSA-SHA256 over $input, OpenSSL's signature" valid \
        "$(token_verdict ECDSA-SHA256 02 "$WORK/$input" "$WORK/$input.ec.openssl" \
            --signature-format openssl)"
done
token_sign ECDSA-SHA256 02 "$WORK/big" "$WORK/big.ec.rs"
expect_refused "ECDSA-SHA256 over big" ECDSA-SHA256 02 "$WORK/big" "$WORK/big.ec.rs"
refused "C_VerifyFinal: verify failed 22"

# Digests, one part and several. A read-only public session may not digest (compatibility
# register, entry 28), and pkcs11-tool --hash opens one: it needs --session-rw (or --login).
for algorithm in SHA-1:sha1 SHA224:sha224 SHA256:sha256 SHA384:sha384 SHA512:sha512; do
    for input in small big; do
        rm -f "$WORK/digest"
        p11 --session-rw --hash -m "${algorithm%:*}" -i "$WORK/$input" -o "$WORK/digest" >/dev/null
        openssl dgst -"${algorithm#*:}" -binary -out "$WORK/digest.openssl" "$WORK/$input"
        same_bytes "${algorithm%:*} of $input" "$WORK/digest.openssl" "$WORK/digest"
    done
done

expect_lines "module log" "$(module_log_texts)" "${expected_log%
}"
finish
