#!/bin/sh
# TLS client authentication without a browser: gnutls-cli with pkcs11: addresses and openssl
# s_client through the libp11 engine, each with the token's RSA and EC key over TLS 1.3 and
# TLS 1.2, against openssl s_server. The server's status page must show the token's certificate,
# a verified chain and the signature type the version calls for: RSA-PSS for RSA over TLS 1.3;
# PKCS #1 v1.5 over TLS 1.2, where the server asks for it.
. "$(dirname "$0")/common.sh"
need gnutls-cli
make_pki
make_token

tls_server tls13 -tls1_3
port13=$PORT
tls_server tls12 -tls1_2 -client_sigalgs rsa_pkcs1_sha256:ecdsa_secp256r1_sha256
port12=$PORT
request() { printf 'GET / HTTP/1.0\r\n\r\n'; }

for key in rsa ec; do
    url=$RSA_URL
    [ $key = rsa ] || url=$EC_URL
    for version in 1.3 1.2; do
        port=$port13
        signature=RSA-PSS
        [ $version = 1.3 ] || { port=$port12; signature=RSA; }
        [ $key = rsa ] || signature=ECDSA

        page=gnutls-$key-$version.html
        request | GNUTLS_PIN=$PIN timeout 60 gnutls-cli --provider "$MODULE" -p "$port" 127.0.0.1 \
            --x509cafile ca-rsa.pem --priority "NORMAL:-VERS-ALL:+VERS-TLS$version" \
            --x509certfile "$url;type=cert" --x509keyfile "$url;type=private" >"$page" 2>&1 || true
        expect_tls_page "$page" "TLSv$version" $signature $key.pem
        elapsed "gnutls-cli, $key key, TLS $version"

        page=openssl-$key-$version.html
        request | with_engine timeout 60 openssl s_client -connect "127.0.0.1:$port" -quiet \
            -CAfile ca-rsa.pem -verify_return_error "-tls$(echo $version | tr . _)" \
            -engine pkcs11 -keyform engine -key "$url;type=private" -cert $key.pem >"$page" 2>&1 || true
        expect_tls_page "$page" "TLSv$version" $signature $key.pem
        elapsed "openssl s_client, $key key, TLS $version"
    done
done
finish
