#!/bin/sh
# Fuzzes one harness for longer than the test run does: builds the fuzz preset (Clang with
# AddressSanitizer and UndefinedBehaviorSanitizer) and runs the harness.
#   scripts/fuzz.sh HARNESS [SECONDS [PROCESSES]]     default: an hour on one process
# HARNESS: module (the Cryptoki entry points over the device double) or softtoken (the software
# token's parsers).
set -eu
cd "$(dirname "$0")/.."
case "${1:-}" in
    module) program=module_calls_fuzzer ;;
    softtoken) program=softtoken_parsers_fuzzer ;;
    *) echo "usage: $0 module|softtoken [SECONDS [PROCESSES]]" >&2; exit 2 ;;
esac
seconds=${2:-3600}
processes=${3:-1}
cmake --preset fuzz >/dev/null
cmake --build --preset fuzz
exec fuzz/run-fuzzer.sh "$program" "fuzz/${1}_corpus" "build/fuzz/fuzz/$1" "$seconds" "$processes"
