#!/bin/sh
# Mail signing: NSS's cmsutil (the signing engine of Thunderbird's S/MIME) and openssl cms
# through the libp11 engine sign a message with each of the token's keys. openssl cms -verify
# must accept every signature against the test CA, give back the message, and name the token's
# certificate as the signer.
. "$(dirname "$0")/common.sh"
need cmsutil certutil modutil
make_pki
make_token
printf 'Subject: signed by the token\r\n\r\nHello from the application tests.\r\n' >message.txt

# A fresh NSS database that knows the module and trusts the test CAs, as Thunderbird's profile
# would.
mkdir nssdb
certutil -N -d sql:nssdb --empty-password
for key in rsa ec; do certutil -A -d sql:nssdb -n "Apps $key CA" -t C,C,C -i ca-$key.pem; done
modutil -dbdir sql:nssdb -add "Apps module" -libfile "$MODULE" -force >/dev/null
printf '%s\n' "$PIN" >pin.txt

# expect_signed CMS CERT: the signature verifies, the content is the message and CERT signed it.
expect_signed() {
    if ! openssl cms -verify -inform DER -in "$1" -CAfile ca.pem -purpose smimesign \
        -signer "$1.signer.pem" -out "$1.content" 2>"$1.verify"; then
        fail "$1 does not verify: $(cat "$1.verify")"
        return 0
    fi
    cmp -s message.txt "$1.content" || fail "$1 does not hold the message"
    [ "$(fingerprint "$1.signer.pem")" = "$(fingerprint "$2")" ] || fail "$1 was not signed by $2"
}

for key in rsa ec; do
    url=$RSA_URL
    [ $key = rsa ] || url=$EC_URL
    if cmsutil -S -d sql:nssdb -f pin.txt -N "$TOKEN_LABEL:$key cert" -G -P -i message.txt \
        -o cmsutil-$key.p7s 2>cmsutil-$key.log; then
        expect_signed cmsutil-$key.p7s $key.pem
    else
        fail "cmsutil could not sign with the $key key: $(cat cmsutil-$key.log)"
    fi
    elapsed "cmsutil, $key key"

    if with_engine openssl cms -sign -engine pkcs11 -keyform engine -inkey "$url;type=private" \
        -signer $key.pem -md sha256 -nodetach -binary -outform DER -in message.txt \
        -out openssl-$key.p7s 2>openssl-$key.log; then
        expect_signed openssl-$key.p7s $key.pem
    else
        fail "openssl cms could not sign with the $key key: $(cat openssl-$key.log)"
    fi
    elapsed "openssl cms, $key key"
done
finish
