# The stage that the demo plays on: a certificate authority, a server, displays, agents in folders
# of their own. Sourced; every process started here is ended by leave_stage.

bin=build/release/bin
shots=build/demo
work=
rooms=() # folders beside $work
pids=()

step() { printf '%s\n' "- $*"; }
fail() {
    printf 'demo: FAILED: %s\n' "$*" >&2
    for log in "$work"/*/base/QUORLLoginAgent/VantorixClient.log "$work"/*.log; do
        [ -s "$log" ] && { printf '%s\n' "--- end of $(basename "$log")"; tail -n 15 "$log"; } >&2
    done
    exit 1
}

enter_stage() {
    work=$(mktemp -d)
    mkdir -p "$shots"
    trap leave_stage EXIT
}

leave_stage() {
    local status=$? pid
    for pid in "${pids[@]}"; do
        kill "$pid" 2>/dev/null || true
    done
    for pid in "${pids[@]}"; do
        wait "$pid" 2>/dev/null || true
    done
    rm -rf "$work" "${rooms[@]}"
    exit "$status"
}

# wait_until SECONDS WHAT COMMAND... : until the command succeeds, or the demo fails.
wait_until() {
    local end=$((SECONDS + $1)) what=$2
    shift 2
    until "$@"; do
        [ "$SECONDS" -lt "$end" ] || fail "waited in vain for $what"
        sleep 0.05
    done
}

make_certificates() {
    "$bin/make-test-certificates" "$work/tls" 2>"$work/certificates.log" ||
        fail "the certificates could not be made"
    # What stands in place of the system's trust for the agent alone, which trusts this authority.
    mkdir "$work/trust"
    cp -P "$work/tls/certs/"* "$work/tls/ca-certificates.crt" "$work/trust/"
}

# start_server ARGUMENTS... : sets server_pid and port.
start_server() {
    "$bin/selfservice-server" --cert "$work/tls/server.pem" --key "$work/tls/server.key" \
        --state "$work/requests.json" "$@" >"$work/server.out" 2>"$work/server.log" &
    server_pid=$!
    pids+=("$server_pid")
    wait_until 10 "the server" grep -q '^ready ' "$work/server.out"
    port=$(sed -n 's/^ready //p' "$work/server.out")
}

# A text as the installer stores keys: AES-256-CBC under the built-in key, base64.
encrypt_key() {
    printf %s "$1" | openssl enc -aes-256-cbc -a -A -nosalt \
        -K 6d61e11afe1eb951a8969a7aa524a71fe2f9218be0df0944b45c696c2b908bbd \
        -iv 5c1e0a7f3b92d4e6a18c07f2b4d96e31
}

# configure AGENT KEY=VALUE... : writes or amends the agent's configuration.
configure() {
    local folder="$work/$1/base/QUORLLoginAgent"
    shift
    mkdir -p "$folder"
    python3 - "$folder/config.plist" "$@" <<'PYTHON'
import os, plistlib, sys
path, settings = sys.argv[1], dict(word.split("=", 1) for word in sys.argv[2:])
config = plistlib.load(open(path, "rb")) if os.path.exists(path) else {}
config.update(settings)
with open(path, "wb") as file:
    plistlib.dump(config, file)
PYTHON
}

# The agents of a demo run as whoever plays it.
export QUORL_AGENT_ACCOUNT
QUORL_AGENT_ACCOUNT=$(id -un)
export QUORL_SERVE_OWN_ACCOUNT=1

# in_agent AGENT COMMAND... : runs the command with the agent's folders and the demo's trust.
in_agent() {
    local name=$1
    shift
    local as_root=()
    [ "$(id -u)" -eq 0 ] || as_root=(-r)
    QUORL_SUPPORT_BASE="$work/$name/base" QUORL_RUNTIME_DIR="$work/$name/run" \
        exec unshare "${as_root[@]}" -m -- sh -c \
        'mount --bind "$1" /etc/ssl/certs && shift && exec "$@"' sh "$work/trust" "$@"
}

# start_display SIZE : a screen of its own, sets DISPLAY.
start_display() {
    local file="$work/display.$RANDOM"
    Xvfb -displayfd 5 -noreset -screen 0 "$1x24" -nolisten tcp 5>"$file" 2>>"$work/xvfb.log" &
    pids+=($!)
    wait_until 10 "the X server" test -s "$file"
    DISPLAY=:$(cat "$file")
    export DISPLAY
}

# start_agent AGENT [NAME=VALUE...] : sets agent_pid and agent_log.
start_agent() {
    local name=$1
    shift
    agent_log="$work/$name/base/QUORLLoginAgent/VantorixClient.log"
    (in_agent "$name" env "$@" "$bin/QUORLLoginAgent") 2>>"$work/$name.err" &
    agent_pid=$!
    pids+=("$agent_pid")
    wait_until 15 "the agent's socket" \
        test -S "$work/$name/run/com.tav.quorl.QUORLLoginAgent"
}

stop_agent() {
    kill "$1" 2>/dev/null || true
    wait "$1" 2>/dev/null || fail "the agent ended with status $?"
}

# ask AGENT ARGUMENTS... : a request in the background; its answer goes to $work/AGENT.answer.
ask() {
    local name=$1
    shift
    rm -f "$work/$name.answer"
    "$bin/kesh-request" --runtime-dir "$work/$name/run" --timeout 300 "$@" >"$work/$name.answer" \
        2>>"$work/request.log" &
    request_pid=$!
}

# answer AGENT : waits for the answer; sets answer and answer_status.
answer() {
    answer_status=0
    wait "$request_pid" || answer_status=$?
    answer=$(cat "$work/$1.answer")
}

# pages_shown : how many pages the agent has finished so far, the blank ones not counted.
pages_shown() { grep -c 'handleFileInjection started for OnDocumentComplete' "$agent_log" 2>/dev/null || true; }
more_pages_than() { [ "$(pages_shown)" -gt "$1" ]; }

# wait_for_page COUNT : until more than COUNT pages have been finished, and the screen stands still.
wait_for_page() {
    wait_until 20 "the page" more_pages_than "$1"
    wait_for_stillness
}

screen_sum() { import -silent -window root "${1:-png:-}" | cksum; }
wait_for_stillness() {
    local before after=
    for _ in $(seq 20); do
        before=$after
        after=$(import -silent -window root -depth 8 rgb:- | cksum)
        [ "$before" != "$after" ] || return 0
        sleep 0.15
    done
}

shot() {
    import -silent -window root "$shots/$1.png" || fail "no screenshot"
    step "screenshot $shots/$1.png"
}

# code SECRET [ALGORITHM] : the present code, computed by an independent program.
code() { oathtool --totp="${2:-sha1}" --base32 "$1"; }

type_text() { xdotool type --delay 30 -- "$1"; }
press() { xdotool key "$1"; }
