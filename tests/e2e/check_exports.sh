#!/bin/sh
# The module exports the 68 Cryptoki entry points and the maker's three extra ones, nothing else
# (the version node of the version script aside).
set -eu
module=$1
expected=$2
actual=$(nm -D --defined-only "$module" | awk '{ sub(/@.*/, "", $3); print $3 }' | grep -v '^OSTREL_PKCS11$' | LC_ALL=C sort)
if ! printf '%s\n' "$actual" | diff -u "$expected" -; then
    echo "unexpected export table of $module" >&2
    exit 1
fi
echo "exports ok: $(printf '%s\n' "$actual" | wc -l) symbols"
