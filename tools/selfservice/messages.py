"""Requests and replies as the endpoints see them, and the journal of requests."""

import base64
import json
import threading
import time
import urllib.parse
from dataclasses import dataclass, field


@dataclass
class Request:
    method: str
    path: str  # without the context path and the query
    target: str  # as it stood on the request line
    query: dict
    headers: list  # of (name, value), in order
    body: bytes

    def header(self, name):
        """The header's value, or "" when it is not there."""
        for key, value in self.headers:
            if key.lower() == name.lower():
                return value
        return ""

    def form(self):
        """The fields of a form body, the first value of each."""
        fields = urllib.parse.parse_qs(self.body.decode("utf-8", "replace"), True)
        return {key: values[0] for key, values in fields.items()}


@dataclass
class Reply:
    body: bytes = b""
    content_type: str = "text/html; charset=utf-8"
    status: int = 200
    headers: list = field(default_factory=list)


def json_reply(value, status=200):
    return Reply(json.dumps(value).encode(), "application/json;charset=UTF-8", status)


def redirect(location, status=302):
    return Reply(b"", "text/plain", status, [("Location", location)])


class Journal:
    """Writes every request as one JSON line, before it is answered."""

    def __init__(self, path):
        self._path = path
        self._lock = threading.Lock()
        if path:
            open(path, "w", encoding="utf-8").close()

    def note(self, request):
        if not self._path:
            return
        line = json.dumps({
            "time": time.time(),
            "method": request.method,
            "target": request.target,
            "path": request.path,
            "headers": request.headers,
            "body": request.body.decode("utf-8", "replace"),
            "body_base64": base64.b64encode(request.body).decode("ascii"),
        })
        with self._lock, open(self._path, "a", encoding="utf-8") as file:
            file.write(line + "\n")
