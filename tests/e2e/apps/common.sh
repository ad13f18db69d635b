# Shared by the application tests: the arguments, a test PKI, a token holding an RSA-2048 and a
# P-256 key with their certificates, processes stopped on exit, and the checks.
# Usage: . common.sh MODULE MAKER WORK
#   MODULE  the PKCS #11 module the applications load
#   MAKER   how a token is made for MODULE: the path of ostrel-token, or "softhsm" (SoftHSMv2's
#           softhsm2-util, then pkcs11-tool through MODULE for the certificates)
#   WORK    a folder of the test's own, emptied first
set -eu
if [ $# -lt 3 ]; then
    echo "usage: $0 MODULE MAKER WORK" >&2
    exit 2
fi
MODULE=$(realpath "$1")
MAKER=$2
[ "$MAKER" = softhsm ] || MAKER=$(realpath "$MAKER")
WORK=$(realpath -m "$3")
APPS=$(dirname "$(realpath "$0")")
PIN=1234
TOKEN_LABEL="Apps token"
# RFC 7512 addresses of the two keys and certificates (by id alone: the token is the only one
# that holds these ids).
RSA_URL="pkcs11:id=%01"
EC_URL="pkcs11:id=%02"

rm -rf "$WORK"
mkdir -p "$WORK/home"
cd "$WORK"
# Nothing of the machine's user is read or written: stores, configuration and caches stay here.
export HOME="$WORK/home" OSTREL_TOKEN_STORE="$WORK/store" SOFTHSM2_CONF="$WORK/softhsm2.conf"
unset XDG_CONFIG_HOME XDG_DATA_HOME OPENSSL_CONF SSH_AUTH_SOCK DISPLAY 2>/dev/null || true

# need PROGRAM...: the test cannot run without these (scripts/install-deps.sh installs them).
need() {
    for program in "$@"; do
        if ! command -v "$program" >/dev/null 2>&1; then
            echo "FAILED: $program is not installed (run scripts/install-deps.sh)" >&2
            exit 1
        fi
    done
}
need openssl pkcs11-tool python3
[ "$MAKER" != softhsm ] || need softhsm2-util

. "$APPS/../checks.sh"

# Processes started with `background` are stopped, by their ids, whenever the script ends.
started=""
background() {
    "$@" &
    started="$started $!"
}
stop_started() {
    for pid in $started; do kill "$pid" 2>/dev/null || true; done
    for pid in $started; do wait "$pid" 2>/dev/null || true; done
    started=""
}
trap stop_started EXIT
trap 'exit 1' HUP INT TERM

# wait_for FILE PATTERN: waits up to 30 s for a line matching PATTERN and prints it.
wait_for() {
    tries=0
    until grep -m1 -e "$2" "$1" 2>/dev/null; do
        tries=$((tries + 1))
        if [ "$tries" -gt 300 ]; then
            echo "timed out waiting for '$2' in $1" >&2
            cat "$1" >&2 || true
            return 1
        fi
        sleep 0.1
    done
}
# A port of 127.0.0.1 that nothing listens on now.
free_port() {
    python3 -c 'import socket; s = socket.socket(); s.bind(("127.0.0.1", 0)); print(s.getsockname()[1])'
}
# Seconds since the script started, for the timing lines of the log.
started_at=$(date +%s)
elapsed() {
    echo "time: $* after $(($(date +%s) - started_at)) s"
}

fingerprint() {
    openssl x509 -in "$1" -noout -fingerprint -sha256 | sed 's/.*=//'
}

# The test PKI: one CA for the RSA user and one for the EC user (a client that picks its
# certificate by the server's CA list then has one choice), ca.pem trusting both, a server
# certificate for 127.0.0.1, and the users' keys and certificates (rsa.pem, ec.pem).
make_pki() {
    for name in rsa ec; do
        openssl req -x509 -newkey ec -pkeyopt ec_paramgen_curve:P-256 -nodes -days 2 \
            -keyout "ca-$name.key" -out "ca-$name.pem" -subj "/O=Apps test/CN=Apps $name CA" \
            -addext basicConstraints=critical,CA:TRUE -addext keyUsage=critical,keyCertSign 2>/dev/null
    done
    cat ca-rsa.pem ca-ec.pem >ca.pem
    openssl genpkey -algorithm RSA -pkeyopt rsa_keygen_bits:2048 -out rsa.key 2>/dev/null
    openssl genpkey -algorithm EC -pkeyopt ec_paramgen_curve:P-256 -out ec.key 2>/dev/null
    openssl genpkey -algorithm EC -pkeyopt ec_paramgen_curve:P-256 -out server.key 2>/dev/null
    issue server.key server.pem ca-rsa "/CN=127.0.0.1" "subjectAltName=IP:127.0.0.1
extendedKeyUsage=serverAuth"
    for name in rsa ec; do
        issue $name.key $name.pem ca-$name "/O=Apps test/CN=Apps $name user" \
            "subjectAltName=email:$name-user@apps.test
keyUsage=critical,digitalSignature,keyEncipherment
extendedKeyUsage=clientAuth,emailProtection,codeSigning"
        openssl x509 -in $name.pem -outform DER -out $name.der
    done
}
# issue KEY CERT CA SUBJECT EXTENSIONS
issue() {
    printf 'basicConstraints=CA:FALSE\n%s\n' "$5" >"$2.ext"
    openssl req -new -key "$1" -subj "$4" |
        openssl x509 -req -CA "$3.pem" -CAkey "$3.key" -days 2 -extfile "$2.ext" -out "$2" 2>/dev/null
}

# Puts rsa.key (id 01) and ec.key (id 02) with their certificates on a new token labelled
# TOKEN_LABEL with user PIN PIN, then deletes the key files: from then on only the token can
# sign for the users' certificates.
make_token() {
    case $MAKER in
    softhsm)
        mkdir -p softhsm-tokens
        printf 'directories.tokendir = %s\nobjectstore.backend = file\nlog.level = ERROR\n' \
            "$WORK/softhsm-tokens" >softhsm2.conf
        softhsm2-util --init-token --free --label "$TOKEN_LABEL" --pin $PIN --so-pin 12345678 >/dev/null
        for pair in rsa:01 ec:02; do
            name=${pair%:*}
            id=${pair#*:}
            softhsm2-util --import $name.key --token "$TOKEN_LABEL" --pin $PIN --id $id \
                --label "$name key" >/dev/null
            pkcs11-tool --module "$MODULE" --token-label "$TOKEN_LABEL" --login --pin $PIN \
                --write-object $name.der --type cert --id $id --label "$name cert" >/dev/null
        done
        ;;
    *)
        "$MAKER" init APPS0001 --label "$TOKEN_LABEL" --pin $PIN >/dev/null
        "$MAKER" import-key APPS0001 rsa.key --pin $PIN --id 01 --label "rsa key" >/dev/null
        "$MAKER" import-cert APPS0001 rsa.pem --id 01 --label "rsa cert" >/dev/null
        "$MAKER" import-key APPS0001 ec.key --pin $PIN --id 02 --label "ec key" >/dev/null
        "$MAKER" import-cert APPS0001 ec.pem --id 02 --label "ec cert" >/dev/null
        ;;
    esac
    rm -f rsa.key ec.key
}

