"""The HTTPS service: connections, threads, and the way from a request to its reply."""

import http.server
import socket
import ssl
import threading
import urllib.parse

from .messages import Reply, Request

# Larger than any test's body; a request that announces more is refused.
MAX_BODY = 32 * 1024 * 1024


class Handler(http.server.BaseHTTPRequestHandler):
    protocol_version = "HTTP/1.1"
    server_version = "selfservice"
    sys_version = ""

    def setup(self):
        # Here, on the connection's own thread: a peer that stalls its handshake stalls nobody.
        if self.server.silent_handshake:
            self.request.recv(1 << 16)
            threading.Event().wait()
        self.request.settimeout(30)
        self.request.do_handshake()
        self.request.settimeout(None)
        super().setup()

    def read_body(self):
        length = self.headers.get("Content-Length", "0")
        if not length.isdigit() or int(length) > MAX_BODY:
            return None
        return self.rfile.read(int(length))

    def serve(self):
        body = self.read_body()
        if body is None:
            self.send_error(413)
            return
        target = urllib.parse.urlsplit(self.path)
        path = urllib.parse.unquote(target.path)
        if path.startswith(self.server.context_path):
            path = path[len(self.server.context_path):]
        request = Request(self.command, path, self.path,
                          dict(urllib.parse.parse_qsl(target.query, True)),
                          list(self.headers.items()), body)
        self.server.journal.note(request)
        reply = self.reply_to(request)
        if reply is None:
            self.close_connection = True
            return
        self.send_response(reply.status)
        self.send_header("Content-Type", reply.content_type)
        self.send_header("Content-Length", str(len(reply.body)))
        for name, value in reply.headers:
            self.send_header(name, value)
        self.end_headers()
        self.wfile.write(reply.body)

    def reply_to(self, request):
        for prefix, fault in self.server.faults:
            if request.path.startswith(prefix):
                return fault(self.connection, request)
        endpoint = self.server.routes.get(request.path)
        if endpoint is None:
            return Reply(b"<!doctype html><title>Not found</title><p>No such page.</p>", status=404)
        return endpoint(request)

    do_GET = do_POST = do_PUT = do_DELETE = do_OPTIONS = serve

    def log_message(self, format, *args):
        if self.server.verbose:
            super().log_message(format, *args)


class Service(http.server.ThreadingHTTPServer):
    """Serves the routes over TLS; faults are (path prefix, function) and come first."""

    daemon_threads = True
    block_on_close = False
    request_queue_size = 64

    def __init__(self, address, certificate, key, routes, faults, journal, options):
        self.routes = routes
        self.faults = faults
        self.journal = journal
        self.context_path = options.context_path
        self.silent_handshake = options.silent_handshake
        self.verbose = options.verbose
        self._context = ssl.SSLContext(ssl.PROTOCOL_TLS_SERVER)
        self._context.load_cert_chain(certificate, key)
        super().__init__(address, Handler)

    def server_bind(self):
        # Without the look-up of the host's name that the base class makes.
        self.socket.setsockopt(socket.SOL_SOCKET, socket.SO_REUSEADDR, 1)
        self.socket.bind(self.server_address)
        self.server_name, self.server_port = self.socket.getsockname()[:2]

    def get_request(self):
        connection, peer = self.socket.accept()
        connection.setsockopt(socket.IPPROTO_TCP, socket.TCP_NODELAY, 1)
        return self._context.wrap_socket(connection, server_side=True,
                                         do_handshake_on_connect=False), peer

    def handle_error(self, request, client_address):
        # Peers that hang up or refuse the certificate are what tests do all day.
        if self.verbose:
            super().handle_error(request, client_address)
