#!/bin/sh
# pkcs11-tool --generate-random draws from the token without login: exactly the length asked
# for, every part of it random-looking (1000 bytes, and 200000 bytes, more than the soft
# token's 64 KiB parts), and no two draws alike.
. "$(dirname "$0")/e2e_common.sh"

"$TOKEN_TOOL" init E2E00079 --label "Random token" --pin 1234 >/dev/null

# distinct_bytes FILE [SKIP COUNT]: how many different byte values the file (or that part of
# it) holds.
distinct_bytes() {
    od -An -v -tu1 -j "${2:-0}" ${3:+-N "$3"} "$1" | tr -s ' ' '\n' | sed '/^$/d' | sort -u |
        wc -l
}
draw() {
    rm -f "$WORK/$2"
    p11 --generate-random "$1" -o "$WORK/$2" >/dev/null
    size=$(wc -c <"$WORK/$2" 2>/dev/null || echo 0)
    [ "$size" -eq "$1" ] || fail "$2: $size bytes instead of $1"
}

draw 1000 first
draw 1000 second
if cmp -s "$WORK/first" "$WORK/second"; then
    fail "two draws of 1000 bytes are equal"
fi
# 1000 random bytes hold about 250 of the 256 values, and the last 100 of them about 84; a
# buffer filled only in part, or with a pattern, holds far fewer.
for name in first second; do
    [ "$(distinct_bytes "$WORK/$name")" -ge 200 ] || fail "$name: too few different bytes"
    [ "$(distinct_bytes "$WORK/$name" 900 100)" -ge 50 ] ||
        fail "$name: too few different bytes at the end"
done

draw 200000 large
[ "$(distinct_bytes "$WORK/large")" -eq 256 ] || fail "large: not every byte value occurs"
for offset in 0 65536 131072 199000; do
    [ "$(distinct_bytes "$WORK/large" $offset 1000)" -ge 200 ] ||
        fail "large: too few different bytes from $offset on"
done
head -c 65536 "$WORK/large" >"$WORK/large.low"
tail -c +65537 "$WORK/large" | head -c 65536 >"$WORK/large.high"
if cmp -s "$WORK/large.low" "$WORK/large.high"; then
    fail "large: the second 64 KiB repeat the first"
fi

expect_no_module_errors
finish
