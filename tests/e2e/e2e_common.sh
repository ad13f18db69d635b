# Shared by the end-to-end scripts: a fresh token store of their own, and small checks.
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

failures=0
fail() {
    echo "FAILED: $*" >&2
    failures=$((failures + 1))
}
# expect_in TEXT NEEDLE...: every needle occurs in the text.
expect_in() {
    text=$1
    shift
    for needle in "$@"; do
        printf '%s\n' "$text" | grep -qF -- "$needle" || fail "missing '$needle'"
    done
}
expect_not_in() {
    text=$1
    shift
    for needle in "$@"; do
        if printf '%s\n' "$text" | grep -qF -- "$needle"; then fail "unexpected '$needle'"; fi
    done
}
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
# What the module logged; at the default level only errors are written.
module_log() {
    find "$TMPDIR/Kelvanetics" -name '*.LOG' -exec cat {} + 2>/dev/null
}
expect_no_module_errors() {
    log=$(module_log)
    [ -z "$log" ] || fail "the module logged: $log"
}
finish() {
    if [ "$failures" -ne 0 ]; then
        echo "$failures check(s) failed" >&2
        exit 1
    fi
    echo "all checks passed"
}
