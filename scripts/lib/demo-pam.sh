# Logons through a PAM stack of its own: the password's module, ours, our helper, the agent on a screen
# of its own, the server. Nothing of the machine's own PAM, accounts or folders is touched.

secret=JBSWY3DPEHPK3PXPJBSWY3DPEHPK3PXP
password=correct-horse

# The module's copy looks into a folder whose name takes the place of the built-in one.
room=$(mktemp -d /tmp/kesh-test-root-XXXXXX)
rooms+=("$room")
mkdir "$room/pam.d"
LC_ALL=C sed "s#/tmp/kesh-test-root-000000#$room#g" build/release/lib/pam_kesh_for_tests.so \
    >"$room/pam_kesh.so"
printf 'key = signed\n' >"$room/pam_kesh.conf"
printf 'root:x:0:0:root:/root:/bin/sh\n' >"$room/passwd"
printf 'root:*:19000:0:99999:7:::\n' >"$room/shadow"

printf '#!/bin/sh\n[ "$(tr -d "\\0")" = %s ]\n' "$password" >"$room/check-password"
for service in lightdm sshd; do
    cat >"$room/pam.d/$service" <<PAM
auth requisite pam_exec.so expose_authtok quiet $room/check-password
auth [success=3 ignore=3 module_unknown=ignore default=die] $room/pam_kesh.so
auth [success=2 default=ignore] pam_succeed_if.so quiet uid eq 0
auth [success=1 default=ignore] pam_localuser.so file=$room/passwd
auth requisite pam_deny.so
PAM
done
printf 'auth required pam_deny.so\n' >"$room/pam.d/other"

# What a machine that is joined to a domain knows of itself and of dora.
mkdir -p "$work/system/etc"
cp "$room/passwd" "$work/system/etc/passwd"
printf '[libdefaults]\n default_realm = EXAMPLE.COM\n' >"$work/system/etc/krb5.conf"
{ cat "$room/passwd"; printf 'dora:x:20001:20001:Dora:/:/bin/sh\n'; } >"$work/accounts"
printf 'root:x:0:\ndora:x:20001:\n' >"$work/groups"

# The module starts its helper with an empty environment, so the demo's folders are named here.
as_root=
[ "$(id -u)" -eq 0 ] || as_root=-r
cat >"$room/helper" <<HELPER
#!/bin/sh
export QUORL_SUPPORT_BASE='$work/agent/base' QUORL_RUNTIME_DIR='$work/agent/run'
export QUORL_SYSTEM_ROOT='$work/system' QUORL_GUARD_DIR='$work/guard'
export QUORL_AGENT_ACCOUNT='$QUORL_AGENT_ACCOUNT'
export NSS_WRAPPER_PASSWD='$work/accounts' NSS_WRAPPER_GROUP='$work/groups'
exec unshare $as_root -m -- sh -c 'mount --bind "\$1" /etc/ssl/certs &&
    LD_PRELOAD=libnss_wrapper.so exec "\$2"' sh '$work/trust' '$PWD/$bin/kesh-verify'
HELPER
chmod +x "$room/helper" "$room/check-password"

cat >"$work/users.json" <<JSON
{"dora@EXAMPLE.COM": {
   "secret": "$secret",
   "policy": {"MFA_NO_OF_FACTORS": 1, "ENABLED_AUTHS": [3], "MANDATORY_AUTHS": [],
              "OFFLINE_MFA_LIMIT_TYPE": 2, "OFFLINE_MFA_LIMIT_VALUE": 10},
   "authenticators": {"3": {"name": "Phone", "secret": "$secret"}}}}
JSON

# begin_login SERVICE USER : a login program in the background, its password typed.
begin_login() {
    step "$2 at $1"
    rm -f "$work/keys"
    mkfifo "$work/keys"
    : >"$work/login.log"
    env LD_PRELOAD=libpam_wrapper.so PAM_WRAPPER=1 PAM_WRAPPER_SERVICE_DIR="$room/pam.d" LANG=en_US.UTF-8 \
        pamtester "$1" "$2" authenticate <"$work/keys" >"$work/login.log" 2>&1 &
    login_pid=$!
    exec 7>"$work/keys"
    seen=0
    next_prompt
    answer_prompt "$password" "the password"
}

