#!/bin/sh
# The Windows leg of the tests: cross-builds ostrel-pkcs11.dll and the test programs with
# MinGW-w64 (the mingw preset, build/mingw) and runs them under Wine.
#
# Wine runs with a prefix private to the build folder (cmake/wine-run.sh). Its server is started
# here, kept running for the whole test run, and stopped at the end: started by the first test
# instead, it and Wine's helper processes would inherit that test's output pipe and make CTest
# wait on them, and a server that comes and goes between tests costs seconds each time.
set -eu
cd "$(dirname "$0")/.."

jobs=${OSTREL_TEST_JOBS:-$(nproc)}
build=build/mingw

echo "=== mingw: configure and build"
cmake --preset mingw >/dev/null
cmake --build --preset mingw -j "$jobs"

export WINEPREFIX="$PWD/$build/wine-prefix"
export WINEDEBUG=-all
echo "=== mingw: start Wine ($WINEPREFIX)"
mkdir -p "$WINEPREFIX"
# A server left over by an interrupted run of this build folder is replaced.
wineserver -k 2>/dev/null || true
wineserver -p </dev/null >/dev/null 2>&1
trap 'wineserver -k 2>/dev/null || true' EXIT
trap 'exit 130' INT TERM
# The first program makes the prefix if needed and starts Wine's services, outside CTest.
./cmake/wine-run.sh "$PWD/$build/bin/windows_tests.exe" --gtest_list_tests >/dev/null

echo "=== mingw: test"
ctest --preset mingw -j "$jobs"
