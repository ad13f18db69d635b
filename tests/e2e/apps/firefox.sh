#!/bin/sh
# Firefox (headless, a fresh profile with the module added by modutil) authenticates with the
# token's RSA key over TLS 1.3 (RSA-PSS) and TLS 1.2 (PKCS #1 v1.5), and with its P-256 key over
# both, to four openssl s_server instances on 127.0.0.1: one Firefox start for the four pages.
# Each server asks for certificates of one of the two test CAs, so the automatic choice has one
# candidate. Firefox asks for the PIN in a dialog, which firefox_client.py answers.
#
# Network isolation: the test runs in a network namespace of its own whose only interface is
# the loopback, and whose routes deliver every IPv4 and IPv6 address to it. A packet to any
# address therefore crosses the loopback, where loopback_watch.py records every connection
# attempt (TCP SYN, UDP datagram, other IP packets). The test fails when anything other than
# Firefox's connections to the four servers and our own to Marionette was attempted. Two probes
# (TCP and UDP to a port nobody listens on) prove that the watch sees attempts that fail.
if [ -z "${APPS_NETWORK_NAMESPACE:-}" ]; then
    # A user namespace as well when not root (where the kernel allows it).
    namespace=--net
    [ "$(id -u)" -eq 0 ] || namespace="--map-root-user --net"
    APPS_NETWORK_NAMESPACE=1 exec unshare $namespace -- "$0" "$@"
fi
. "$(dirname "$0")/common.sh"
need firefox-esr certutil modutil ip

ip link set lo up
ip route add local 0.0.0.0/0 dev lo
if [ -f /proc/net/if_inet6 ]; then ip -6 route add local ::/0 dev lo; fi
links=$(ip -o link show | cut -d: -f2 | tr -d ' ')
[ "$links" = lo ] || fail "the namespace has interfaces other than the loopback: $links"
for address in 192.0.2.1 2001:db8::1; do
    route=$(ip route get $address 2>&1 || true)
    case $route in
    "local $address"*" dev lo "*) ;;
    *"Network is unreachable"*) ;; # no IPv6 in this kernel: nothing can be sent there at all
    *) fail "$address is not delivered to the loopback: $route" ;;
    esac
done

background python3 "$APPS/loopback_watch.py" attempts.txt >watch.log 2>&1
wait_for watch.log '^ready' >/dev/null
probe=$(free_port)
python3 - "$probe" <<'EOF'
import socket, sys
port = int(sys.argv[1])
socket.socket(socket.AF_INET, socket.SOCK_DGRAM).sendto(b"probe", ("127.0.0.1", port))
try:
    socket.create_connection(("127.0.0.1", port), timeout=5)
except OSError:
    pass
EOF

make_pki
make_token

# A fresh profile: its NSS database knows the module and trusts the test CAs.
mkdir profile
certutil -N -d sql:profile --empty-password
modutil -dbdir sql:profile -add "Apps module" -libfile "$MODULE" -force >/dev/null
for key in rsa ec; do certutil -A -d sql:profile -n "Apps $key CA" -t C,, -i ca-$key.pem; done
marionette=$(free_port)
{
    cat "$APPS/firefox_user.js"
    printf 'user_pref("marionette.port", %s);\n' "$marionette"
} >profile/user.js

CA_FILE=ca-rsa.pem tls_server rsa-1.3 -tls1_3
rsa13=$PORT
CA_FILE=ca-rsa.pem tls_server rsa-1.2 -tls1_2 -client_sigalgs rsa_pkcs1_sha256:ecdsa_secp256r1_sha256
rsa12=$PORT
CA_FILE=ca-ec.pem tls_server ec-1.3 -tls1_3
ec13=$PORT
CA_FILE=ca-ec.pem tls_server ec-1.2 -tls1_2 -client_sigalgs rsa_pkcs1_sha256:ecdsa_secp256r1_sha256
ec12=$PORT
elapsed "profile and servers ready"

# -remote-allow-system-access lets the client put its PIN answer into Firefox's own code.
# Release builds ignore the remote settings server of the preferences unless
# MOZ_REMOTE_SETTINGS_DEVTOOLS is set. A crash leaves a minidump in the profile and starts no
# crash reporter.
MOZ_REMOTE_SETTINGS_DEVTOOLS=1 MOZ_CRASHREPORTER_NO_REPORT=1 background firefox-esr --headless --no-remote --profile "$WORK/profile" --marionette \
    -remote-allow-system-access about:blank >firefox.log 2>&1
firefox=${started##* }
timeout 240 python3 "$APPS/firefox_client.py" "$marionette" "$PIN" "$WORK" \
    "https://127.0.0.1:$rsa13/" "https://127.0.0.1:$rsa12/" \
    "https://127.0.0.1:$ec13/" "https://127.0.0.1:$ec12/" || fail "the Marionette client failed"
# Firefox was told to quit; it gets 30 s to do so before the exit trap stops it.
tries=0
while kill -0 "$firefox" 2>/dev/null && [ $tries -lt 300 ]; do
    sleep 0.1
    tries=$((tries + 1))
done
elapsed "Firefox ran"
if ls profile/minidumps/*.dmp >/dev/null 2>&1; then
    fail "Firefox crashed: $(ls profile/minidumps/*.dmp)"
fi

expect_tls_page page-1.txt TLSv1.3 RSA-PSS rsa.pem
expect_tls_page page-2.txt TLSv1.2 RSA rsa.pem
expect_tls_page page-3.txt TLSv1.3 ECDSA ec.pem
expect_tls_page page-4.txt TLSv1.2 ECDSA ec.pem
dialogs=$(cat pin-dialogs.txt 2>/dev/null || true)
echo "PIN dialogs answered: $dialogs"
expect_in "$dialogs" "($TOKEN_LABEL)"

# Every attempt on the loopback must be one of ours or one of the expected connections.
expect_in "$(cat attempts.txt)" "tcp 127.0.0.1 $probe" "udp 127.0.0.1 $probe"
unexpected=$(grep -v -x -e "tcp 127.0.0.1 $rsa13" -e "tcp 127.0.0.1 $rsa12" -e "tcp 127.0.0.1 $ec13" \
    -e "tcp 127.0.0.1 $ec12" -e "tcp 127.0.0.1 $marionette" -e "[a-z]* 127.0.0.1 $probe" \
    attempts.txt || true)
[ -z "$unexpected" ] || fail "connection attempts other than the test's: $unexpected"
finish
