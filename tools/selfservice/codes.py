"""Signatures, one-time codes and encrypted values, as agent and server agree on them."""

import base64
import hashlib
import hmac
import subprocess
import time

# The fixed initialisation vector of every encrypted value.
IV = "5c1e0a7f3b92d4e6a18c07f2b4d96e31"


def signature(key, date, method, path):
    """What follows "Basic ID:" in the Authorization header."""
    digest = hmac.new(key.encode("ascii"), (date + method + path).encode("ascii"), hashlib.sha256)
    return base64.b64encode(digest.hexdigest().encode("ascii")).decode("ascii")


def sign_in_key(key, nonce, user, domain):
    """What a page hands over after a sign-in, so that its requester knows the request again."""
    message = "\n".join((nonce, user, domain)).encode()
    return hmac.new(key.encode("ascii"), message, hashlib.sha256).hexdigest()


def encrypt(text, key_hex):
    """Base64 of AES-256-CBC with PKCS#7 padding, by the openssl command."""
    result = subprocess.run(
        ["openssl", "enc", "-aes-256-cbc", "-K", key_hex, "-iv", IV, "-a", "-A"],
        input=text.encode(), capture_output=True, check=True)
    return result.stdout.decode("ascii").strip()


def one_time_code(secret, now=None, algorithm="SHA1", digits=6, step=30):
    """The time-based code (RFC 6238) of a base32 secret."""
    key = base64.b32decode(secret + "=" * (-len(secret) % 8))
    counter = int(time.time() if now is None else now) // step
    digest = hmac.new(key, counter.to_bytes(8, "big"), algorithm.lower()).digest()
    offset = digest[-1] & 15
    number = int.from_bytes(digest[offset:offset + 4], "big") & 0x7FFFFFFF
    return str(number % 10 ** digits).zfill(digits)


def code_matches(secret, typed, step=30, window=1):
    """Whether the typed code is the one of now or of a step beside it."""
    now = time.time()
    return any(hmac.compare_digest(one_time_code(secret, now + i * step, step=step), typed)
               for i in range(-window, window + 1))
