# A logon with the server: register the agent, send a request, type the code, read the answer.

secret=JBSWY3DPEHPK3PXPJBSWY3DPEHPK3PXP

make_certificates
start_server
step "self-service server with a certificate authority of its own on port $port"

configure agent SERVERNAME=localhost "PORTNUMBER=$port" "PRODTITLE=Second Factor" VERSION=1.0 \
    LOCALE_ID=en RESTRICT_BADCERT=true "INSTALLATION_KEY=$(encrypt_key demo-installation-key)"
(in_agent agent "$bin/QUORLLoginAgent" -action updateAgentStatus -status install) ||
    fail "the agent could not be registered"
step "agent registered: it holds an identifier and an access key of its own"

played=
if [ -z "${DISPLAY:-}" ]; then
    start_display 1280x800
    played=yes
    step "a screen of 1280x800 without a window manager, display $DISPLAY"
fi
start_agent agent
step "agent started"
if [ -n "$played" ]; then
    wait_for_stillness
    shot online-1-panel
fi

ask agent --mfa-request-url "/mfa/verify?USER_NAME=alice&DOMAIN_NAME=EXAMPLE" \
    --user-name alice --domain-name EXAMPLE
step "request sent for alice of EXAMPLE"
if [ -n "$played" ]; then
    wait_for_page 0
    shot online-2-page
    present=$(code "$secret")
    type_text "$present"
    wait_for_stillness
    shot online-3-typed
    press Return
    step "code $present typed, which oathtool computed"
else
    step "type this code in the window: $(code "$secret")"
fi

answer agent
if [ -n "$played" ]; then
    wait_for_stillness
    shot online-4-after
fi
stop_agent "$agent_pid"
[ "$answer_status" -eq 0 ] || fail "the answer was: ${answer:-none}"
step "answer:"
printf '%s\n' "$answer"
