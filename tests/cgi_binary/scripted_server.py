"""An HTTP server that keeps every request as it came and answers as told."""
import socket
import threading
from dataclasses import dataclass
from urllib.parse import parse_qsl, urlsplit

NOTICE_PORT = 10205
CONFIGURATION_PORT = 10141
LOG_PORT = 10150

NOTHING_WAITS = b'{"retCode": 0, "watinTask_info": []}'
NOTHING_RUNS = b'{"retCode": 0, "max_parallel_task_num": 2, "runningTask_info": []}'


@dataclass
class Request:
    """One request, taken apart but not interpreted."""
    method: str
    target: str
    headers: dict
    body: bytes

    @property
    def path(self):
        return urlsplit(self.target).path

    @property
    def query(self):
        return dict(parse_qsl(urlsplit(self.target).query, strict_parsing=True))


class ScriptedServer:
    """Serves 127.0.0.1:port until closed. `answers` maps the query's "act" to a reply body."""

    def __init__(self, port):
        self.requests = []
        self.status = 200
        self.answers = {"get_waitingTask_seq": NOTHING_WAITS, "get_runningTask_info": NOTHING_RUNS}
        self.otherwise = b"{}"
        self.listener = socket.create_server(("127.0.0.1", port))
        self.thread = threading.Thread(target=self.serve)
        self.thread.start()

    def serve(self):
        while True:
            try:
                connection, _ = self.listener.accept()
            except OSError:  # closed
                return
            with connection, connection.makefile("rb") as stream:
                request = self.read(stream)
                self.requests.append(request)
                connection.sendall(self.reply(request))

    @staticmethod
    def read(stream):
        method, target, _ = stream.readline().decode().split()
        headers = {}
        while (line := stream.readline().decode().strip()):
            name, value = line.split(":", 1)
            headers[name.lower()] = value.strip()
        return Request(method, target, headers, stream.read(int(headers.get("content-length", 0))))

    def reply(self, request):
        body = self.otherwise
        if request.method == "GET":
            body = self.answers.get(request.query.get("act"), self.otherwise)
        head = f"HTTP/1.1 {self.status} Scripted\r\nContent-Length: {len(body)}\r\n\r\n"
        return head.encode() + body

    def close(self):
        self.listener.shutdown(socket.SHUT_RDWR)
        self.listener.close()
        self.thread.join()
