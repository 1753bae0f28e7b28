"""Logins at LightDM with its GTK greeter, on X servers without a screen, with typed keys."""

import glob
import os
import pwd
import re
import subprocess
import time

from display_logins import display_cases, ends_in_order, session_owners
from machine import PASSWORD, SUPPORT, agents, code, processes, run, text_of, wait_for, write
from terminal import Failed

AGENT_LOG = f"{SUPPORT}/agent/VantorixClient.log"
SESSIONS = "/var/tmp/sessions"
# Of the agent's window, on a screen of the size below.
CLOSE_BUTTON = ("1061", "134")

SETTINGS = """[LightDM]
logind-check-graphical=false
minimum-display-number=50

[Seat:*]
xserver-command=/usr/local/bin/xvfb-seat
greeter-session=lightdm-gtk-greeter
greeter-hide-users=true
user-session=probe
session-wrapper=/usr/local/bin/session-wrapper
"""

# LightDM waits for SIGUSR1 of this process, which is why it ends in exec.
X_SERVER = """#!/bin/bash
display=$1
shift
arguments=()
while [ $# -gt 0 ]; do
    case "$1" in
        -seat | -background) shift ;;
        vt* | -novtswitch) ;;
        *) arguments+=("$1") ;;
    esac
    shift
done
exec Xvfb "$display" -screen 0 1280x800x24 "${arguments[@]}"
"""

PROBE = f"""#!/bin/sh
echo "$DISPLAY" >{SESSIONS}/$(id -un)
while [ ! -e {SESSIONS}/$(id -un).end ]; do sleep 0.1; done
"""


