"""The commands of docs/rollout.md, played as the page has them."""

import re
import subprocess

from machine import PORT, PROJECT, write
from terminal import Failed

INSTALLATION_KEY = "demo-installation-key"
# What an organisation has in the place of the page's names.
PLACES = {"HOST": "localhost", "PORT": str(PORT)}


class RolloutPage:
    """Hands out each command once or more, and knows which were never asked for."""

    def __init__(self):
        with open(f"{PROJECT}/docs/rollout.md", encoding="utf-8") as file:
            page = file.read()
        self._left = [line[2:] for block in re.findall(r"```console\n(.*?)```", page, re.S)
                      for line in block.splitlines() if line.startswith("# ")]
        # What stands in the text, a sentence around it.
        text = re.sub(r"```.*?```", "", page, flags=re.S)
        self._left += [command for command in re.findall(r"`([^`]+)`", text)
                       if re.match(r"(keshctl \w+ --|update-ca-certificates)", command)]
        self._all = list(self._left)
        write("/usr/local/bin/some-secret-store", f"#!/bin/sh\necho {INSTALLATION_KEY}\n", 0o755)
        write("/root/installation.key", INSTALLATION_KEY + "\n", 0o600)

    def play(self, *words, status=0):
        """The page's first command not yet played that holds all the words, else one that was."""
        found = [command for command in self._left + self._all if all(word in command for word in words)]
        if not found:
            raise Failed(f"the page has no command with {words}")
        if found[0] in self._left:
            self._left.remove(found[0])
        command = re.sub(r"\b(HOST|PORT)\b", lambda name: PLACES[name[0]], found[0])
        done = subprocess.run(["sh", "-c", command], input=INSTALLATION_KEY + "\n", text=True, check=False,
                              stdout=subprocess.PIPE, stderr=subprocess.STDOUT,
                              cwd=f"{PROJECT}/build/packages")
        if done.returncode != status:
            raise Failed(f"{command} gave {done.returncode}: {done.stdout}")
        return done.stdout

    def all_played(self):
        if self._left:
            raise Failed(f"commands of the page that nobody played: {self._left}")
        return f"{len(self._all)} commands"


def doctors_marks(checks):
    """Numbers of doctor's checks by their mark."""
    marks = {}
    for check in checks:
        marks.setdefault(check["mark"], []).append(check["number"])
    return marks
