#!/bin/sh
# Builds the module and shows it at work through OpenSC's pkcs11-tool, as an application would
# use it. With the software token built, the demo runs against a token made in a store under the
# build folder; otherwise against the in-memory device double.
set -eu
cd "$(dirname "$0")/.."
./scripts/install-deps.sh

cmake --preset default >/dev/null
cmake --build --preset default -j "$(nproc)" --target ostrel-pkcs11
build=build/default
module=$build/src/ostrel-pkcs11.so

show() {
    echo
    echo "\$ pkcs11-tool $*"
    pkcs11-tool --module "$module" "$@" || true
}

if [ -f "$build/softtoken/CMakeFiles/ostrel-token.dir/build.make" ] || [ -x "$build/softtoken/ostrel-token" ]; then
    cmake --build --preset default -j "$(nproc)" --target ostrel-token ostrel_softtoken
    export OSTREL_TOKEN_STORE="$PWD/$build/demo-store"
    rm -rf "$OSTREL_TOKEN_STORE"
    token=$build/softtoken/ostrel-token
    "$token" init DEMO0001 --label "Demo token" --pin 1234 --so-pin 87654321
    "$token" keygen DEMO0001 --type rsa2048 --pin 1234 --label "Demo signing key" --id 01
    show --show-info
    show --list-slots
    show --list-token-slots
    show --list-mechanisms
    show --login --pin 1234 --list-objects
else
    cmake --build --preset default -j "$(nproc)" --target ostrel_double_shared
    export LD_LIBRARY_PATH="$PWD/$build/tests/double"
    export OSTREL_DOUBLE_DEVICES="DEMO0001:Demo token:SW1-DEMO:2.1.0"
    show --show-info
    show --list-slots
fi
