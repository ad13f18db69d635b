#!/bin/sh
# Fuzzes the software token's parsers for longer than the test run does: builds the fuzz
# preset (Clang with AddressSanitizer and UndefinedBehaviorSanitizer) and runs the harness.
#   scripts/fuzz-softtoken.sh [SECONDS [PROCESSES]]     default: an hour on one process
set -eu
cd "$(dirname "$0")/.."
seconds=${1:-3600}
processes=${2:-1}
cmake --preset fuzz >/dev/null
cmake --build --preset fuzz
exec fuzz/softtoken/run-fuzzer.sh build/fuzz/fuzz/softtoken "$seconds" "$processes"
