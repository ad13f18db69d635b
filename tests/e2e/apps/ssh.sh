#!/bin/sh
# SSH: `ssh -I MODULE` logs in to a throwaway sshd on 127.0.0.1 with the token's RSA key, then
# with its EC key (authorized_keys holds only the one key each time); `ssh-add -s MODULE` loads
# both keys into an ssh-agent of the test's own, which then logs in with each. The PIN comes from
# SSH_ASKPASS. Every login must be accepted by sshd for exactly the expected key's fingerprint.
. "$(dirname "$0")/common.sh"
need ssh ssh-keygen ssh-add ssh-agent /usr/sbin/sshd
make_pki
make_token

# The users' public keys in OpenSSH's form, taken from their certificates, not from the token.
for key in rsa ec; do
    openssl x509 -in $key.pem -pubkey -noout >$key-public.pem
    ssh-keygen -i -m PKCS8 -f $key-public.pem >$key.pub
done
ssh_fingerprint() {
    ssh-keygen -l -E sha256 -f "$1.pub" | cut -d' ' -f2
}

ssh-keygen -q -t ed25519 -N '' -f host_key
port=$(free_port)
cat >sshd_config <<EOF
ListenAddress 127.0.0.1:$port
HostKey $WORK/host_key
PidFile none
AuthorizedKeysFile $WORK/authorized_keys
PubkeyAuthentication yes
PasswordAuthentication no
KbdInteractiveAuthentication no
UsePAM no
StrictModes no
PermitRootLogin prohibit-password
LogLevel VERBOSE
EOF
# sshd's privilege separation needs its empty folder (the openssh-server package makes it at
# boot).
[ "$(id -u)" -ne 0 ] || mkdir -p /run/sshd
background /usr/sbin/sshd -D -e -f "$WORK/sshd_config" 2>sshd.log
wait_for sshd.log "Server listening on 127.0.0.1 port $port" >/dev/null
printf '[127.0.0.1]:%s %s\n' "$port" "$(cat host_key.pub)" >known_hosts

printf '#!/bin/sh\necho %s\n' "$PIN" >askpass
chmod +x askpass
export SSH_ASKPASS="$WORK/askpass" SSH_ASKPASS_REQUIRE=force
user=$(id -un)

# login KEY HOW OPTION...: logs in (HOW names the way in the log) with authorized_keys holding
# only KEY's public key; sshd must accept it for that key's fingerprint.
login() {
    key=$1
    how=$2
    shift 2
    cp $key.pub authorized_keys
    fingerprint=$(ssh_fingerprint $key)
    before=$(grep -c "Accepted publickey for $user from 127.0.0.1 .* $fingerprint" sshd.log || true)
    output=$(timeout 60 ssh -F /dev/null -p "$port" -o UserKnownHostsFile="$WORK/known_hosts" \
        -o GlobalKnownHostsFile=/dev/null -o StrictHostKeyChecking=yes -o ConnectTimeout=20 \
        -o PasswordAuthentication=no -o KbdInteractiveAuthentication=no "$@" \
        "$user@127.0.0.1" 'echo "logged in as $(id -un)"' </dev/null 2>ssh-$key-$how.log || true)
    after=$(grep -c "Accepted publickey for $user from 127.0.0.1 .* $fingerprint" sshd.log || true)
    if [ "$output" != "logged in as $user" ] || [ "$after" -ne $((before + 1)) ]; then
        fail "$how: no login with the $key key ($fingerprint): $(cat ssh-$key-$how.log)"
    fi
    elapsed "$how, $key key"
}
login rsa ssh-I -o IdentityAgent=none -I "$MODULE"
login ec ssh-I -o IdentityAgent=none -I "$MODULE"

# The agent accepts this module only (its default allows modules under /usr/lib only).
background ssh-agent -D -a "$WORK/agent.sock" -P "$MODULE" >agent.log 2>&1
wait_for agent.log SSH_AUTH_SOCK >/dev/null
export SSH_AUTH_SOCK="$WORK/agent.sock"
timeout 60 ssh-add -s "$MODULE" </dev/null >ssh-add.log 2>&1 || fail "ssh-add -s: $(cat ssh-add.log)"
expect_in "$(ssh-add -l 2>&1 || true)" "$(ssh_fingerprint rsa)" "$(ssh_fingerprint ec)"
login rsa ssh-agent -o IdentityAgent="$WORK/agent.sock"
login ec ssh-agent -o IdentityAgent="$WORK/agent.sock"
finish
