#!/usr/bin/env python3
"""Counts where a text lies in the memory of a process and of those below it: one line a process
that holds it, name and count. The text comes on standard input, so that it is in no command line.
usage: memory_search.py PID"""

import os
import pathlib
import re
import sys

PAGE = os.sysconf("SC_PAGE_SIZE")


def below(root):
    """The process and its descendants."""
    parents = {}
    for folder in pathlib.Path("/proc").glob("[0-9]*"):
        try:
            fields = (folder / "stat").read_text().rpartition(")")[2].split()
            parents[int(folder.name)] = int(fields[1])
        except OSError:
            continue
    found = [root]
    for pid in found:
        found += [child for child, parent in parents.items() if parent == pid]
    return found


def pages(pid, start, end):
    """The spans of the region that really are in memory: an engine's heap reserves many times
    that."""
    with open(f"/proc/{pid}/pagemap", "rb") as table:
        table.seek(start // PAGE * 8)
        flags = table.read((end - start) // PAGE * 8)[7::8]
    return [(start + run.start() * PAGE, start + run.end() * PAGE)
            for run in re.finditer(rb"[\x40-\xff]+", flags, re.DOTALL)]


def regions(pid):
    """What the process may write to and has written to."""
    with open(f"/proc/{pid}/smaps") as smaps:
        for line in smaps:
            fields = line.split()
            if "-" in fields[0] and fields[1].startswith("rw"):
                span = tuple(int(part, 16) for part in fields[0].split("-"))
            elif "-" in fields[0]:
                span = None
            elif fields[0] == "Rss:" and fields[1] != "0" and span:
                yield span


def count(pid, forms):
    """How often one of the byte strings lies there."""
    total = 0
    with open(f"/proc/{pid}/mem", "rb", 0) as memory:
        for start, end in (run for region in regions(pid) for run in pages(pid, *region)):
            try:
                memory.seek(start)
                content = memory.read(end - start)
            except OSError:
                continue
            total += sum(content.count(form) for form in forms)
    return total


text = sys.stdin.read().strip()
for process in below(int(sys.argv[1])):
    try:
        copies = count(process, (text.encode(), text.encode("utf-16-le")))
        if copies:
            print(pathlib.Path(f"/proc/{process}/comm").read_text().strip(), copies)
    except OSError:
        continue
