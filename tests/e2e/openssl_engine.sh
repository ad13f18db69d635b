#!/bin/sh
# OpenSSL uses token keys through the libp11 engine: pkeyutl signs a SHA-256 digest with an RSA
# and an EC key, req -x509 makes a self-signed certificate with each, and pkeyutl decrypts
# OpenSSL's ciphertexts (PKCS #1 v1.5, OAEP with SHA-1 and with SHA-256). OpenSSL without the
# engine checks every result with the certificates' public keys. Each openssl run must also end
# normally: a crash is a failure even when its output was right.
# Usage: openssl_engine.sh MODULE TOKEN_TOOL WORK_FOLDER ENGINE_LIBRARY
. "$(dirname "$0")/e2e_common.sh"
ENGINE=$4

"$TOKEN_TOOL" init E2E00073 --label "Engine token" --pin 1234 >/dev/null
openssl_key rsa rsa
openssl_key ec p256
"$TOKEN_TOOL" import-key E2E00073 "$WORK/rsa.key" --pin 1234 --label "RSA key" --id 01 >/dev/null
"$TOKEN_TOOL" import-cert E2E00073 "$WORK/rsa.der" --label "RSA cert" --id 01 >/dev/null
"$TOKEN_TOOL" import-key E2E00073 "$WORK/ec.key" --pin 1234 --label "EC key" --id 02 >/dev/null
"$TOKEN_TOOL" import-cert E2E00073 "$WORK/ec.der" --label "EC cert" --id 02 >/dev/null
for name in rsa ec; do
    openssl x509 -inform DER -in "$WORK/$name.der" -noout -pubkey >"$WORK/$name.cert.pub"
done

cat >"$WORK/engine.cnf" <<CONFIG
openssl_conf = openssl_init
[openssl_init]
engines = engine_section
[engine_section]
pkcs11 = pkcs11_section
[pkcs11_section]
engine_id = pkcs11
dynamic_path = $ENGINE
MODULE_PATH = $MODULE
PIN = 1234
init = 0
CONFIG
# with_engine COMMAND ARGUMENTS...: openssl COMMAND with the engine. A crash ends it by a signal,
# or under a sanitizer with the sanitizer's report.
with_engine() {
    command=$1
    shift
    status=0
    OPENSSL_CONF=$WORK/engine.cnf openssl "$command" -engine pkcs11 "$@" >"$WORK/engine.out" 2>&1 ||
        status=$?
    if [ "$status" -gt 128 ]; then
        fail "openssl $command with the engine ended with signal $((status - 128)) after: $*"
    elif grep -q -e 'ERROR: AddressSanitizer' -e 'runtime error:' "$WORK/engine.out"; then
        fail "openssl $command with the engine: $(grep -m 1 -e 'ERROR: AddressSanitizer' \
            -e 'runtime error:' "$WORK/engine.out") after: $*"
    fi
}
# The token's serial number is padded with NUL bytes (compatibility register, entry 42); libp11
# reads it as a C string, so the URL names it without them.
rsa_url="pkcs11:serial=E2E00073;id=%01;type=private"
ec_url="pkcs11:serial=E2E00073;id=%02;type=private"
openssl rand -out "$WORK/data" 3000
openssl dgst -sha256 -binary -out "$WORK/data.sha256" "$WORK/data"

# Signatures over a SHA-256 digest.
rm -f "$WORK/rsa.sig" "$WORK/ec.sig"
with_engine pkeyutl -sign -keyform engine -inkey "$rsa_url" -pkeyopt digest:sha256 \
    -in "$WORK/data.sha256" -out "$WORK/rsa.sig"
openssl_verifies "RSA through the engine" pkeyutl -verify -pubin -inkey "$WORK/rsa.cert.pub" \
    -pkeyopt digest:sha256 -in "$WORK/data.sha256" -sigfile "$WORK/rsa.sig"
with_engine pkeyutl -sign -keyform engine -inkey "$ec_url" -in "$WORK/data.sha256" \
    -out "$WORK/ec.sig"
openssl_verifies "ECDSA through the engine" pkeyutl -verify -pubin -inkey "$WORK/ec.cert.pub" \
    -in "$WORK/data.sha256" -sigfile "$WORK/ec.sig"

# Self-signed certificates made with the token keys.
for pair in "rsa $rsa_url" "ec $ec_url"; do
    key=${pair%% *}
    url=${pair#* }
    rm -f "$WORK/$key.req.pem"
    with_engine req -x509 -new -keyform engine -key "$url" -subj "/CN=Made by the engine $key" \
        -days 10 -sha256 -out "$WORK/$key.req.pem"
    verdict=$(openssl verify -CAfile "$WORK/$key.req.pem" "$WORK/$key.req.pem" 2>&1 || true)
    [ "$verdict" = "$WORK/$key.req.pem: OK" ] ||
        fail "$key: OpenSSL refuses the engine's certificate: $verdict"
    openssl x509 -in "$WORK/$key.req.pem" -noout -pubkey >"$WORK/$key.req.pub" 2>/dev/null || true
    same_bytes "$key: the public key of the engine's certificate" "$WORK/$key.pub" \
        "$WORK/$key.req.pub"
done

# Decryption of OpenSSL's ciphertexts.
printf 'Only the token can read this.\n' >"$WORK/plain"
for padding in pkcs1 oaep oaep-sha256; do
    case $padding in
        pkcs1) options="-pkeyopt rsa_padding_mode:pkcs1" ;;
        oaep) options="-pkeyopt rsa_padding_mode:oaep" ;;
        oaep-sha256) options="-pkeyopt rsa_padding_mode:oaep -pkeyopt rsa_oaep_md:sha256
            -pkeyopt rsa_mgf1_md:sha256" ;;
    esac
    # shellcheck disable=SC2086
    openssl pkeyutl -encrypt -pubin -inkey "$WORK/rsa.cert.pub" $options -in "$WORK/plain" \
        -out "$WORK/$padding.enc"
    rm -f "$WORK/$padding.dec"
    # shellcheck disable=SC2086
    with_engine pkeyutl -decrypt -keyform engine -inkey "$rsa_url" $options \
        -in "$WORK/$padding.enc" -out "$WORK/$padding.dec"
    same_bytes "decryption through the engine, $padding" "$WORK/plain" "$WORK/$padding.dec"
done

expect_no_module_errors
finish
