# Shared by the end-to-end scripts: a fresh token store of their own, and small checks. In
# sanitizer builds every program of a script runs with the sanitizer runtime preloaded; some
# system tools do not (dd aborts in aligned_alloc), so the scripts avoid them.
# Usage: . e2e_common.sh MODULE TOKEN_TOOL WORK_FOLDER
set -eu
MODULE=$(realpath "$1")
TOKEN_TOOL=$2
WORK=$3
rm -rf "$WORK"
mkdir -p "$WORK"
OSTREL_TOKEN_STORE=$WORK/store
export OSTREL_TOKEN_STORE
# The module's log (errors only, at the default level) goes to a temporary folder of our own.
# Its maker folder is made here, or the first line would only create it and be lost
# (compatibility register, entry 5).
TMPDIR=$WORK/tmp
export TMPDIR
mkdir -m 0700 "$TMPDIR" "$TMPDIR/Kelvanetics"

. "$(dirname "$0")/checks.sh"
# expect_lines WHAT ACTUAL EXPECTED: the same lines, in any order.
expect_lines() {
    if [ "$(printf '%s\n' "$2" | sort)" != "$(printf '%s\n' "$3" | sort)" ]; then
        fail "$1 differ"
        printf '%s\n' "$3" | sort >"$WORK/expected"
        printf '%s\n' "$2" | sort >"$WORK/actual"
        diff -u "$WORK/expected" "$WORK/actual" >&2 || true
    fi
}
# Runs pkcs11-tool on the module; its exit code is not the verdict, its text is.
p11() {
    pkcs11-tool --module "$MODULE" "$@" 2>&1 || true
}
# One line per object of a `pkcs11-tool -O` listing: header|label|id.
object_lines() {
    printf '%s\n' "$1" | awk '
        function flush() { if (kind != "") print kind "|" label "|" id }
        /Object;/ { flush(); kind = $0; gsub(/ +/, " ", kind); sub(/ $/, "", kind); label = id = "" }
        /^  label:/ { label = $0; sub(/^  label: */, "", label) }
        /^  ID:/ { id = $2 }
        END { flush() }'
}
# self_signed KEY_FILE SUBJECT DER_FILE: a certificate for the key, as `openssl req -x509` makes it.
self_signed() {
    openssl req -x509 -new -key "$1" -subj "$2" -days 30 -outform DER -out "$3" 2>/dev/null
}
# openssl_key NAME rsa|p256|p384: a key made by OpenSSL in $WORK/NAME.key, its public key in
# $WORK/NAME.pub (PEM) and a self-signed certificate for it in $WORK/NAME.der.
openssl_key() {
    case $2 in
        rsa) openssl genrsa -out "$WORK/$1.key" 2048 2>/dev/null ;;
        p256) openssl ecparam -name prime256v1 -genkey -noout -out "$WORK/$1.key" ;;
        p384) openssl ecparam -name secp384r1 -genkey -noout -out "$WORK/$1.key" ;;
        *) echo "openssl_key: unknown type $2" >&2; exit 2 ;;
    esac
    openssl pkey -in "$WORK/$1.key" -pubout -out "$WORK/$1.pub"
    self_signed "$WORK/$1.key" "/CN=$1" "$WORK/$1.der"
}
# flip_byte FILE OFFSET COPY: a copy of the file with one bit of the byte at OFFSET changed.
flip_byte() {
    byte=$(od -An -tu1 -j "$2" -N1 "$1" | tr -d ' ')
    {
        head -c "$2" "$1"
        # shellcheck disable=SC2059
        printf "$(printf '\\%03o' $((byte ^ 1)))"
        tail -c +"$(($2 + 2))" "$1"
    } >"$3"
}
# same_bytes WHAT EXPECTED_FILE ACTUAL_FILE: the files exist and are equal.
same_bytes() {
    if [ ! -s "$3" ]; then
        fail "$1: nothing was written"
    elif ! cmp -s "$2" "$3"; then
        fail "$1: the bytes differ"
    fi
}
# openssl_verifies WHAT OPENSSL_ARGUMENTS...: OpenSSL says the signature verifies.
openssl_verifies() {
    verified_what=$1
    shift
    verdict=$(openssl "$@" 2>&1 || true)
    case $verdict in
        *"Verified OK"* | *"Signature Verified Successfully"*) ;;
        *) fail "$verified_what: OpenSSL does not accept the signature: $verdict" ;;
    esac
}
# What the module logged; at the default level only errors are written.
module_log() {
    find "$TMPDIR/Kelvanetics" -name '*.LOG' -exec cat {} + 2>/dev/null
}
# The module's log lines without their time stamps.
module_log_texts() {
    module_log | sed 's/^.*::=>//'
}
expect_no_module_errors() {
    log=$(module_log)
    [ -z "$log" ] || fail "the module logged: $log"
}
