"""A workstation in a throw-away root: packages installed, registered with a server of its own, the
second factor switched on, and accounts of every kind. Everything here runs inside that root."""

import base64
import crypt
import fcntl
import glob
import json
import os
import plistlib
import shutil
import signal
import socket
import struct
import subprocess
import sys
import threading
import time
from concurrent.futures import ThreadPoolExecutor

PROJECT = "/project"
SUPPORT = "/var/lib/QUORLLoginAgent"
CONFIG = f"{SUPPORT}/config.plist"
STORE_PROGRAM = f"{PROJECT}/tests/KeshMacPAM/offline_store.py"
PASSWORD = "Correct-Horse-7"
SECRET = "JBSWY3DPEHPK3PXPJBSWY3DPEHPK3PXP"
DOMAIN = "EXAMPLE.TEST"
VALUE_KEY = "6d61e11afe1eb951a8969a7aa524a71fe2f9218be0df0944b45c696c2b908bbd"
IV = "5c1e0a7f3b92d4e6a18c07f2b4d96e31"
PORT = 8443
FIRST_UID = 20000
PEOPLE = 64
POLICY = {"MFA_NO_OF_FACTORS": 1, "ENABLED_AUTHS": [3], "MANDATORY_AUTHS": [],
          "OFFLINE_MFA_LIMIT_TYPE": 2, "OFFLINE_MFA_LIMIT_VALUE": 50}


def run(*command, stdin=None, check=True):
    done = subprocess.run(command, input=stdin, stdout=subprocess.PIPE, stderr=subprocess.STDOUT,
                          text=True, check=False)
    if check and done.returncode:
        raise RuntimeError(f"{' '.join(command)} gave {done.returncode}: {done.stdout}")
    return done.stdout


def write(path, text, mode=0o644):
    os.makedirs(os.path.dirname(path), exist_ok=True)
    with open(path, "w", encoding="utf-8") as file:
        file.write(text)
    os.chmod(path, mode)


def text_of(path):
    try:
        with open(path, encoding="utf-8", errors="replace") as file:
            return file.read()
    except OSError:
        return ""


def wait_for(what, condition, seconds=20):
    end = time.monotonic() + seconds
    while not (value := condition()):
        if time.monotonic() > end:
            raise RuntimeError(f"waited in vain for {what}")
        time.sleep(0.02)
    return value


def code(offset=0):
    """The one-time code of now, by an independent program."""
    return run("oathtool", "--totp", "--base32", SECRET, "--now", f"@{int(time.time()) + offset}").strip()


def aes(data, key, *direction):
    return subprocess.run(["openssl", "enc", "-aes-256-cbc", *direction, "-K", key.hex(), "-iv", IV],
                          input=data, stdout=subprocess.PIPE, check=True).stdout


def processes(name):
    """Pids of the live processes of that name."""
    found = []
    for path in glob.glob("/proc/[0-9]*/stat"):
        try:
            with open(path, encoding="utf-8", errors="replace") as file:
                text = file.read()
        except OSError:
            continue
        if text[text.index("(") + 1:text.rindex(")")] == name[:15] and text[text.rindex(")") + 2] != "Z":
            found.append(int(path.split("/")[2]))
    return found


def agents():
    """Pids of the live agents; what one has forked and has not become its own program yet is none."""
    found = processes("QUORLLoginAgent")
    return [pid for pid in found
            if not any(f"\nPPid:\t{other}\n" in text_of(f"/proc/{pid}/status") for other in found)]


class Journal:
    """Stands where the journal takes its lines."""

    def __init__(self):
        self.text = ""
        if os.path.exists("/dev/log"):
            os.unlink("/dev/log")
        self._socket = socket.socket(socket.AF_UNIX, socket.SOCK_DGRAM)
        self._socket.bind("/dev/log")
        os.chmod("/dev/log", 0o666)
        threading.Thread(target=self._take, daemon=True).start()

    def _take(self):
        while True:
            line = self._socket.recv(65536).decode("utf-8", "replace")
            self.text += line.rstrip("\n\0") + "\n"

    def lines(self, *words):
        return [line for line in self.text.splitlines() if all(word in line for word in words)]

    def has(self, name, *words):
        wait_for(f"the journal's line of {name} with {words}", lambda: self.lines(f"user={name}", *words), 8)


