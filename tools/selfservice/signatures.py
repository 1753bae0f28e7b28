"""Who signed a request, and sign-ins that are begun by a signed one."""

import email.utils
import hmac
import secrets
import threading
import time

from . import codes


class Signatures:
    """Judges the signature of a request. A date may be off by the skew."""

    def __init__(self, max_skew):
        self._max_skew = max_skew

    def fault_of(self, request, key, agent_id):
        """What is wrong with the request's signature, or None."""
        try:
            return self._fault_of(request, key, agent_id)
        except (ValueError, UnicodeError):
            return "headers that cannot be read"

    def _fault_of(self, request, key, agent_id):
        if request.method != "POST":
            return "only POST is served here"
        date = request.header("idm-date")
        parsed = email.utils.parsedate_to_datetime(date) if date else None
        if parsed is None or abs(parsed.timestamp() - time.time()) > self._max_skew:
            return "idm-date is missing or too far from the server's time"
        scheme, _, credentials = request.header("Authorization").partition(" ")
        given_id, _, given = credentials.partition(":")
        if scheme != "Basic" or given_id != agent_id:
            return "unknown agent"
        expected = codes.signature(key, date, request.method, request.path)
        if not hmac.compare_digest(expected.encode(), given.encode()):
            return "wrong signature"
        return None


class SignIns:
    """Sign-ins that pages were asked for, by an identifier that only the page knows. A nonce opens
    one of them, once."""

    def __init__(self, access_key, key_form):
        self._access_key = access_key
        self._key_form = key_form
        self._nonces = set()
        self._begun = {}
        self._first_key = None
        self._lock = threading.Lock()

    def begin(self, user, domain, nonce):
        """The sign-in's identifier; None when the nonce has been used."""
        identifier = secrets.token_hex(16)
        with self._lock:
            if nonce and nonce in self._nonces:
                return None
            self._nonces.add(nonce)
            self._begun[identifier] = (user, domain, nonce)
        return identifier

    def end(self, identifier):
        """The key with which the agent's side knows its own request again; any, without a nonce."""
        if self._key_form == "missing":
            return None
        with self._lock:
            user, domain, nonce = self._begun.pop(identifier, ("", "", ""))
            if not nonce or self._key_form == "wrong":
                nonce = secrets.token_hex(32)
            key = codes.sign_in_key(self._access_key, nonce, user, domain)
            self._first_key = self._first_key or key
            return self._first_key if self._key_form == "replayed" else key
