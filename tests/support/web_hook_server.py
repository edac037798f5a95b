"""A real HTTP server on loopback that gets alerts; what it answers is the test's."""
import threading
from http.server import BaseHTTPRequestHandler, ThreadingHTTPServer

HOOK_PORT = 8088


class WebHookServer:
    """`requests` has what came: (path, headers, body). `answer` is called with the handler."""

    def __init__(self, answer=None, certificate=None, port=HOOK_PORT):
        self.requests = []
        hook = self

        class Handler(BaseHTTPRequestHandler):
            def do_POST(self):
                body = self.rfile.read(int(self.headers["Content-Length"]))
                hook.requests.append((self.path, self.headers, body))
                (answer or plain(200))(self)

            do_GET = do_POST

            def log_message(self, *unused):
                pass

        self.server = ThreadingHTTPServer(("127.0.0.1", port), Handler)
        self.server.daemon_threads = True
        if certificate:
            self.server.socket = certificate.context().wrap_socket(self.server.socket,
                                                                   server_side=True)

    @property
    def ids(self):
        return [headers["X-Recorder-Alert"] for _, headers, _ in self.requests]

    def __enter__(self):
        self.thread = threading.Thread(target=self.server.serve_forever, args=(0.05,))
        self.thread.start()
        return self

    def __exit__(self, *unused):
        self.server.shutdown()
        self.thread.join()
        self.server.server_close()


def plain(status, body=b"", headers=()):
    """Answers with this."""
    def answer(handler):
        handler.send_response(status)
        for name, value in headers:
            handler.send_header(name, value)
        handler.send_header("Content-Length", str(len(body)))
        handler.end_headers()
        handler.wfile.write(body)
    return answer