class Machine:
    domain = DOMAIN

    def __init__(self):
        self._next = 0
        self._lock = threading.Lock()
        self.server = None

    # What every machine has.

    def bring_up(self):
        """The loopback, the journal, the accounts, the trust in the server's authority."""
        with socket.socket(socket.AF_INET, socket.SOCK_DGRAM) as control:
            fcntl.ioctl(control, 0x8914, struct.pack("16sh", b"lo", 0x1 | 0x40))  # SIOCSIFFLAGS
        self.journal = Journal()
        write("/etc/hosts", "127.0.0.1 localhost workstation\n")
        write("/etc/krb5.conf", f"[libdefaults]\n default_realm = {DOMAIN}\n")
        hashed = crypt.crypt(PASSWORD, crypt.mksalt(crypt.METHOD_SHA256, rounds=1000))
        # A directory's accounts: the name service knows them, the machine's own files do not.
        names = [f"dora{number}" for number in range(PEOPLE)]
        write("/var/lib/extrausers/passwd", "".join(
            f"{name}:x:{FIRST_UID + i}:{FIRST_UID}::/home/{name}:/bin/sh\n" for i, name in enumerate(names)))
        write("/var/lib/extrausers/shadow", "".join(f"{name}:{hashed}:19000:0:99999:7:::\n" for name in names), 0o600)
        write("/var/lib/extrausers/group", f"directory:x:{FIRST_UID}:\n")
        run("sed", "-i", "-E", r"s/^(passwd|group|shadow):.*/\1: files extrausers/", "/etc/nsswitch.conf")
        for i, name in enumerate(names):
            os.makedirs(f"/home/{name}", exist_ok=True)
            os.chown(f"/home/{name}", FIRST_UID + i, FIRST_UID)
        run("useradd", "-m", "-s", "/bin/sh", "-p", hashed, "lokal")
        run("usermod", "-p", hashed, "root")
        write("/etc/sudoers.d/logins", "%directory ALL=(ALL) ALL\nlokal ALL=(ALL) ALL\n", 0o440)
        self.people = names
        run(f"{PROJECT}/tools/make-test-certificates", "/etc/selfservice")
        shutil.copy("/etc/selfservice/ca.pem", "/usr/local/share/ca-certificates/organisation.crt")
        run("update-ca-certificates")

    def person(self):
        """An account that no other case uses."""
        with self._lock:
            self._next += 1
            return self.people[self._next - 1]

    def prepare_units(self):
        """What stands in the place of a service manager."""
        run("mount", "--bind", f"{PROJECT}/tests/logins/systemctl", "/usr/bin/systemctl")

    # The server.

    def start_server(self, *arguments):
        users = {f"{name}@{DOMAIN}": {"secret": SECRET, "policy": POLICY,
                                      "authenticators": {"3": {"name": "Phone", "secret": SECRET}}}
                 for name in self.people}
        write("/etc/selfservice/users.json", json.dumps(users))
        key = self.access_key() if os.path.exists(CONFIG) else ""
        arguments = (*arguments, "--value-key", self.value_key())
        with open("/var/log/selfservice.out", "w+", encoding="utf-8") as out:
            self.server = subprocess.Popen(
                ["python3", f"{PROJECT}/tools/selfservice-server", "--port", str(PORT),
                 "--cert", "/etc/selfservice/server.pem", "--key", "/etc/selfservice/server.key",
                 "--users", "/etc/selfservice/users.json", "--signed-pages",
                 "--state", "/var/log/selfservice.requests",
                 *(["--access-key", key] if key else []), *arguments], stdout=out, stderr=subprocess.STDOUT)
        wait_for("the server", lambda: "ready" in open("/var/log/selfservice.out", encoding="utf-8").read())

    def stop_server(self):
        self.server.send_signal(signal.SIGCONT)
        self.server.terminate()
        self.server.wait(10)

    def silence_server(self):
        """Connections are taken, and nothing is ever answered."""
        self.server.send_signal(signal.SIGSTOP)

    def wake_server(self):
        self.server.send_signal(signal.SIGCONT)

    # The packages.

    def install(self):
        packages = sorted(glob.glob(f"{PROJECT}/build/packages/*.deb"))
        if len(packages) != 3:
            raise RuntimeError(f"expected three packages in build/packages, found {packages}")
        return run("dpkg", "-i", *packages)

    def set_up(self):
        """Registers the machine as an administrator does."""
        write("/root/installation-key", "demo-installation-key\n", 0o600)
        run("keshctl", "setup", "--server", "localhost", "--port", str(PORT),
            "--installation-key-file", "/root/installation-key",
            "--set", "LOCALE_ID=en", "--set", "PRODTITLE=Second Factor")
        write("/etc/security/pam_kesh.conf",
              "services = lightdm sddm login sshd sudo su\nkey = signed\n")

    def enable(self):
        return run("keshctl", "enable", "--with-sshd")

    def value_key(self):
        return text_of(f"{SUPPORT}/value.key").strip() or VALUE_KEY

    def access_key(self):
        with open(CONFIG, "rb") as file:
            stored = plistlib.load(file).get("ACCESS_KEY", "")
        return aes(base64.b64decode(stored), bytes.fromhex(self.value_key()), "-d").decode() if stored else ""

    def enroll(self, *names):
        """Makes the offline store anew, with these people's records and nobody else's."""
        access_key = self.access_key()
        secret = base64.b64encode(aes(SECRET.encode(), bytes.fromhex(access_key))).decode()
        method = {"AUTH_DISPLAY_NAME": "Phone", "SECRET_KEY": secret, "ALGORITHM_TYPE": "SHA1",
                  "DIGITS": 6, "EXPIRY_TIME": 30, "AUTH_VARIANCE": 1}
        records = {f"{name}@{DOMAIN}": {
            "POLICY_DATA": POLICY, "LAST_SYNC_TIME": 1,
            "USER_DATA": {"SUCCESSFUL_OFFLINE_MFA_ATTEMPTS": 0, "LAST_ONLINE_MFA_TIME": 1,
                          "AUTH_ENROLLMENT": {"3": method}}} for name in names}
        run("python3", STORE_PROGRAM, "write", SUPPORT, access_key, stdin=json.dumps(records))
        for file in ("dekey.key", "offline-data.json"):
            shutil.chown(f"{SUPPORT}/{file}", "root", "_quorl")
            os.chmod(f"{SUPPORT}/{file}", 0o640)

    def record(self, name):
        """What the offline store holds of a person now; None when nothing."""
        records = json.loads(run("python3", STORE_PROGRAM, "read", SUPPORT, self.access_key()))
        return records.get(f"{name}@{DOMAIN}")

    def start_sshd(self):
        run("ssh-keygen", "-q", "-t", "ed25519", "-N", "", "-f", "/root/person-key")
        write("/etc/ssh/sshd_config.d/logins.conf",
              "PermitRootLogin yes\nMaxStartups 100\n"
              "AuthorizedKeysFile /etc/ssh/person-keys\n"
              f"Match LocalPort 2222\n AuthenticationMethods publickey,keyboard-interactive\n"
              f"Match LocalPort 2223\n KbdInteractiveAuthentication no\n")
        write("/etc/ssh/sshd_config.d/ports.conf", "Port 22\nPort 2222\nPort 2223\n")
        shutil.copy("/root/person-key.pub", "/etc/ssh/person-keys")
        run("/usr/sbin/sshd")


class Cases:
    """Runs cases, each bounded by its own waits, and prints one line for each."""

    def __init__(self):
        self.failed = []
        self._print = threading.Lock()

    def play(self, name, case, *arguments):
        began = time.monotonic()
        try:
            note = case(*arguments) or ""
            verdict = "ok    "
        except Exception as error:  # noqa: BLE001, a case fails by whatever it likes
            note, verdict = f"{type(error).__name__}: {error}", "FAILED"
        took = time.monotonic() - began
        with self._print:
            print(f"{verdict} {name} ({took:.1f} s){': ' + note if note else ''}", flush=True)
            if verdict == "FAILED":
                self.failed.append(name)

    def play_at_once(self, cases, workers=6):
        with ThreadPoolExecutor(workers) as pool:
            pool.map(lambda case: self.play(*case), cases)

    def end(self):
        if self.failed:
            print(f"{len(self.failed)} FAILED: {', '.join(self.failed)}", flush=True)
        sys.exit(1 if self.failed else 0)
