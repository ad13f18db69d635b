#!/bin/sh
# OpenSC's pkcs11-tool loads the module by path and prints its library information.
set -eu
module=$1
# pkcs11-tool exits non-zero when it finds no slot after the information; the text is what counts.
output=$(pkcs11-tool --module "$module" --show-info 2>&1 || true)
printf '%s\n' "$output"
for expected in "Cryptoki version 2.20" "Manufacturer     Kelvanetics" \
                "Library          Ostrel PKCS11 Library (ver 3.6)"; do
    if ! printf '%s\n' "$output" | grep -qF "$expected"; then
        echo "missing: $expected" >&2
        exit 1
    fi
done
