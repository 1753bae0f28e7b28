#!/usr/bin/env python3
"""Reads and writes the offline data files independently of the agent.

offline_store.py read FOLDER ACCESS_KEY          prints the data file's JSON
offline_store.py write FOLDER ACCESS_KEY < JSON  makes both files
"""
import base64
import hashlib
import json
import subprocess
import sys

IV = "5c1e0a7f3b92d4e6a18c07f2b4d96e31"


def aes(data, key, *direction):
    command = ["openssl", "enc", "-aes-256-cbc", *direction, "-K", key.hex(), "-iv", IV]
    return subprocess.run(command, input=data, stdout=subprocess.PIPE, check=True).stdout


def main():
    mode, folder, access_key = sys.argv[1:]
    derived = hashlib.pbkdf2_hmac("sha256", access_key.encode(), b"", 10000, 32)
    file_key = base64.b64encode(derived)[:32]
    if mode == "read":
        with open(folder + "/dekey.key", "rb") as file:
            dek = json.loads(aes(file.read(), file_key, "-d"))["DATA_ENCRYPTION_KEY"]
        assert len(base64.b64decode(dek)) == 32
        with open(folder + "/offline-data.json", "rb") as file:
            sys.stdout.buffer.write(aes(file.read(), dek.encode()[:32], "-d"))
        return
    # With an escape and blanks, as another writer of JSON may put them.
    dek = base64.b64encode(bytes(range(235, 256)) + b"/" * 11).decode()
    text = '{ "DATA_ENCRYPTION_KEY" : "%s" }' % dek.replace("/", "\\/")
    with open(folder + "/dekey.key", "wb") as file:
        file.write(aes(text.encode(), file_key))
    with open(folder + "/offline-data.json", "wb") as file:
        file.write(aes(sys.stdin.buffer.read(), dek.encode()[:32]))


if __name__ == "__main__":
    main()
