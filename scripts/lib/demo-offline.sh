# A logon without the server: enroll through the real sync, stop the server, send offline requests,
# type the codes that oathtool computes, look at every view.

alice_secret=JBSWY3DPEHPK3PXPJBSWY3DPEHPK3PXP
token_secret=GEZDGNBVGY3TQOJQGEZDGNBVGY3TQOJQ

cat >"$work/users.json" <<JSON
{
  "alice@EXAMPLE": {
    "secret": "$alice_secret",
    "policy": {"MFA_NO_OF_FACTORS": 1, "ENABLED_AUTHS": [3], "MANDATORY_AUTHS": [],
               "OFFLINE_MFA_LIMIT_TYPE": 2, "OFFLINE_MFA_LIMIT_VALUE": 10},
    "counters": {"SUCCESSFUL_OFFLINE_MFA_ATTEMPTS": 6},
    "authenticators": {"3": {"name": "Authenticator app", "secret": "$alice_secret"}}
  },
  "bob@EXAMPLE": {
    "secret": "$alice_secret",
    "policy": {"MFA_NO_OF_FACTORS": 1, "ENABLED_AUTHS": [3, 14, 16], "MANDATORY_AUTHS": [],
               "OFFLINE_MFA_LIMIT_TYPE": 0, "OFFLINE_MFA_LIMIT_VALUE": 0},
    "authenticators": {"3": {"name": "Authenticator app", "secret": "$alice_secret"},
                       "14": {"name": "Hardware token", "secret": "$token_secret",
                              "algorithm": "SHA256", "serial": "HT-204718"},
                       "16": {"name": "Tablet", "secret": "$alice_secret"}}
  },
  "carol@EXAMPLE": {
    "secret": "$alice_secret",
    "policy": {"MFA_NO_OF_FACTORS": 2, "ENABLED_AUTHS": [3, 14], "MANDATORY_AUTHS": [14],
               "OFFLINE_MFA_LIMIT_TYPE": 0, "OFFLINE_MFA_LIMIT_VALUE": 0},
    "authenticators": {"3": {"name": "Authenticator app", "secret": "$alice_secret"},
                       "14": {"name": "Hardware token", "secret": "$token_secret",
                              "algorithm": "SHA256", "serial": "HT-204718"}}
  }
}
JSON

users=(alice bob carol)
tokens=()
for user in "${users[@]}"; do
    tokens+=(--token "token-$user=$user@EXAMPLE")
done

make_certificates
start_server --users "$work/users.json" "${tokens[@]}"
step "self-service server on port $port"
configure agent SERVERNAME=localhost "PORTNUMBER=$port" "PRODTITLE=Second Factor" VERSION=1.0 \
    LOCALE_ID=en RESTRICT_BADCERT=true OFFLINE_MFA=true \
    "INSTALLATION_KEY=$(encrypt_key demo-installation-key)"
(in_agent agent "$bin/QUORLLoginAgent" -action updateAgentStatus -status install) ||
    fail "the agent could not be registered"
for user in "${users[@]}"; do
    (in_agent agent "$bin/keshctl" offline sync) <<<"token-$user" 2>>"$work/sync.log"
    (in_agent agent "$bin/keshctl" offline check "$user@EXAMPLE") 2>>"$work/sync.log" ||
        fail "$user was not enrolled"
    step "$user of EXAMPLE enrolled through the sync"
done
kill "$server_pid"
step "server stopped"

# like_agent NAME KEY=VALUE... : another agent with the same store.
like_agent() {
    mkdir -p "$work/$1"
    cp -r "$work/agent/base" "$work/$1/"
    configure "$@"
}

offline_request() { # AGENT USER
    shown=$(pages_shown)
    ask "$1" --offline-mfa --user-name "$2" --domain-name EXAMPLE
    step "offline request for $2"
    wait_for_page "$shown"
}

expect() { # AGENT ANSWER
    answer "$1"
    case "$answer" in
        *"\"$2\""*) step "answer: $(printf %s "$answer" | tr -d '\n ')" ;;
        *) fail "the answer was: ${answer:-none}, not $2" ;;
    esac
}

enter_code() { # SECRET [ALGORITHM]
    local present
    present=$(code "$@")
    type_text "$present"
    press Return
    step "code $present typed, which oathtool computed"
}

if [ -n "${DISPLAY:-}" ]; then
    start_agent agent
    ask agent --offline-mfa --user-name alice --domain-name EXAMPLE
    step "type this code in the window: $(code "$alice_secret")"
    expect agent SUCCESS
    stop_agent "$agent_pid"
    return
fi

# Somebody who walks away: this page runs out while the rest is played on another screen.
like_agent waiting
start_display 1280x800
waiting_display=$DISPLAY
start_agent waiting
waiting_pid=$agent_pid
offline_request waiting alice
waiting_request=$request_pid
waiting_since=$SECONDS

start_display 1280x800
start_agent agent

offline_request agent alice
shot offline-1-verify
type_text 000000
press Return
wait_for_stillness
shot offline-2-wrong-code
enter_code "$alice_secret"
expect agent SUCCESS

offline_request agent bob
shot offline-3-choose
shown=$(pages_shown)
press Down
press Return
wait_for_page "$shown"
shot offline-4-chosen-token
enter_code "$token_secret" sha256
expect agent SUCCESS

offline_request agent carol
shot offline-5-first-of-two
shown=$(pages_shown)
enter_code "$token_secret" sha256
wait_for_page "$shown"
shot offline-6-second-of-two
enter_code "$alice_secret"
expect agent SUCCESS
stop_agent "$agent_pid"

# Every language in both themes, and the larger screen.
start_display 1920x1080
for language in en de fr es ja; do
    for theme in light dark; do
        variant="$language-$theme"
        like_agent "$variant" "LOCALE_ID=$language"
        start_agent "$variant" "GTK_THEME=Adwaita$([ "$theme" = light ] || echo :dark)"
        offline_request "$variant" alice
        shot "offline-verify-$variant"
        type_text 1
        press Return
        wait_for_stillness
        shot "offline-wrong-$variant"
        stop_agent "$agent_pid"
        wait "$request_pid" && fail "a request was answered by an agent that ended"
        offline_choose="$variant-choose"
        like_agent "$offline_choose" "LOCALE_ID=$language"
        start_agent "$offline_choose" "GTK_THEME=Adwaita$([ "$theme" = light ] || echo :dark)"
        offline_request "$offline_choose" bob
        shot "offline-choose-$variant"
        stop_agent "$agent_pid"
        wait "$request_pid" && fail "a request was answered by an agent that ended"
    done
done

DISPLAY=$waiting_display
export DISPLAY
step "waiting for the page to run out, 121 s after it was shown"
while [ $((SECONDS - waiting_since)) -lt 123 ]; do
    sleep 0.5
done
wait_for_stillness
shot offline-7-expired
request_pid=$waiting_request
press Return
expect waiting FAILURE
stop_agent "$waiting_pid"
step "the expired page was left with Return, which answered FAILURE"
printf '%s\n' "SUCCESS"
