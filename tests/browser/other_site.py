"""A web site of somebody else's: one empty page, and an address that redirects with the method."""
import threading
from http.server import BaseHTTPRequestHandler, ThreadingHTTPServer

REDIRECT = "/redirect/"  # to whatever stands behind it


class Site(BaseHTTPRequestHandler):
    def answer(self):
        self.rfile.read(int(self.headers.get("Content-Length") or 0))
        if self.path.startswith(REDIRECT):
            self.send_response(307)
            self.send_header("Location", self.path.removeprefix(REDIRECT))
        else:
            self.send_response(200)
            self.send_header("Content-Type", "text/html")
        self.send_header("Content-Length", "0")
        self.end_headers()

    do_GET = do_POST = answer

    def log_message(self, *unused):
        pass


class OtherSite:
    """`port` is where it listens, under every name of this machine."""

    def __init__(self):
        self.server = ThreadingHTTPServer(("127.0.0.1", 0), Site)
        self.port = self.server.server_port
        self.thread = threading.Thread(target=self.server.serve_forever)

    def __enter__(self):
        self.thread.start()
        return self

    def __exit__(self, *unused):
        self.server.shutdown()
        self.thread.join()
        self.server.server_close()