class WindowLogins:
    def __init__(self, machine, shots):
        self.machine = machine
        self._shots = shots
        self._lightdm = None
        self._case = ""
        self._shot = 0
        write("/etc/lightdm/lightdm.conf.d/90-logins.conf", SETTINGS)
        for name, text in (("xvfb-seat", X_SERVER), ("probe", PROBE),
                           ("session-wrapper", '#!/bin/sh\nexec "$@"\n')):
            write(f"/usr/local/bin/{name}", text, 0o755)
        write("/usr/share/xsessions/probe.desktop",
              "[Desktop Entry]\nName=Probe\nExec=/usr/local/bin/probe\nType=Application\n")
        os.makedirs(SESSIONS, exist_ok=True)
        os.chmod(SESSIONS, 0o1777)
        machine.prepare_units()
        run("dbus-daemon", "--system", "--fork")

    # The display manager and what can be seen of it.

    def _start(self, name):
        self._case, self._shot = name, 0
        run("rm", "-rf", "/var/log/lightdm", AGENT_LOG)
        self._lightdm = subprocess.Popen(["lightdm", "--debug"], stdout=subprocess.DEVNULL,
                                         stderr=subprocess.DEVNULL)
        self._on(":50")
        self._wait_for_greeter()

    def _on(self, display):
        self.display = display
        self._environment = {"DISPLAY": display, "XAUTHORITY": f"/run/lightdm/root/{display}",
                             "PATH": os.environ["PATH"]}

    def _wait_for_greeter(self):
        self._log_has("Greeter connected")
        wait_for("the agent's socket",
                 lambda: os.path.exists("/run/QUORLLoginAgent/com.tav.quorl.QUORLLoginAgent"))
        self._log_has("Prompt greeter")
        self._still()

    def _stop(self):
        if self._lightdm:
            self._lightdm.terminate()
            self._lightdm.wait(20)
            self._lightdm = None
        run("systemctl", "stop", "QUORLLoginAgent.service")
        wait_for("the X server's end", lambda: not processes("Xvfb"))

    def _log(self):
        return text_of("/var/log/lightdm/lightdm.log")

    def _log_has(self, text, times=1, seconds=20):
        try:
            wait_for(text, lambda: self._log().count(text) >= times, seconds)
        except RuntimeError as error:
            raise Failed(f"{error}; the log ends: {self._log()[-600:]}") from None

    def _x(self, *command):
        return subprocess.run(command, env=self._environment, stdout=subprocess.PIPE,
                              stderr=subprocess.DEVNULL, check=False).stdout

    def _picture(self):
        return self._x("import", "-silent", "-window", "root", "-depth", "8", "rgb:-")

    def _still(self, seconds=6):
        """Until three looks in a row, the caret's blinking aside, see about the same."""
        end, before, same = time.monotonic() + seconds, b"", 0
        while same < 2 and time.monotonic() < end:
            time.sleep(0.12)
            now = self._picture()
            changed = len(now) != len(before) or sum(a != b for a, b in zip(now[::97], before[::97])) > 8
            same = 0 if changed else same + 1
            before = now

    def _show(self, what):
        self._still()
        self._shot += 1
        self._x("import", "-silent", "-window", "root",
                f"{self._shots}/{re.sub(r'[^a-z0-9]+', '-', f'{self._case}-{self._shot}-{what}'.lower())}.png")

    def _type(self, text):
        self._x("xdotool", "type", "--delay", "15", text)
        self._x("xdotool", "key", "Return")

    def _identify(self, name, password=PASSWORD):
        prompts = self._log().count("Prompt greeter")
        self._type(name)
        self._log_has("Prompt greeter", prompts + 1)
        self._still(2)
        self._type(password)

    def _pages(self):
        return text_of(AGENT_LOG).count("handleFileInjection started for OnDocumentComplete")

    def _wait_for_page(self, count=1, seconds=25):
        try:
            wait_for("the page", lambda: self._pages() >= count, seconds)
        except RuntimeError as error:
            raise Failed(f"{error}; the agent's log ends: {text_of(AGENT_LOG)[-900:]}; "
                         f"{self.machine.journal.text[-400:]}") from None
        self._still()

    def _session_of(self, name, *others):
        wait_for(f"the session of {name}", lambda: os.path.exists(f"{SESSIONS}/{name}"), 20)
        if session_owners() != {name, *others}:
            raise Failed(f"sessions of {session_owners()}")
        wait_for("the agent's end", lambda: not agents(), 8)

    def _no_session(self):
        if processes("probe") or "Session pid" in self._log() and glob.glob(f"{SESSIONS}/dora*"):
            raise Failed("a session has begun")

    def _log_in(self, name, *wrong, pages=1, others=()):
        """With the page's codes, wrong ones first; others have sessions, too."""
        self._identify(name)
        self._wait_for_page(pages)
        for typed in wrong:
            self._type(typed)
            self._show("wrong")
        self._type(code())
        self._session_of(name, *others)

    # The cases.

    def online(self):
        name = self.machine.person()
        self._identify(name)
        self._wait_for_page()
        self._show("page")
        note = self._contained()
        self._type(code())
        self._session_of(name)
        self._show("session")
        self.machine.journal.has(name, "way=window", "outcome=granted", "page")
        return note

    def enrolls_at_the_login_screen(self, stranger):
        """Who has no record gets one by a login with the server."""
        self._log_in(stranger)
        wait_for("the record", lambda: self.machine.record(stranger), 15)
        status = os.stat(f"{SUPPORT}/offline-data.json")
        if (status.st_uid, status.st_gid, status.st_mode & 0o777) != (0, pwd.getpwnam("_quorl").pw_gid, 0o640):
            raise Failed("the store has another owner or mode now")

    def wrong_then_right(self):
        self._log_in(self.machine.person(), "000000")

    def wrong_throughout(self):
        name = self.machine.person()
        self._identify(name)
        self._wait_for_page()
        for _ in range(3):
            self._type("000000")
            self._still(2)
        self._show("too many")
        self._x("xdotool", "mousemove", *CLOSE_BUTTON, "click", "1")
        self.machine.journal.has(name, "outcome=denied")
        self._log_has("Authentication complete with return value 7")
        self._show("denied")
        self._no_session()

    def cancelled(self):
        name = self.machine.person()
        self._identify(name)
        self._wait_for_page()
        began = time.monotonic()
        self._cancel()
        wait_for("the helper's end", lambda: not processes("kesh-verify"), 3)
        took = time.monotonic() - began
        self._still()
        self._show("after")
        self._no_session()
        # The same greeter and the same agent serve the next try; the greeter asks for the password.
        pages = self._pages()
        self._type(PASSWORD)
        self._wait_for_page(pages + 1)
        self._type(code())
        self._session_of(name)
        return f"helper gone {took * 1000:.0f} ms after the cancel"

    def _cancel(self):
        """What the greeter's Cancel does: LightDM ends the session child that authenticates."""
        os.kill(max(pid for pid in processes("lightdm")
                    if "--session-child" in text_of(f"/proc/{pid}/cmdline")), 15)

    def server_silent(self):
        name = self.machine.person()
        self.machine.silence_server()
        try:
            began = time.monotonic()
            self._identify(name)
            self._wait_for_page()
            took = time.monotonic() - began
            self._show("offline page")
            self._type(code())
            self._session_of(name)
        finally:
            self.machine.wake_server()
        self.machine.journal.has(name, "way=window", "outcome=granted", "without the server")
        return f"offline page {took:.1f} s after the user name"

    def locked_out(self, lock):
        locked = self.machine.person()
        lock(locked)
        self.machine.silence_server()
        try:
            self._identify(locked)
            self.machine.journal.has(locked, "way=window", "locked after wrong codes")
            self._show("locked")
            self._no_session()
        finally:
            self.machine.wake_server()

    def lock_and_unlock(self):
        """A locked seat has its greeter on another display, and asks for the second factor there."""
        name = self.machine.person()
        self._log_in(name)
        prompts, pages = self._log().count("Prompt greeter"), self._pages()
        run("dbus-send", "--system", "--print-reply", "--dest=org.freedesktop.DisplayManager",
            "/org/freedesktop/DisplayManager/Seat0", "org.freedesktop.DisplayManager.Seat.Lock")
        self._log_has("Greeter connected", 2)
        self._on(":51")
        wait_for("the agent", lambda: agents(), 10)
        self._log_has("Prompt greeter", prompts + 1)
        self._still()
        self._show("locked")
        # The greeter offers whose session it is where it was told in time, and asks for a name else.
        if f"Greeter start authentication for {name}" in self._log().rpartition("Greeter connected")[2]:
            self._type(PASSWORD)
        else:
            self._identify(name)
        self._wait_for_page(pages + 1)
        self._show("page")
        self._type("000000")
        self._show("wrong")
        self._type(code())
        self._log_has("eturning to existing user session")
        wait_for("the agent's end", lambda: not agents(), 10)
        if len(processes("probe")) != 1:
            raise Failed(f"{len(processes('probe'))} sessions after the unlock")
        if len(self.machine.journal.lines(f"user={name}", "way=window", "outcome=granted")) != 2:
            raise Failed("the unlock was not asked for a second factor")
        self._on(":50")
        self._show("unlocked")

    def root_at_once(self):
        self._identify("root")
        self._session_of("root")
        if self._pages():
            raise Failed("a page was shown")

    def local_at_once(self):
        self._identify("lokal")
        self._session_of("lokal")

    def agent_dead(self):
        """Nobody is left in front of nothing: codes at the greeter's own prompt."""
        name = self.machine.person()
        os.kill(agents()[0], 9)
        wait_for("the agent's end", lambda: not agents())
        prompts = self._log().count("Prompt greeter")
        self._identify(name)
        self._log_has("Prompt greeter", prompts + 2)
        self._still(2)
        self._show("prompt")
        self._type(code())
        wait_for("the session", lambda: os.path.exists(f"{SESSIONS}/{name}"), 20)

    def x_server_gone(self):
        """The agent ends in order with its X server, and the next greeter brings it back."""
        ends_in_order(lambda: os.kill(processes("Xvfb")[0], 9))

    def _contained(self):
        """Whose the processes are, and that the page's is in a sandbox."""
        account = pwd.getpwnam("_quorl").pw_uid
        found = {}
        for name in ("QUORLLoginAgent", "WebKitNetworkProcess", "WebKitWebProcess"):
            pids = processes(name)
            if not pids:
                raise Failed(f"no {name}")
            for pid in pids:
                status = dict(line.split(":", 1) for line in text_of(f"/proc/{pid}/status").splitlines() if ":" in line)
                uids, capabilities = set(status["Uid"].split()), status["CapPrm"].strip()
                if uids != {str(account)}:
                    raise Failed(f"{name} runs as {uids}")
                if name == "QUORLLoginAgent" and (int(capabilities, 16) or status["NoNewPrivs"].strip() != "1"):
                    raise Failed(f"{name} has rights: {capabilities}")
                found[name] = (status["Seccomp"].strip(),
                               os.readlink(f"/proc/{pid}/ns/mnt") != os.readlink("/proc/self/ns/mnt"),
                               os.readlink(f"/proc/{pid}/ns/pid") != os.readlink("/proc/self/ns/pid"),
                               os.readlink(f"/proc/{pid}/ns/user") != os.readlink("/proc/self/ns/user"))
        if found["WebKitWebProcess"] != ("2", True, True, True):
            raise Failed(f"the page's process is in no sandbox: {found['WebKitWebProcess']}")
        return "page's process: _quorl, seccomp, name spaces of its own"

    def play(self, cases, stranger, lock, only=""):
        for name, case, *arguments in (
                ("lightdm: online", self.online),
                ("lightdm: first login enrolls", self.enrolls_at_the_login_screen, stranger),
                ("lightdm: wrong, then right", self.wrong_then_right),
                ("lightdm: wrong throughout", self.wrong_throughout),
                ("lightdm: cancelled, then another", self.cancelled),
                ("lightdm: server silent", self.server_silent),
                ("lightdm: locked out", self.locked_out, lock),
                ("lightdm: lock and unlock", self.lock_and_unlock),
                ("lightdm: root at once", self.root_at_once),
                ("lightdm: local account at once", self.local_at_once),
                ("lightdm: agent dead", self.agent_dead),
                ("lightdm: X server gone", self.x_server_gone),
                *display_cases(self)):
            if only not in name:
                continue

            def played(case=case, name=name, arguments=arguments):
                self._start(name.split(": ")[1])
                return case(*arguments)
            cases.play(name, played)
            if name in cases.failed:
                self._show("failed")
                run("cp", "/var/log/lightdm/lightdm.log", AGENT_LOG, self._shots, check=False)
            for file in glob.glob(f"{SESSIONS}/*"):
                os.unlink(file)
            self._stop()
