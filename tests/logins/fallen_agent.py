"""The agent's account in an attacker's hands: what it tries at policy, store, guard, locks and logs, and
that nobody's login is changed or slowed by it."""

import fcntl
import os
import pickle
import pwd
import signal
import subprocess
import time

from machine import CONFIG, SUPPORT, processes, run, wait_for
from terminal import Failed

RUNTIME = "/run/QUORLLoginAgent"
NAME = f"{RUNTIME}/com.tav.quorl.QUORLLoginAgent"
GUARD = "/var/lib/kesh/guard"
READABLE = [f"{SUPPORT}/{name}" for name in ("config.plist", "offline-data.json", "dekey.key")]
FORBIDDEN = READABLE + [
    f"{SUPPORT}/value.key", f"{SUPPORT}/VantorixClient.log", f"{SUPPORT}/offline-data.lock",
    f"{CONFIG}.lock", GUARD, f"{GUARD}/20000", "/run/kesh/breakglass", "/etc/security/pam_kesh.conf",
    "/etc/pam.d/common-auth", "/usr/libexec/quorl/kesh-verify", "/usr/libexec/quorl/quorl-greeter",
    "/run/quorl-greeter/authority", "/run/quorl-greeter/environment"]
SECRET = [GUARD, f"{SUPPORT}/VantorixClient.log", f"{SUPPORT}/offline-data.lock", "/etc/shadow"]


def lease(path):
    file = os.open(path, os.O_RDONLY)
    try:
        fcntl.fcntl(file, fcntl.F_SETLEASE, fcntl.F_WRLCK)
    finally:
        os.close(file)  # a lease that was had would stop the next attempt


def attempts_at(path):
    """Every way to change what has that name, or to put something else there."""
    aside = f"{SUPPORT}/agent/mine"
    return {
        "written": lambda: os.close(os.open(path, os.O_WRONLY)),
        "made": lambda: os.close(os.open(path, os.O_WRONLY | os.O_CREAT | os.O_EXCL)),
        "removed": lambda: os.rmdir(path) if os.path.isdir(path) else os.unlink(path),
        "moved": lambda: os.rename(path, aside),
        "put in place": lambda: (open(aside, "w", encoding="utf-8").close(), os.rename(aside, path)),
        "linked": lambda: os.symlink("/etc/shadow", path),
        "piped": lambda: os.mkfifo(path),
        "made a folder": lambda: os.mkdir(path),
        "opened to all": lambda: os.chmod(path, 0o666),
        "leased": lambda: lease(path),
    }


