#!/bin/sh
# Builds and runs every test: the debug build, then the AddressSanitizer and ThreadSanitizer
# builds, then a minute of fuzzing the software token's parsers (Clang, ASan and UBSan), then
# the Windows DLL under Wine. Installs missing packages first.
set -eu
cd "$(dirname "$0")/.."
./scripts/install-deps.sh

jobs=$(nproc)
run_preset() {
    preset=$1
    echo "=== $preset: configure and build"
    cmake --preset "$preset" >/dev/null
    cmake --build --preset "$preset" -j "$jobs"
    echo "=== $preset: test"
    ctest --preset "$preset" -j "$jobs"
}

run_preset default
run_preset asan
run_preset tsan
if [ -f softtoken/CMakeLists.txt ]; then
    run_preset fuzz
fi
if [ -x ./scripts/test-windows.sh ]; then
    ./scripts/test-windows.sh
fi
echo "=== all test legs passed"
