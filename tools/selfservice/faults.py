"""Replies of a server that misbehaves. Each takes the connection and the request, and either
writes to the connection itself and returns None, or returns a reply."""

import threading
import time

from .messages import Reply, json_reply

HEAD = b"HTTP/1.1 200 OK\r\nContent-Type: %s\r\nContent-Length: %d\r\n\r\n"


def silent(connection, _request):
    """The request is read and never answered; the connection stays open."""
    del connection
    threading.Event().wait()


def cut_body(connection, _request):
    """The connection ends in the middle of the announced body."""
    connection.sendall(HEAD % (b"application/json", 1000) + b'{"result": "succ')


def cut_headers(connection, _request):
    """The connection ends in the middle of the reply's headers."""
    connection.sendall(b"HTTP/1.1 200 OK\r\nContent-Ty")


def no_reply(_connection, _request):
    """The connection ends without an answer."""


def empty_body(_connection, _request):
    """200 without a body."""
    return Reply(b"", "application/json")


def broken_json(_connection, _request):
    """JSON that does not parse."""
    return Reply(b'{"result": "success", ', "application/json")


def bad_text(_connection, _request):
    """Text that is not UTF-8."""
    return Reply(b"caf\xe9 \xff\xfe", "text/plain; charset=utf-8")


def huge_body(connection, _request):
    """A body that never ends."""
    connection.sendall(b"HTTP/1.1 200 OK\r\nContent-Type: text/plain\r\n\r\n")
    while True:
        connection.sendall(b"x" * 65536)


def drip(connection, _request):
    """A good body of three bytes, one every eight seconds."""
    connection.sendall(HEAD % (b"text/plain", 3))
    for byte in (b"o", b"n", b"e"):
        time.sleep(8)
        connection.sendall(byte)


def endless_drip(connection, _request):
    """A body that never ends, a byte a second."""
    connection.sendall(b"HTTP/1.1 200 OK\r\nContent-Type: text/plain\r\n\r\n")
    while True:
        connection.sendall(b"x")
        time.sleep(1)


def endless_trailers(connection, _request):
    """A good body, and trailers that never end."""
    connection.sendall(b"HTTP/1.1 200 OK\r\nContent-Type: text/plain\r\n"
                       b"Transfer-Encoding: chunked\r\n\r\n2\r\nok\r\n0\r\n")
    while True:
        connection.sendall(b"X-Trailer: " + b"y" * 1000 + b"\r\n")


def failure(_connection, _request):
    """A well-formed refusal."""
    return json_reply({"result": "failure"})


FAULTS = {function.__name__.replace("_", "-"): function for function in (
    silent, cut_body, cut_headers, no_reply, empty_body, broken_json, bad_text, huge_body, drip,
    endless_drip, endless_trailers, failure)}


def text_error(status):
    """An error page of the given status, as text."""
    page = f"<!doctype html><title>Error {status}</title><p>The server reports error {status}.</p>"
    return lambda _connection, _request: Reply(page.encode(), status=status)


def raw(path):
    """The bytes of a file, status line and all; then the connection ends."""
    def send(connection, _request):
        with open(path, "rb") as file:
            connection.sendall(file.read())
    return send


def body_of(path, content_type):
    """The bytes of a file as the body of a good reply."""
    def reply(_connection, _request):
        with open(path, "rb") as file:
            return Reply(file.read(), content_type)
    return reply
