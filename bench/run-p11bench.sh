#!/bin/sh
# Builds the module, the software token and p11bench (release, without tests), prepares the same
# keys on a software token and on a SoftHSMv2 token, and measures both next to raw libcrypto.
#   bench/run-p11bench.sh            the full run (about a minute per module)
#   bench/run-p11bench.sh --short    a few milliseconds per scenario: proves that it runs
# Further arguments go to p11bench (for example --only "SHA-256", --seconds 5).
# With P11BENCH_PROFILE=perf the run is recorded by perf (perf.data in the current folder).
set -eu
cd "$(dirname "$0")/.."
./scripts/install-deps.sh bench

seconds=1
# P11BENCH_OBJECTS sets how many objects the tokens hold (up to about 4,000: handles of token
# objects are their ids within a range of 0x1000, so a token holds no more than 4,095).
objects=${P11BENCH_OBJECTS:-1000}
if [ "${1:-}" = "--short" ]; then
    seconds=0.02
    objects=50
    shift
fi

build=$PWD/build/bench
cmake -S . -B "$build" -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo -DBUILD_TESTING=OFF \
    -DOSTREL_BUILD_BENCHMARKS=ON >/dev/null
cmake --build "$build" -j "$(nproc)" --target ostrel-pkcs11 ostrel_softtoken ostrel-token p11bench

work=$(mktemp -d /tmp/p11bench.XXXXXX)
trap 'rm -rf "$work"' EXIT
pin=123456
mkdir "$work/keys"
openssl genpkey -algorithm RSA -pkeyopt rsa_keygen_bits:2048 -out "$work/keys/rsa2048.pem" 2>/dev/null
openssl genpkey -algorithm RSA -pkeyopt rsa_keygen_bits:3072 -out "$work/keys/rsa3072.pem" 2>/dev/null
openssl genpkey -algorithm EC -pkeyopt ec_paramgen_curve:P-256 -out "$work/keys/p256.pem"
openssl genpkey -algorithm EC -pkeyopt ec_paramgen_curve:P-256 -out "$work/keys/p256-peer.pem"

# Our module over the software token.
OSTREL_TOKEN_STORE=$work/ostrel
export OSTREL_TOKEN_STORE
token="$build/softtoken/ostrel-token"
"$token" init BENCH0001 --label bench --pin "$pin" --capacity 4095 >/dev/null
id=1
for key in rsa2048 rsa3072 p256; do
    "$token" import-key BENCH0001 "$work/keys/$key.pem" --pin "$pin" --label "bench-$key" \
        --id "0$id" >/dev/null
    id=$((id + 1))
done
modules="--module ostrel=$build/src/ostrel-pkcs11.so"

# SoftHSMv2 with the same keys, as the peer to compare with.
softhsm=/usr/lib/softhsm/libsofthsm2.so
# P11BENCH_SOFTHSM=0 leaves SoftHSMv2 out (to profile our module alone).
if [ -f "$softhsm" ] && [ "${P11BENCH_SOFTHSM:-1}" != 0 ]; then
    SOFTHSM2_CONF=$work/softhsm2.conf
    export SOFTHSM2_CONF
    mkdir "$work/softhsm"
    printf 'directories.tokendir = %s\nobjectstore.backend = file\nlog.level = ERROR\n' \
        "$work/softhsm" >"$SOFTHSM2_CONF"
    softhsm2-util --init-token --free --label bench --pin "$pin" --so-pin 12345678 >/dev/null
    id=1
    for key in rsa2048 rsa3072 p256; do
        softhsm2-util --import "$work/keys/$key.pem" --token bench --label "bench-$key" \
            --id "0$id" --pin "$pin" >/dev/null
        id=$((id + 1))
    done
    modules="$modules --module softhsm=$softhsm:destroy-derived"
fi

profiler=""
if [ "${P11BENCH_PROFILE:-}" = perf ]; then
    profiler="perf record -e cpu-clock --call-graph dwarf -o $PWD/perf.data --"
fi
# shellcheck disable=SC2086
$profiler "$build/bench/p11bench" --keys "$work/keys" --pin "$pin" --objects "$objects" \
    --seconds "$seconds" $modules "$@"
