# Shared by the end-to-end scripts: a fresh token store of their own, and small checks.
# Usage: . e2e_common.sh MODULE TOKEN_TOOL WORK_FOLDER
set -eu
MODULE=$1
TOKEN_TOOL=$2
OSTREL_TOKEN_STORE=$3/store
export OSTREL_TOKEN_STORE
rm -rf "$OSTREL_TOKEN_STORE"

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
# Runs pkcs11-tool on the module; its exit code is not the verdict, its text is.
p11() {
    pkcs11-tool --module "$MODULE" "$@" 2>&1 || true
}
finish() {
    if [ "$failures" -ne 0 ]; then
        echo "$failures check(s) failed" >&2
        exit 1
    fi
    echo "all checks passed"
}
