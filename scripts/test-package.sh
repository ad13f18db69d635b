#!/bin/sh
# The installation as a user gets it: cmake --install into a staging folder, then the Debian
# package installed with apt-get on this machine and removed again. Each time pkcs11-tool reaches
# a software token through the installed module; after the package, p11-kit lists the module,
# and pkcs11-tool and p11tool reach the token through p11-kit's proxy.
set -eu
cd "$(dirname "$0")/.."

build=$PWD/build/package
work=$(mktemp -d /tmp/ostrel-package.XXXXXX)
package_installed=""
cleanup() {
    if [ -n "$package_installed" ]; then
        DEBIAN_FRONTEND=noninteractive apt-get remove -y -q ostrel-pkcs11 >/dev/null 2>&1 || true
    fi
    rm -rf "$work"
}
trap cleanup EXIT

echo "=== package: configure and build"
cmake -S . -B "$build" -G Ninja -DCMAKE_BUILD_TYPE=Release -DBUILD_TESTING=OFF \
    -DOSTREL_BUILD_BENCHMARKS=OFF -DCMAKE_INSTALL_PREFIX=/usr >/dev/null
cmake --build "$build" -j "$(nproc)"

multiarch=$(dpkg-architecture -qDEB_HOST_MULTIARCH 2>/dev/null || gcc -dumpmachine)
module_path=/usr/lib/$multiarch/pkcs11/ostrel-pkcs11.so

# A token of its own, made by the tool given, and pkcs11-tool listing it through the module.
expect_token() {
    tool=$1
    module=$2
    OSTREL_TOKEN_STORE=$work/store-$3
    export OSTREL_TOKEN_STORE
    "$tool" init PKG00001 --label "Package check" --pin 1234 >/dev/null
    slots=$(pkcs11-tool --module "$module" -L 2>&1 || true)
    if ! printf '%s\n' "$slots" | grep -q "Package check"; then
        printf '%s\n' "$slots" >&2
        echo "FAILED: the token is not listed through $module" >&2
        exit 1
    fi
}

echo "=== package: cmake --install into a staging folder"
DESTDIR="$work/stage" cmake --install "$build" >/dev/null
stage=$work/stage
for file in "$stage$module_path" "$stage/usr/lib/$multiarch/ostrel/libOstrelDSCLibrary.so" \
    "$stage/usr/bin/ostrel-token" "$stage/usr/share/p11-kit/modules/ostrel.module"; do
    [ -f "$file" ] || { echo "FAILED: $file not installed" >&2; exit 1; }
done
# The module finds the device library beside it, not in the build folder.
if ldd "$stage$module_path" | grep "OstrelDSCLibrary" | grep -q "$build"; then
    echo "FAILED: the installed module still points into the build folder" >&2
    exit 1
fi
expect_token "$stage/usr/bin/ostrel-token" "$stage$module_path" staged
echo "staged installation: pkcs11-tool lists the token"

echo "=== package: cpack, apt-get install, use, apt-get remove"
(cd "$build" && cpack -G DEB >/dev/null)
deb=$(ls "$build"/ostrel-pkcs11_*.deb)
package_installed=yes
DEBIAN_FRONTEND=noninteractive apt-get install -y -q "$deb" >/dev/null
expect_token /usr/bin/ostrel-token "$module_path" installed
modules=$(p11-kit list-modules 2>&1 || true)
if ! printf '%s\n' "$modules" | grep -q "Package check"; then
    printf '%s\n' "$modules" >&2
    echo "FAILED: p11-kit does not list the module and its token" >&2
    exit 1
fi
# Through p11-kit's proxy, which loads the registered modules: nobody names ours. A certificate
# on the token gives p11tool an object to list without logging in.
openssl req -x509 -newkey ec -pkeyopt ec_paramgen_curve:P-256 -nodes -subj "/CN=Package check" \
    -days 2 -keyout "$work/key.pem" -out "$work/cert.pem" 2>/dev/null
/usr/bin/ostrel-token import-cert PKG00001 "$work/cert.pem" --label "package certificate" \
    >/dev/null
proxy=/usr/lib/$multiarch/p11-kit-proxy.so
slots=$(pkcs11-tool --module "$proxy" -L 2>&1 || true)
if ! printf '%s\n' "$slots" | grep -q "Package check"; then
    printf '%s\n' "$slots" >&2
    echo "FAILED: pkcs11-tool does not reach the token through $proxy" >&2
    exit 1
fi
# The token's URL as ostrel-token prints it: its texts are padded with NUL bytes (compatibility
# register, entry 42), so a URL typed by hand with the bare label would match nothing.
url=$(/usr/bin/ostrel-token show PKG00001 | sed -n 's/^url: //p' | head -n 1)
objects=$(p11tool --list-all "$url" 2>&1 || true)
if ! printf '%s\n' "$objects" | grep -q "package certificate"; then
    printf '%s\n' "$objects" >&2
    echo "FAILED: p11tool --list-all does not show the token's certificate through p11-kit" >&2
    exit 1
fi
DEBIAN_FRONTEND=noninteractive apt-get remove -y -q ostrel-pkcs11 >/dev/null
package_installed=""
[ ! -e "$module_path" ] || { echo "FAILED: the module stayed after apt-get remove" >&2; exit 1; }
echo "package: installed, listed by pkcs11-tool and p11-kit, reached through p11-kit-proxy by pkcs11-tool and p11tool, removed"