class FallenAgent:
    def __init__(self, machine, texts):
        self.machine = machine
        self._texts = texts
        self._account = pwd.getpwnam("_quorl")

    def _as_agent(self, action, stays=False):
        """Runs the action as the agent's account; gives its result, or the process when it stays."""
        read, written = os.pipe()
        pid = os.fork()
        if pid == 0:
            try:
                os.setgroups([])
                os.setgid(self._account.pw_gid)
                os.setuid(self._account.pw_uid)
                os.umask(0)
                result = action()
            except Exception as error:  # noqa: BLE001, told to who waits
                result = error
            os.write(written, pickle.dumps(result))
            os.close(written)
            if stays:
                signal.pause()
            os._exit(0)
        os.close(written)
        with os.fdopen(read, "rb") as file:
            result = pickle.loads(file.read())
        if isinstance(result, Exception):
            os.kill(pid, signal.SIGKILL)
            os.waitpid(pid, 0)
            raise result
        if stays:
            return pid
        os.waitpid(pid, 0)
        return result

    # A real agent on a display of its own, as a display manager starts it.

    def start_agent(self):
        subprocess.Popen(["Xvfb", ":60", "-screen", "0", "1024x768x24", "-nolisten", "tcp", "-auth", "/run/x60"],
                         stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
        run("xauth", "-f", "/run/x60", "add", ":60", ".", "00112233445566778899aabbccddeeff")
        wait_for("the X server", lambda: os.path.exists("/tmp/.X11-unix/X60"))
        subprocess.run(["/usr/libexec/quorl/quorl-greeter", "start"], check=True,
                       env={"DISPLAY": ":60", "XAUTHORITY": "/run/x60", "USER": "root", "PATH": os.environ["PATH"]})
        wait_for("the agent's socket", lambda: os.path.exists(NAME))

    def stop_agent(self):
        run("systemctl", "stop", "QUORLLoginAgent.service")
        for pid in processes("Xvfb"):
            os.kill(pid, signal.SIGTERM)

    # What is tried.

    def changes_nothing(self):
        def attack():
            done = []
            for path in FORBIDDEN + [f"{path}.{end}" for path in READABLE for end in ("part-XXXXXX", "unreadable")]:
                for what, attempt in attempts_at(path).items():
                    try:
                        attempt()
                        done.append(f"{path} {what}")
                    except OSError:
                        pass
            for path in SECRET:
                try:
                    os.listdir(path) if os.path.isdir(path) else os.close(os.open(path, os.O_RDONLY))
                    done.append(f"{path} read")
                except OSError:
                    pass
            return done
        done = self._as_agent(attack)
        if done:
            raise Failed(f"did what it must not: {done}")
        unread = self._as_agent(lambda: [path for path in READABLE if not os.access(path, os.R_OK)])
        if unread:
            raise Failed(f"the agent cannot read what it needs: {unread}")

    def holds_no_login_up(self):
        """It locks what it can open, in every way that a reader can."""
        def hold():
            for path in READABLE + [SUPPORT, RUNTIME, "/usr/libexec/quorl/kesh-verify", "/etc/security/pam_kesh.conf"]:
                try:
                    fcntl.flock(os.open(path, os.O_RDONLY), fcntl.LOCK_EX)
                except OSError:
                    pass
        holder = self._as_agent(hold, stays=True)
        try:
            for case, *arguments in ((self._texts.ssh_right,), (self._texts.passes_at_once, "root"),
                                     (self._texts.passes_at_once, "lokal")):
                began = time.monotonic()
                case(*arguments)
                if (took := time.monotonic() - began) > 6:
                    raise Failed(f"{case.__name__} took {took:.1f} s")
            run("keshctl", "offline", "reset", f"{self.machine.people[3]}@{self.machine.domain}")
        finally:
            os.kill(holder, signal.SIGKILL)
            os.waitpid(holder, 0)

    def reads_nothing_by_root(self):
        """Its own log is a link to what it may not read, and 50 MB long: root's tools open neither."""
        log = f"{SUPPORT}/agent/VantorixClient.log"
        def plant():
            if os.path.lexists(log):
                os.unlink(log)
            os.symlink("/etc/shadow", log)
            with open(f"{SUPPORT}/agent/filler", "wb") as file:
                file.write(b"x" * 50_000_000)
        self._as_agent(plant)
        try:
            done = subprocess.run(["keshctl", "report", "/root/report"], capture_output=True, timeout=60, check=False)
            with open("/etc/shadow", encoding="utf-8") as file:
                hashed = next(line.split(":")[1] for line in file if line.startswith("root:"))
            if os.path.exists("/root/report"):
                shown = subprocess.run("cat /root/report; tar -xaOf /root/report 2>/dev/null || true", shell=True,
                                       capture_output=True, check=False).stdout
                if hashed.encode() in shown or len(shown) > 20_000_000:
                    raise Failed("the report holds what the agent's log pointed to")
            elif done.returncode == 0:
                raise Failed("no report was written")
            self._texts.ssh_right()
        finally:
            self._as_agent(lambda: (os.unlink(log), os.unlink(f"{SUPPORT}/agent/filler")))

    def serves_root_alone(self):
        client = "/project/tests/support/raw_client.py"
        outcome = run("python3", client, NAME, "connect", str(self._account.pw_uid), check=False).strip()
        if "open" in outcome or "spoke" in outcome:
            raise Failed(f"the agent's own account is served: {outcome}")
        if "open" not in run("python3", client, NAME, "connect", "0", check=False):
            raise Failed("root is not served")

    def play(self, cases):
        self.machine.prepare_units()
        self.start_agent()
        cases.play("fallen agent: changes, plants and reads nothing", self.changes_nothing)
        cases.play("fallen agent: holds no login up", self.holds_no_login_up)
        cases.play("fallen agent: shows nothing through root's tools", self.reads_nothing_by_root)
        cases.play("fallen agent: root alone is served", self.serves_root_alone)
        self.stop_agent()
