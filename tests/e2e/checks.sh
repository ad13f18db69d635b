# The checks every end-to-end script makes: failures are counted, not fatal, so that one run
# reports all of them; finish ends the script with their verdict.
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
# expect_not_in TEXT NEEDLE...: no needle occurs in the text.
expect_not_in() {
    text=$1
    shift
    for needle in "$@"; do
        if printf '%s\n' "$text" | grep -qF -- "$needle"; then fail "unexpected '$needle'"; fi
    done
}
finish() {
    if [ "$failures" -ne 0 ]; then
        echo "$failures check(s) failed" >&2
        exit 1
    fi
    echo "all checks passed"
}
