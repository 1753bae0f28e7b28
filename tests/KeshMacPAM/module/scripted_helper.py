#!/usr/bin/python3 -IS
"""Plays the helper of the PAM module; the user's name says what it does. Writes what it met to
the file "seen" beside itself."""
import os
import signal
import socket
import struct
import sys
import time

SILENT, OTHER_VERSION = 60, 99
ALIVE, SAY, ASK, REPLY, VERDICT = 2, 3, 4, 5, 6
GRANTED, DENIED, MAX_TRIES, IGNORE = 1, 2, 3, 4
TYPED, PASSWORD, NONE = 1, 2, 3


def packet(kind, body=b"", version=1):
    return b"KVP" + bytes([version, kind]) + body


def text(value):
    data = value.encode()
    return struct.pack("<H", len(data)) + data


def see(line):
    with open(os.path.join(os.path.dirname(os.path.abspath(__file__)), "seen"), "a") as seen:
        seen.write(line + "\n")


def start_fields(data):
    assert data[:5] == b"KVP\x01\x01", data[:5]
    at, fields = 5, {}
    for name in ("service", "user", "tty", "rhost", "language", "page"):
        (size,) = struct.unpack_from("<H", data, at)
        fields[name] = data[at + 2:at + 2 + size].decode()
        at += 2 + size
    fields["mode"], fields["key"], fields["echo"], fields["left"] = struct.unpack("<BBBI", data[at:])
    return fields


def facts(fields):
    for name, value in fields.items():
        see(f"{name}={value}")
    status = dict(line.split(":\t", 1) for line in open("/proc/self/status").read().splitlines()
                  if ":\t" in line)
    see("environment=" + ",".join(sorted(f"{k}={v}" for k, v in os.environ.items()
                                         if k not in ("LC_CTYPE",))))
    # Listing the folder opens one descriptor more; the script itself may be another.
    links = {int(fd): os.readlink(f"/proc/self/fd/{fd}") for fd in os.listdir("/proc/self/fd")
             if os.path.lexists(f"/proc/self/fd/{fd}")}
    see("descriptors=" + ",".join("socket" if v.startswith("socket:") else v
                                  for k, v in sorted(links.items()) if k <= 3))
    see("others=" + str(sum(v.startswith(("socket:", "pipe:", "anon_inode:"))
                            for k, v in links.items() if k > 3)))
    see("folder=" + os.getcwd())
    see(f"leader={os.getsid(0) == os.getpid()}")
    see("blocked=" + status["SigBlk"])
    see(f"ignored={[s for s in (signal.SIGCHLD, signal.SIGTERM, signal.SIGHUP, signal.SIGXFSZ) if int(status['SigIgn'], 16) >> (s - 1) & 1]}")


def main():
    channel = socket.socket(fileno=3)
    fields = start_fields(channel.recv(8192))
    user = fields["user"]
    see(f"pid={os.getpid()}")

    def verdict(value):
        channel.send(packet(VERDICT, bytes([value])))

    def ask(prompt, hidden=0):
        channel.send(packet(ASK, bytes([hidden]) + text(prompt)))
        reply = channel.recv(8192)
        see("reply=" + reply.hex())
        return reply[5] if reply else NONE, reply[8:].decode()

    odd_packets = {"garbage": os.urandom(200),
                   "long": packet(VERDICT, bytes([GRANTED])) + bytes(100 << 10),
                   "newer": packet(VERDICT, bytes([GRANTED]), OTHER_VERSION),
                   "odd": packet(VERDICT, bytes([GRANTED, 0])),
                   "fifth": packet(VERDICT, bytes([5]))}
    verdicts = {"granted": GRANTED, "denied": DENIED, "locked": MAX_TRIES, "ignored": IGNORE}
    if user in verdicts:
        verdict(verdicts[user])
    elif user == "facts":
        facts(fields)
        verdict(GRANTED)
    elif user == "codes":
        channel.send(packet(SAY, b"\0" + text("Telephone at hand?")))
        answer, typed = ask("Code from Phone: ")
        verdict(GRANTED if (answer, typed) == (TYPED, "123456") else DENIED)
    elif user == "worker":
        verdict(GRANTED)
        time.sleep(1)
        see("worked on")
    elif user == "killed":
        os.kill(os.getpid(), signal.SIGKILL)
    elif user == "mute":
        time.sleep(SILENT)
    elif user == "stopped":
        os.kill(os.getpid(), signal.SIGSTOP)
    elif user == "looping":
        while True:
            pass
    elif user == "alive":
        while True:
            channel.send(packet(ALIVE))
            time.sleep(0.5)
    elif user in odd_packets:
        channel.setsockopt(socket.SOL_SOCKET, socket.SO_SNDBUF, 1 << 18)
        channel.send(odd_packets[user])
        time.sleep(SILENT)
    elif user == "forever":
        # Watches its host, as the real one does.
        while channel.recv(8192):
            pass
        see("let go")
    else:
        sys.exit(0)


main()
