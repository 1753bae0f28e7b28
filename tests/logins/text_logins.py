"""Logins at sshd, sudo, su and login, as people and their terminals have them."""

import os
import pwd
import signal
import time

from machine import PASSWORD, code, processes, run, text_of, wait_for
from terminal import Failed, Terminal

PROMPT = r"Code from Phone[^:]*: "
PASSWORD_PROMPT = "assword[^:]*: "
WHO = 'echo "in as $(id -un)"'


def uid_of(name):
    return pwd.getpwnam(name).pw_uid


class TextLogins:
    def __init__(self, machine):
        self.machine = machine

    def ssh(self, name, port=22, methods="keyboard-interactive"):
        return Terminal("ssh", "-p", str(port), "-i", "/root/person-key",
                        "-o", "StrictHostKeyChecking=no", "-o", "UserKnownHostsFile=/dev/null",
                        "-o", "LogLevel=ERROR", "-o", "NumberOfPasswordPrompts=1",
                        "-o", f"PreferredAuthentications={methods}", f"{name}@127.0.0.1", WHO)

    def sudo(self, name, *options):
        return Terminal("sudo", "-k", *options, "sh", "-c", WHO, uid=uid_of(name))

    def su(self, name, by="lokal"):
        return Terminal("su", "-c", WHO, name, uid=uid_of(by))

    def doors(self, name):
        """Each program at a terminal that asks for a password itself."""
        return self.sudo(name), Terminal("login", name), self.su(name)

    def _in(self, terminal, name):
        terminal.expect(f"in as {name}")
        if terminal.ends() != 0:
            raise Failed(f"got in, and yet ended badly: {terminal.seen!r}")

    def _out(self, terminal, text):
        """Denied: a few last texts may want Return, and nothing of the session shows."""
        terminal.expect(text)
        if "Press Return" in terminal.seen:
            terminal.type("")
        status = terminal.ends()
        if status == 0 or "in as" in terminal.seen:
            raise Failed(f"got in with status {status}: {terminal.seen!r}")

    # What each door does, with the codes.

    def _right(self, terminal, name, *wrong):
        terminal.answer(PASSWORD_PROMPT, PASSWORD)
        for typed in (*wrong, code()):
            terminal.answer(PROMPT, typed)
        self._in(terminal, name)

    def ssh_right(self, *wrong):
        name = self.machine.person()
        with self.ssh(name) as terminal:
            self._right(terminal, name, *wrong)
        self.machine.journal.has(name, "service=sshd", "outcome=granted")

    def ssh_denied(self, name, text):
        with self.ssh(name) as terminal:
            terminal.answer(PASSWORD_PROMPT, PASSWORD)
            self._out(terminal, text)

    def ssh_wrong_password(self):
        with self.ssh(self.machine.person()) as terminal:
            terminal.answer(PASSWORD_PROMPT, "not the password")
            self._out(terminal, "denied")
            if "Code" in terminal.seen:
                raise Failed("a stranger was asked for a code")

    def ssh_key_and_code(self):
        name = self.machine.person()
        with self.ssh(name, 2222, "publickey,keyboard-interactive") as terminal:
            self._right(terminal, name)

    def ssh_method_password(self):
        name = self.machine.person()
        with self.ssh(name, 2223, "password") as terminal:
            terminal.answer(PASSWORD_PROMPT, PASSWORD)
            self._out(terminal, "denied")
        self.machine.journal.has(name, "outcome=denied")
        with self.ssh(name) as terminal:  # nothing was counted, nothing is locked
            self._right(terminal, name)

    def lock(self, name):
        """Ten wrong codes, over several connections."""
        wrong = 0
        while wrong < 10:
            with self.ssh(name) as terminal:
                terminal.answer(PASSWORD_PROMPT, PASSWORD)
                while wrong < 10 and "Code" in terminal.expect(f"{PROMPT}|Press Return")[0]:
                    terminal.type("000000")
                    wrong += 1
                if wrong == 10:
                    terminal.expect("Too many wrong codes. Try again in [0-9]+ min")

    def ssh_locked_at_the_tenth(self):
        name = self.machine.person()
        self.lock(name)
        self.ssh_denied(name, "Try again in [0-9]+ min")
        self.machine.journal.has(name, "locked after wrong codes")

    def ssh_used_code(self):
        name, present = self.machine.person(), code()
        for first in (True, False):
            with self.ssh(name) as terminal:
                terminal.answer(PASSWORD_PROMPT, PASSWORD)
                terminal.answer(PROMPT, present)
                if first:
                    self._in(terminal, name)
                else:
                    terminal.expect("used already")

    def passes_at_once(self, name):
        with self.ssh(name) as terminal:
            terminal.answer(PASSWORD_PROMPT, PASSWORD)
            self._in(terminal, name)
            if "Code" in terminal.seen:
                raise Failed("was asked for a code")

    def sudo_right(self, *wrong):
        with self.sudo(self.machine.person()) as terminal:
            self._right(terminal, "root", *wrong)

    def sudo_wrong_throughout(self):
        """sudo shows no texts of modules but prompts, so the reason is one."""
        with self.sudo(self.machine.person()) as terminal:
            terminal.answer(PASSWORD_PROMPT, PASSWORD)
            for _ in range(3):
                terminal.answer(PROMPT, "000000")
            terminal.answer("Too many wrong answers", "")
            terminal.expect("Sorry|incorrect")

    def sudo_password_for_a_code(self):
        name = self.machine.person()
        with self.sudo(name, "-p", "Secret: ") as terminal:
            for _ in range(2):  # sudo puts its own prompt in the place of ours, too
                terminal.answer("Secret: ", PASSWORD)
            terminal.answer("Secret: ", "")
            terminal.expect("Sorry|incorrect")
        self.machine.journal.has(name, "the password was given in the place of a code")
        if PASSWORD in self.machine.journal.text or PASSWORD in terminal.seen:
            raise Failed("the password stands in the journal or on the screen")

    def su_right(self):
        name = self.machine.person()
        with self.su(name) as terminal:
            self._right(terminal, name)

    def su_to_root(self):
        with self.su("root", by=self.machine.person()) as terminal:
            terminal.answer(PASSWORD_PROMPT, PASSWORD)
            self._in(terminal, "root")

    def su_starved(self):
        """Whoever calls su sets its limits; none of them gets anybody in without a code."""
        name = self.machine.person()
        for limit in ("-v 60000", "-n 8", "-f 0", "-u 1"):
            command = f"ulimit {limit}; exec su -c '{WHO}' {name}"
            with Terminal("sh", "-c", command, uid=uid_of("lokal")) as terminal:
                try:
                    terminal.answer(PASSWORD_PROMPT, PASSWORD, 5)
                    terminal.expect(PROMPT, 8)
                except Failed:
                    pass
                if "in as" in terminal.seen:
                    raise Failed(f"in with ulimit {limit}: {terminal.seen!r}")

    def login_right(self):
        name = self.machine.person()
        with Terminal("login", name) as terminal:
            terminal.answer(PASSWORD_PROMPT, PASSWORD)
            terminal.answer(PROMPT, code())
            terminal.answer(r"\$ ", WHO)
            terminal.expect(f"in as {name}")

    def login_root(self):
        with Terminal("login", "root") as terminal:
            terminal.answer(PASSWORD_PROMPT, PASSWORD)
            terminal.expect("# ")

    # Cancelled: one at a time, since the helper that ends must be this one's.

    def _cancelled(self, terminal, cancel):
        wait_for("earlier helpers' end", lambda: not processes("kesh-verify"), 65)
        with terminal:
            terminal.answer(PASSWORD_PROMPT, PASSWORD)
            terminal.expect(PROMPT)
            if len(processes("kesh-verify")) != 1:
                raise Failed("no helper runs at the prompt")
            cancel(terminal)
            began = time.monotonic()
            wait_for("the helper's end", lambda: not processes("kesh-verify"), 3)
            took = time.monotonic() - began
        if took > 1:
            raise Failed(f"the helper ended after {took:.1f} s only")
        return f"helper gone after {took * 1000:.0f} ms"

    @staticmethod
    def _interrupt(terminal):
        """Once the program reads: between its prompt and that a signal goes unnoticed."""
        wait_for("the program's reading",
                 lambda: text_of(f"/proc/{terminal.pid}/stat").rpartition(") ")[2].startswith("S"), 5)
        terminal.press("c")

    def ssh_cut(self):
        return self._cancelled(self.ssh(self.machine.person()), Terminal.hang_up)

    def sudo_interrupted(self):
        return self._cancelled(self.sudo(self.machine.person()), self._interrupt)

    def su_interrupted(self):
        return self._cancelled(self.su(self.machine.person()), self._interrupt)

    def login_hung_up(self):
        return self._cancelled(Terminal("login", self.machine.person()), Terminal.hang_up)

    def killed(self):
        """The login programs themselves are killed at the prompt."""
        for terminal in self.doors(self.machine.person()):
            note = self._cancelled(terminal, lambda t: os.kill(t.pid, 9))
        return note

    def helper_stopped(self):
        """The code is typed, and the helper, stopped, takes it no more."""
        wait_for("earlier helpers' end", lambda: not processes("kesh-verify"), 65)
        with self.sudo(self.machine.person()) as terminal:
            terminal.answer(PASSWORD_PROMPT, PASSWORD)
            terminal.expect(PROMPT)
            os.kill(processes("kesh-verify")[0], signal.SIGSTOP)
            began = time.monotonic()
            terminal.type(code())
            terminal.expect("Press Return")
            took = time.monotonic() - began
            wait_for("the helper's end", lambda: not processes("kesh-verify"), 1)
            terminal.type("")
            terminal.expect("Sorry|incorrect")
        if took > 11:
            raise Failed(f"told after {took:.1f} s only")
        return f"told after {took:.1f} s"

    def var_read_only(self):
        run("mount", "--bind", "/var", "/var")
        run("mount", "-o", "remount,bind,ro", "/var")
        try:
            self.ssh_denied(self.machine.person(), "cannot be recorded")
            self.passes_at_once("root")
        finally:
            run("umount", "--lazy", "/var")

    def nothing_left(self):
        """No zombie of ours, no lock that a cancelled login left."""
        zombies = run("sh", "-c", "ps -eo state,comm | grep '^Z.*kesh-verify' || true")
        if zombies:
            raise Failed(f"zombies: {zombies}")
        self.ssh_right()

    # Without the server.

    def prompt_without_server(self, limit):
        name = self.machine.person()
        with self.ssh(name) as terminal:
            terminal.expect(PASSWORD_PROMPT)
            began = time.monotonic()
            terminal.type(PASSWORD)
            terminal.expect(PROMPT)
            took = time.monotonic() - began
            terminal.type(code())
            self._in(terminal, name)
        if took > limit:
            raise Failed(f"prompt after {took:.1f} s")
        return f"prompt after {took:.1f} s"

    def silent_at_terminals(self, stranger):
        """Each door gives the reason as it can, as soon as the server has had its time."""
        for terminal in self.doors(stranger):
            with terminal:
                terminal.expect(PASSWORD_PROMPT)
                began = time.monotonic()
                terminal.type(PASSWORD)
                terminal.expect("Could not connect")
                took = time.monotonic() - began
                if "Press Return" in terminal.seen:
                    terminal.type("")
                terminal.expect("Sorry|incorrect|failure")
            if took > 4:
                raise Failed(f"the reason came after {took:.1f} s")

    # All of them.

    def play(self, cases, stranger):
        machine = self.machine
        cases.play_at_once([
            ("ssh: right code", self.ssh_right),
            ("ssh: wrong, then right", self.ssh_right, "000000"),
            ("ssh: wrong password, no code asked", self.ssh_wrong_password),
            ("ssh: public key and code", self.ssh_key_and_code),
            ("ssh: method password is denied, not counted", self.ssh_method_password),
            ("ssh: locked at the tenth wrong code", self.ssh_locked_at_the_tenth),
            ("ssh: a code twice", self.ssh_used_code),
            ("ssh: not enrolled", self.ssh_denied, stranger, "Sign in once at the login screen"),
            ("ssh: root at once", self.passes_at_once, "root"),
            ("ssh: local account at once", self.passes_at_once, "lokal"),
            ("sudo: right code", self.sudo_right),
            ("sudo: wrong, then right", self.sudo_right, "000000"),
            ("sudo: wrong throughout", self.sudo_wrong_throughout),
            ("sudo: the password in a code's place", self.sudo_password_for_a_code),
            ("su: right code", self.su_right),
            ("su: to root at once", self.su_to_root),
            ("su: starved by its caller", self.su_starved),
            ("login: right code", self.login_right),
            ("login: root at once", self.login_root),
        ])
        cases.play("ssh: cut at the prompt", self.ssh_cut)
        cases.play("sudo: Ctrl-C at the prompt", self.sudo_interrupted)
        cases.play("su: Ctrl-C at the prompt", self.su_interrupted)
        cases.play("login: line cut at the prompt", self.login_hung_up)
        cases.play("sudo, login, su: killed at the prompt", self.killed)
        cases.play("sudo: helper stopped", self.helper_stopped)
        cases.play("ssh: /var read-only", self.var_read_only)
        cases.play("nothing left by cancelled logins", self.nothing_left)
        machine.silence_server()
        cases.play_at_once([
            ("ssh: server silent", self.prompt_without_server, 4.0),
            ("ssh: server silent, not enrolled", self.ssh_denied, stranger, "Could not connect"),
            ("sudo, login, su: server silent, not enrolled", self.silent_at_terminals, stranger),
            ("sudo: server silent", self.sudo_right),
            ("su: server silent", self.su_right),
            ("login: server silent", self.login_right),
            ("ssh: server silent, root at once", self.passes_at_once, "root")])
        machine.stop_server()
        cases.play("ssh: server refuses", self.prompt_without_server, 1.5)
        machine.start_server()
