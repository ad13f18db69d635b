#!/bin/sh
# Builds the module and the software token, makes a token in a store under the build folder, and
# shows the module at work through OpenSC's pkcs11-tool, as an application uses it.
set -eu
cd "$(dirname "$0")/.."
./scripts/install-deps.sh demo

# A build of its own without the tests, so that the demo needs no test frameworks.
build=$PWD/build/demo
cmake -S . -B "$build" -G Ninja -DCMAKE_BUILD_TYPE=Release -DBUILD_TESTING=OFF >/dev/null
cmake --build "$build" -j "$(nproc)" --target ostrel-pkcs11 ostrel_softtoken ostrel-token
module=$build/src/ostrel-pkcs11.so
token=$build/softtoken/ostrel-token
if [ ! -x "$token" ]; then
    echo "The software token was not built (OpenSSL 3 or SQLite missing)." >&2
    exit 1
fi

OSTREL_TOKEN_STORE=$build/demo-store
export OSTREL_TOKEN_STORE
rm -rf "$OSTREL_TOKEN_STORE"

step() {
    echo
    echo "### $*"
}
p11() {
    echo "\$ pkcs11-tool $*"
    pkcs11-tool --module "$module" "$@" 2>&1 || true
}

step "Two software tokens: one in FIPS 140-3 mode (its model's third character is not '1')"
"$token" init DEMO0001 --label "Demo signing token" --pin 1234 --so-pin 87654321
"$token" init DEMO0002 --label "Demo FIPS token" --pin 4321 --model SW3-FIPS --retries 5
"$token" keygen DEMO0001 --type rsa2048 --pin 1234 --label "Demo signing key" --id 01

step "Library information"
p11 --show-info

step "Slots and token information"
p11 --list-slots

step "Mechanisms of each token (the FIPS 140-3 token hides the SHA-1 signing mechanisms)"
p11 --list-mechanisms --slot-index 0
p11 --list-mechanisms --slot-index 1

step "Login with a wrong PIN: refused, and the token's retry count falls"
p11 --slot-index 1 --login --pin 0000 --list-objects
"$token" show DEMO0002 | grep retries

step "The token's objects without login: public keys and certificates"
openssl req -x509 -newkey rsa:2048 -nodes -keyout "$build/demo-ca.key" -out "$build/demo-cert.pem" \
    -subj "/CN=Demo User/O=Example" -days 30 2>/dev/null
"$token" import-cert DEMO0001 "$build/demo-cert.pem" --id 02 >/dev/null
p11 --slot-index 0 --list-objects

step "Login with the right PIN: the private key appears too"
p11 --slot-index 0 --login --pin 1234 --list-objects

step "PIN change"
p11 --slot-index 0 --change-pin --pin 1234 --new-pin 567890

step "A slot event: pkcs11-tool waits in C_WaitForSlotEvent while ostrel-token unplugs a token"
(printf 'x\n\n'; sleep 1; printf '\n'; sleep 1; echo "\$ ostrel-token unplug DEMO0002" >&2
 "$token" unplug DEMO0002 >&2; sleep 2; printf 'x\n') |
    pkcs11-tool --module "$module" --test-hotplug 2>&1 | grep -v '^  ' || true
"$token" plug DEMO0002 >/dev/null

echo
echo "Demo store: $OSTREL_TOKEN_STORE (ostrel-token --help for more)"