login_ended() { ! kill -0 "$login_pid" 2>/dev/null; }
prompt_or_end() {
    prompt=$(tail -c "+$((seen + 1))" "$work/login.log")
    [[ $prompt =~ [:.]\ ?$ ]] || login_ended
}
# next_prompt : sets prompt to what the login program shows next; fails when it has ended.
next_prompt() {
    wait_until 20 "a prompt" prompt_or_end
    ! login_ended
}
answer_prompt() { # TEXT WHAT
    step "  prompt \"${prompt%\ }\": $2"
    seen=$(stat -c %s "$work/login.log")
    printf '%s\n' "$1" >&7
}

# end_login OUTCOME : the verdict of the login program must hold this text.
end_login() {
    wait_until 20 "the login program's end" login_ended
    wait "$login_pid" || true
    exec 7>&-
    local verdict
    verdict=$(grep -o 'pamtester: .*' "$work/login.log" | tail -n 1)
    case "$verdict" in
        *"$1"*) step "  verdict: ${verdict#pamtester: }" ;;
        *) fail "the login ended with: ${verdict:-nothing}, not $1" ;;
    esac
}

# type_into_window SHOWN NAME : waits for a page beyond those shown, types the present code.
type_into_window() {
    wait_for_page "$1"
    shot "$2"
    local present
    present=$(code "$secret")
    type_text "$present"
    press Return
    step "  code $present typed into the window, which oathtool computed"
}

is_enrolled() {
    (QUORL_SYSTEM_ROOT="$work/system" in_agent agent "$bin/keshctl" offline check dora@EXAMPLE.COM) \
        >>"$work/sync.log" 2>&1
}
# A code is good once, and so is each one that the page would have taken at that moment: also the next.
wait_for_fresh_code() {
    local used
    step "  waiting for a code that could not have been used yet"
    for _ in 1 2; do
        used=$(code "$secret")
        until [ "$(code "$secret")" != "$used" ]; do
            sleep 0.2
        done
    done
}

make_certificates
start_server --users "$work/users.json" --signed-pages
step "self-service server on port $port; its pages take signed requests alone"
configure agent SERVERNAME=localhost "PORTNUMBER=$port" "PRODTITLE=Second Factor" VERSION=1.0 \
    LOCALE_ID=en RESTRICT_BADCERT=true OFFLINE_MFA=true LOGIN_MFA=true PREAUTH_CHECK_REQUIRED=true \
    "INSTALLATION_KEY=$(encrypt_key demo-installation-key)"
(in_agent agent "$bin/QUORLLoginAgent" -action updateAgentStatus -status install) ||
    fail "the agent could not be registered"
start_display 1280x800
start_agent agent
step "agent registered and started on display $DISPLAY"

begin_login lightdm root
end_login "successfully authenticated"

step "1. with the server, in the window"
shown=$(pages_shown)
begin_login lightdm dora
type_into_window "$shown" pam-1-online
end_login "successfully authenticated"
wait_until 20 "the enrollment that follows" is_enrolled
step "  enrolled for offline use, after the login"

kill "$server_pid"
wait "$server_pid" 2>/dev/null || true
step "server stopped"

step "2. without the server, in the window"
shown=$(pages_shown)
begin_login lightdm dora
type_into_window "$shown" pam-2-offline
end_login "successfully authenticated"

step "3. without the server, in text"
wait_for_fresh_code
begin_login sshd dora
next_prompt || fail "no code was asked for"
answer_prompt "$(code "$secret")" "the present code"
end_login "successfully authenticated"

step "4. ten wrong codes"
wrong=0
until [ "$wrong" -ge 10 ]; do
    begin_login sshd dora
    while next_prompt; do
        case "$prompt" in
            *Return*) answer_prompt "" "Return" ;;
            *)
                wrong=$((wrong + 1))
                answer_prompt 000000 "wrong code $wrong"
                ;;
        esac
    done
    if [ "$wrong" -lt 10 ]; then
        end_login "Authentication failure"
    else
        end_login "exhausted maximum number"
    fi
done
begin_login sshd dora
next_prompt || fail "nothing was said to whom is locked out"
case "$prompt" in
    *"Try again in"*) answer_prompt "$(code "$secret")" "the present code" ;;
    *) fail "a code was asked for" ;;
esac
end_login "exhausted maximum number"

step "root meanwhile"
begun=$(date +%s%N)
begin_login sshd root
end_login "successfully authenticated"
step "  in $((($(date +%s%N) - begun) / 1000000)) ms, the password's included"
stop_agent "$agent_pid"
printf '%s\n' "SUCCESS"
