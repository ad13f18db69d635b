#!/bin/sh
# GnuTLS's p11tool finds the software token through the module.
. "$(dirname "$0")/e2e_common.sh"

"$TOKEN_TOOL" init E2E00003 --label "GnuTLS token" --pin 1234 >/dev/null
tokens=$(p11tool --provider "$(realpath "$MODULE")" --list-tokens 2>&1 || true)
printf '%s\n' "$tokens"
expect_in "$tokens" "Label: GnuTLS token" "Manufacturer: Kelvanetics" "Model: SW1-SOFT" \
    "Serial: E2E00003" "Flags: RNG, Requires login"
finish
