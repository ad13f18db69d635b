#!/bin/sh
# pkcs11-tool agrees ECDH secrets between token keys and peer keys made by OpenSSL: the secret
# equals what OpenSSL derives from the peer's private key and the token's public key (and, for
# the key whose file OpenSSL keeps, from that key and the peer's public key), for P-256 and
# P-384, with the peer's point given raw and inside a DER OCTET STRING. A peer key of another
# curve gives no secret.
. "$(dirname "$0")/e2e_common.sh"

"$TOKEN_TOOL" init E2E00078 --label "Agreement token" --pin 1234 >/dev/null
openssl_key imported p256
"$TOKEN_TOOL" import-key E2E00078 "$WORK/imported.key" --pin 1234 --label "Imported" --id 01 \
    >/dev/null
"$TOKEN_TOOL" keygen E2E00078 --type p384 --pin 1234 --label "Generated" --id 02 >/dev/null
# Read with p11tool: pkcs11-tool of OpenSC 0.23 uses memory it freed when it reads an EC public
# key, and fails on P-384 keys ("cannot create EVP_PKEY", with SoftHSM too).
p11tool --provider "$MODULE" --export "pkcs11:id=%02;type=public" --outfile "$WORK/generated.pub" \
    >/dev/null 2>&1 || fail "p11tool cannot read the generated public key"
for curve in P-256 P-384; do
    openssl genpkey -algorithm EC -pkeyopt ec_paramgen_curve:$curve -out "$WORK/$curve.key"
    openssl pkey -in "$WORK/$curve.key" -pubout -outform DER -out "$WORK/$curve.der"
done

# token_derive ID PEER_DER SECRET [OPTIONS]
token_derive() {
    derive_id=$1 derive_peer=$2 derive_secret=$3
    shift 3
    rm -f "$derive_secret"
    p11 --login --pin 1234 --derive -m ECDH1-DERIVE --id "$derive_id" -i "$derive_peer" \
        -o "$derive_secret" "$@" >/dev/null
}

# token key : id : the peer's curve : the secret's length
for case in imported:01:P-256:32 generated:02:P-384:48; do
    key=${case%%:*}
    id=${case#*:}
    id=${id%%:*}
    curve=${case#*:*:}
    length=${curve#*:}
    curve=${curve%:*}
    openssl pkeyutl -derive -inkey "$WORK/$curve.key" -peerkey "$WORK/$key.pub" \
        -out "$WORK/$key.expected"
    [ "$(wc -c <"$WORK/$key.expected")" -eq "$length" ] || fail "$key: OpenSSL's secret length"
    token_derive "$id" "$WORK/$curve.der" "$WORK/$key.raw"
    same_bytes "$key: the secret with the raw point" "$WORK/$key.expected" "$WORK/$key.raw"
    token_derive "$id" "$WORK/$curve.der" "$WORK/$key.octets" --derive-pass-der
    same_bytes "$key: the secret with the point in an OCTET STRING" "$WORK/$key.expected" \
        "$WORK/$key.octets"
done
# The same secret from the other side, with the token key's own file.
openssl pkeyutl -derive -inkey "$WORK/imported.key" -peerkey "$WORK/P-256.der" -peerform DER \
    -out "$WORK/imported.other-side"
same_bytes "imported: the secret from the other side" "$WORK/imported.other-side" \
    "$WORK/imported.raw"

# A P-384 point for the P-256 key.
token_derive 01 "$WORK/P-384.der" "$WORK/wrong-curve"
[ ! -s "$WORK/wrong-curve" ] || fail "a point of another curve gave a secret"

expect_lines "module log" "$(module_log_texts)" "C_DeriveKey: ostrel_ecdhDerive failed: 1"
finish
