#!/bin/sh
# Installs, on Debian 12, what a task needs when something of it is missing.
#   install-deps.sh demo   building the module and the software token, and the demo's clients
#   install-deps.sh bench  the demo's set and SoftHSMv2, the module the benchmark compares with
#   install-deps.sh        everything the tests need (the demo's set, test frameworks, the
#                          Windows cross toolchain and Wine, the end-to-end clients and the
#                          applications of tests/e2e/apps with SoftHSM as their peer module,
#                          Clang and libFuzzer for the lock analysis and fuzzing legs)
set -eu
demo_packages="cmake ninja-build g++ pkg-config libssl-dev libsqlite3-dev openssl opensc"
test_packages="$demo_packages libgtest-dev libgmock-dev libbenchmark-dev sqlite3 gnutls-bin
  python3 g++-mingw-w64-x86-64-posix wine wine64 dpkg-dev clang clang-14 libclang-rt-14-dev
  python3-pykcs11 firefox-esr libnss3-tools softhsm2 libengine-pkcs11-openssl p11-kit
  openssh-client openssh-server openjdk-17-jdk-headless iproute2 util-linux"
case "${1:-test}" in
    demo) packages=$demo_packages ;;
    bench) packages="$demo_packages softhsm2" ;;
    test) packages=$test_packages ;;
    *) echo "usage: $0 [demo|bench|test]" >&2; exit 2 ;;
esac
missing=""
for package in $packages; do
    if ! dpkg-query -W -f='${Status}' "$package" 2>/dev/null | grep -q "ok installed"; then
        missing="$missing $package"
    fi
done
if [ -n "$missing" ]; then
    echo "Installing:$missing"
    sudo_cmd=""
    [ "$(id -u)" -eq 0 ] || sudo_cmd="sudo"
    $sudo_cmd apt-get update -q
    # shellcheck disable=SC2086
    DEBIAN_FRONTEND=noninteractive $sudo_cmd apt-get install -y -q $missing
fi
