#!/bin/sh
# Installs what building and testing need on Debian 12, when something is missing.
set -eu
packages="cmake ninja-build g++ pkg-config libgtest-dev libgmock-dev libbenchmark-dev
  libssl-dev libsqlite3-dev openssl sqlite3 opensc gnutls-bin python3
  g++-mingw-w64-x86-64-posix wine wine64"
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
