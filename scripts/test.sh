#!/bin/sh
# Builds and runs every test: the debug build (unit, conformance, end-to-end and application
# tests), the module under Clang's lock analysis, the AddressSanitizer and ThreadSanitizer
# builds, a minute of fuzzing (Clang, ASan and UBSan), the Windows DLL under Wine, the
# installation and Debian package, and the benchmark's short mode. Installs missing packages
# first.
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
echo "=== clang: the module built with Clang's thread-safety analysis of its locks"
cmake --preset clang >/dev/null
cmake --build --preset clang -j "$jobs" --target ostrel-pkcs11
run_preset asan
run_preset tsan
if [ -f softtoken/CMakeLists.txt ]; then
    run_preset fuzz
fi
if [ -x ./scripts/test-windows.sh ]; then
    ./scripts/test-windows.sh
fi
./scripts/test-package.sh
echo "=== benchmark: short mode (proves that it runs; measures nothing)"
./bench/run-p11bench.sh --short
echo "=== all test legs passed"