# tls_server NAME OPTION...: an s_server on a free port of 127.0.0.1 that demands a client
# certificate issued by the CA in CA_FILE (default ca.pem) and answers with its status page
# (protocol, the client's signature type, the verification result, the client's certificate);
# its log is NAME.log. Sets PORT.
tls_server() {
    name=$1
    shift
    background openssl s_server -accept 127.0.0.1:0 -cert server.pem -key server.key \
        -CAfile "${CA_FILE:-ca.pem}" -Verify 1 -verify_return_error -www "$@" >"$name.log" 2>&1
    PORT=$(wait_for "$name.log" '^ACCEPT ' | sed 's/.*://')
}
# expect_tls_page PAGE PROTOCOL SIGNATURE CERT: the status page tells that the client
# authenticated over PROTOCOL with a SIGNATURE signature ("RSA" is PKCS #1 v1.5) and the
# certificate CERT, and that the server verified it.
expect_tls_page() {
    if [ ! -s "$1" ]; then
        fail "no page $1"
        return 0
    fi
    page=$(cat "$1")
    expect_in "$page" "Protocol  : $2" "Peer signature type: $3" "Verify return code: 0 (ok)"
    if [ "$(fingerprint "$1" 2>/dev/null)" != "$(fingerprint "$4")" ]; then
        fail "$1: the server did not see the certificate $4"
    fi
}

# with_engine COMMAND...: runs an openssl command with the libp11 engine configured to load
# MODULE with the user PIN.
with_engine() {
    [ -f openssl.cnf ] || engine_config
    OPENSSL_CONF="$WORK/openssl.cnf" "$@"
}
engine_config() {
    engine=$(openssl version -e | sed 's/^ENGINESDIR: "\(.*\)"$/\1/')/pkcs11.so
    if [ ! -f "$engine" ]; then
        echo "FAILED: the libp11 engine $engine is not installed (run scripts/install-deps.sh)" >&2
        exit 1
    fi
    cat >openssl.cnf <<EOF
openssl_conf = init
[init]
engines = engines
[engines]
pkcs11 = pkcs11
[pkcs11]
engine_id = pkcs11
dynamic_path = $engine
MODULE_PATH = $MODULE
PIN = $PIN
init = 0
EOF
}
