"""An unreliable network between zrhost and the collector."""

import http.client
import http.server
import random
import threading
import time
import urllib.parse


class BadNetwork:
    """A proxy on the loopback address. Unless honest, it may refuse, delay or repeat a request, cut the connection
    before or after the service has it, or send the response twice."""

    def __init__(self, seed):
        self.target = None  # the collector's address
        self.honest = False
        self.counts = {}
        self._random = random.Random(seed)
        self._lock = threading.Lock()
        network = self

        class Handler(http.server.BaseHTTPRequestHandler):
            protocol_version = "HTTP/1.1"

            def do_POST(self):
                network.take(self)

            def log_message(self, *_):
                pass

        self._server = http.server.ThreadingHTTPServer(("127.0.0.1", 0), Handler)
        self._server.daemon_threads = True
        self._server.handle_error = lambda *_: None  # a killed client
        threading.Thread(target=self._server.serve_forever, daemon=True).start()
        self.url = f"http://127.0.0.1:{self._server.server_port}"

    def _choose(self):
        if self.honest:
            return "passed"
        with self._lock:
            kinds = ("passed", "late", "refused", "cut before", "cut after", "delivered twice", "answered twice")
            kind = self._random.choices(kinds, (40, 15, 10, 8, 12, 8, 7))[0]
            self.counts[kind] = self.counts.get(kind, 0) + 1
            return kind

    def _forward(self, handler, body):
        connection = http.client.HTTPConnection(urllib.parse.urlsplit(self.target).netloc, timeout=30)
        try:
            connection.request("POST", handler.path, body, dict(handler.headers))
            answer = connection.getresponse()
            return answer.status, answer.read()
        finally:
            connection.close()

    def take(self, handler):
        body = handler.rfile.read(int(handler.headers["Content-Length"]))
        kind = self._choose()
        try:
            if kind == "cut before":
                handler.close_connection = True
                return
            if kind == "refused":
                status, answer = 503, b"{}"
            else:
                status, answer = self._forward(handler, body)
            if kind == "delivered twice":
                status, answer = self._forward(handler, body)
        except (OSError, http.client.HTTPException):  # the collector was killed
            status, answer = 502, b"{}"
        if kind == "late":
            time.sleep(0.02)
        if kind == "cut after":
            handler.close_connection = True
            return
        head = f"HTTP/1.1 {status} Answer\r\nContent-Type: application/json\r\nContent-Length: {len(answer)}\r\n\r\n"
        whole = head.encode() + answer
        handler.wfile.write(whole * 2 if kind == "answered twice" else whole)
        handler.close_connection = kind == "answered twice"
