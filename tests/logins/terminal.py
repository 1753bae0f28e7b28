"""A program at a terminal of its own, as a person has it in front of them."""

import os
import pty
import re
import select
import signal
import time


class Failed(Exception):
    """What a case saw in the place of what it expects."""


class Terminal:
    """Runs the command; as another account when a uid is given."""

    def __init__(self, *command, uid=None):
        self.seen = ""
        self._from = 0
        self.pid, self._screen = pty.fork()
        if self.pid == 0:
            try:
                if uid is not None:
                    os.fchown(0, uid, 5)
                    os.setgroups([])
                    os.setgid(uid)
                    os.setuid(uid)
                os.execvp(command[0], command)
            finally:
                os._exit(127)

    def __enter__(self):
        return self

    def __exit__(self, *_):
        self.hang_up()

    def _read(self, until):
        left = max(0, until - time.monotonic())
        if not select.select([self._screen], [], [], left)[0]:
            return False
        try:
            data = os.read(self._screen, 65536)
        except OSError:
            # Nobody has the other end open: login leaves it so for a moment, others for good.
            time.sleep(min(left, 0.05))
            return time.monotonic() < until
        self.seen += data.decode("utf-8", "replace").replace("\r", "")
        return bool(data)

    def expect(self, pattern, seconds=20):
        """Waits for the pattern after what was found last; gives the match."""
        end = time.monotonic() + seconds
        while True:
            found = re.search(pattern, self.seen[self._from:])
            if found:
                self._from += found.end()
                return found
            if not self._read(end):
                raise Failed(f"expected {pattern!r} within {seconds} s, saw {self.seen!r}")

    def type(self, text):
        os.write(self._screen, text.encode() + b"\n")

    def answer(self, pattern, text, seconds=20):
        """Waits for the question and types the text."""
        self.expect(pattern, seconds)
        self.type(text)

    def press(self, key):
        """A control key, by its letter."""
        os.write(self._screen, bytes([ord(key) & 0x1F]))

    def ends(self, seconds=20):
        """Waits for the program's end; gives its exit status, negative for a signal."""
        end = time.monotonic() + seconds
        while self.pid:
            pid, status = os.waitpid(self.pid, os.WNOHANG)
            if pid:
                self.pid = 0
                self._read(time.monotonic() + 0.1)
                return os.waitstatus_to_exitcode(status)
            if time.monotonic() > end:
                raise Failed(f"has not ended within {seconds} s, saw {self.seen!r}")
            if not self._read(min(end, time.monotonic() + 0.1)):
                time.sleep(0.02)
        return None

    def hang_up(self):
        """Ends the program as a cut line does."""
        if self._screen >= 0:
            os.close(self._screen)
            self._screen = -1
        if self.pid:
            try:
                os.kill(self.pid, signal.SIGKILL)
                os.waitpid(self.pid, 0)
            except (ProcessLookupError, ChildProcessError):
                pass
            self.pid = 0
