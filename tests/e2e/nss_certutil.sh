#!/bin/sh
# NSS's certutil, with the module added to a fresh database, lists the token's certificates
# (marked as the user's when a key has the same CKA_ID), reads one back as it was written, and
# lists the private keys after login.
. "$(dirname "$0")/e2e_common.sh"

"$TOKEN_TOOL" init E2E00041 --label "NSS token" --pin 1234 >/dev/null
openssl genrsa -out "$WORK/alice.key" 2048 2>/dev/null
openssl genrsa -out "$WORK/carol.key" 2048 2>/dev/null
self_signed "$WORK/alice.key" "/O=Example/CN=Alice" "$WORK/alice.der"
self_signed "$WORK/carol.key" "/O=Example/CN=Carol" "$WORK/carol.der"
"$TOKEN_TOOL" import-key E2E00041 "$WORK/alice.key" --pin 1234 --label "Alice key" --id 0a >/dev/null
"$TOKEN_TOOL" import-cert E2E00041 "$WORK/alice.der" --label "Alice" --id 0a >/dev/null
"$TOKEN_TOOL" import-cert E2E00041 "$WORK/carol.der" --label "Carol" --id 0c >/dev/null
"$TOKEN_TOOL" keygen E2E00041 --type p256 --pin 1234 --label "EC key" --id 0b >/dev/null

# FRIENDLY: the token's certificates are readable without login. certutil -L -n looks a
# nickname up without the password file, so it could not log in to read them.
db=sql:$WORK/nssdb
mkdir "$WORK/nssdb"
certutil -N -d "$db" --empty-password
modutil -dbdir "$db" -add ostrel -libfile "$MODULE" -mechanisms FRIENDLY -force </dev/null >/dev/null
printf '1234\n' >"$WORK/password"

certificates=$(certutil -L -h all -d "$db" 2>&1 </dev/null || true)
printf '%s\n' "$certificates"
# nickname|trust
nicknames=$(printf '%s\n' "$certificates" |
    awk '/^NSS token:/ { trust = $NF; sub(/ +[^ ]+ *$/, ""); print $0 "|" trust }')
expect_lines "certificates" "$nicknames" \
"NSS token:Alice|u,u,u
NSS token:Carol|,,"
certutil -L -d "$db" -n "NSS token:Alice" -r </dev/null >"$WORK/read.der" 2>&1 || true
cmp -s "$WORK/read.der" "$WORK/alice.der" || fail "the certificate read back differs"

keys=$(certutil -K -h all -d "$db" -f "$WORK/password" 2>&1 </dev/null || true)
printf '%s\n' "$keys"
# "< 0> rsa      0a          Alice key" becomes "rsa 0a Alice key".
expect_lines "private keys" "$(printf '%s\n' "$keys" | sed -n 's/^<[ 0-9]*> *//p' | tr -s ' ')" \
"rsa 0a Alice key
ec 0b EC key"

expect_no_module_errors
finish
