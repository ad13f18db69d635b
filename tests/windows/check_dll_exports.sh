#!/bin/sh
# The export table of ostrel-pkcs11.dll holds exactly the 68 Cryptoki entry points under their
# plain names and the maker's three extra ones under their Microsoft C++ names (ordinals aside).
#
#   check_dll_exports.sh OBJDUMP DLL EXPECTED_EXPORTS
#
# EXPECTED_EXPORTS is the Linux list of tests/e2e: its C_* names are the standard entry points.
set -eu
objdump=$1
dll=$2
expected_list=$3

expected=$(mktemp)
trap 'rm -f "$expected"' EXIT
{
    grep '^C_' "$expected_list"
    printf '%s\n' '?C_EjectToken@@YAKK@Z' '?C_GetUnmanagedStructSizeList@@YAKPEAK0@Z' \
        '?C_InteractiveLogin@@YAKK@Z'
} | LC_ALL=C sort >"$expected"
if [ "$(wc -l <"$expected")" -ne 71 ]; then
    echo "$expected_list does not list the 68 C_* entry points" >&2
    exit 1
fi

# The names follow the "[Ordinal/Name Pointer] Table" heading, one a line, up to a blank line.
actual=$("$objdump" -p "$dll" | awk '
    /^\[Ordinal\/Name Pointer\] Table/ { in_table = 1; next }
    in_table && NF == 0 { exit }
    in_table { print $NF }' | LC_ALL=C sort)

if ! printf '%s\n' "$actual" | diff -u "$expected" -; then
    echo "unexpected export table of $dll" >&2
    exit 1
fi
echo "exports ok: $(printf '%s\n' "$actual" | wc -l) names"
