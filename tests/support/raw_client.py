#!/usr/bin/env python3
"""A client of the local channel that shares no code with the agent.

raw_client.py SOCKET request HEX   sends the bytes as a request, prints "ID HEX" of the answer
raw_client.py SOCKET violations    breaks the rules one by one, prints "NAME OUTCOME" for each
raw_client.py SOCKET connect UID   connects as that user, prints the OUTCOME

OUTCOME: "closed" when the service closed the connection, "open" when it did not within a second.
"""
import os
import socket
import struct
import sys
import tempfile

MAGIC = b"\x51\x4b\x4d\x31"


def packet(msgid, components):
    head = MAGIC + struct.pack("<III", msgid, len(components), 0)
    return head + b"".join(struct.pack("<I", len(c)) + c for c in components)


def connect(path):
    connection = socket.socket(socket.AF_UNIX, socket.SOCK_SEQPACKET)
    connection.connect(path)
    return connection


def outcome(connection):
    connection.settimeout(1)
    try:
        return "closed" if connection.recv(1) == b"" else "spoke"
    except ConnectionResetError:
        return "closed"
    except TimeoutError:
        return "open"


def request(path, body):
    connection = connect(path)
    mine, theirs = socket.socketpair(socket.AF_UNIX, socket.SOCK_SEQPACKET)
    socket.send_fds(connection, [packet(8888, [body])], [theirs.fileno()])
    theirs.close()
    mine.settimeout(10)
    answer = mine.recv(131072)
    msgid, count, _, length = struct.unpack("<IIII", answer[4:20])
    assert answer[:4] == MAGIC and count == 1 and len(answer) == 20 + length, answer
    return f"{msgid} {answer[20:].hex()}"


def violations(path):
    good = packet(8888, [b"body"])
    listening = socket.socket(socket.AF_UNIX, socket.SOCK_SEQPACKET)
    listening.bind("")
    listening.listen()
    pairs = [socket.socketpair(socket.AF_UNIX, socket.SOCK_SEQPACKET) for _ in range(3)]
    streams = socket.socketpair(socket.AF_UNIX, socket.SOCK_STREAM)
    unconnected = socket.socket(socket.AF_UNIX, socket.SOCK_SEQPACKET)
    file = tempfile.TemporaryFile()
    cases = {
        "empty": (b"", []),
        "too-long": (packet(8888, [b"x" * (131072 - 20 + 1)]), []),
        "two-descriptors": (good, [pairs[0][0], pairs[0][1]]),
        "many-descriptors": (good, [s for p in pairs for s in p]),
        "file": (good, [file]),
        "stream-socket": (good, [streams[0]]),
        "listening-socket": (good, [listening]),
        "unconnected-socket": (good, [unconnected]),
        "bad-packet-with-port": (good[:-1], [pairs[0][0]]),
    }
    for name, (data, descriptors) in cases.items():
        connection = connect(path)
        if descriptors:
            socket.send_fds(connection, [data], [d.fileno() for d in descriptors])
        else:
            connection.send(data)
        print(name, outcome(connection))


def main():
    path, what = sys.argv[1:3]
    if what == "request":
        print(request(path, bytes.fromhex(sys.argv[3])))
    elif what == "violations":
        violations(path)
    elif what == "connect":
        os.setuid(int(sys.argv[3]))
        print(outcome(connect(path)))
    else:
        sys.exit(__doc__)


main()
