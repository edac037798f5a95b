"""Free ports of 127.0.0.1, and HTTP requests to whatever listens on one."""
import http.client
import json
import socket
import urllib.parse

from waiting import SECONDS


def free_port():
    with socket.create_server(("127.0.0.1", 0)) as listener:
        return listener.getsockname()[1]


def listens(port):
    with socket.socket() as probe:
        return probe.connect_ex(("127.0.0.1", port)) == 0


class Reply:
    """One HTTP reply."""

    def __init__(self, response):
        self.status = response.status
        self.headers = response.headers
        self.body = response.read()

    @property
    def json(self):
        return json.loads(self.body)

    @property
    def text(self):
        """The body of the CGI program's, without the two line ends that close every document."""
        assert self.body.endswith(b"\n\n"), self.body
        return self.body[:-2].decode()


def request(port, method, path, body=None, headers=None, source="127.0.0.1", **options):
    """One request as it stands: `path` brings its own query and nothing is added."""
    connection = http.client.HTTPConnection("127.0.0.1", port, timeout=SECONDS,
                                            source_address=(source, 0))
    try:
        connection.request(method, path, body, headers or {}, **options)
        return Reply(connection.getresponse())
    finally:
        connection.close()


def query(path, **parameters):
    """The path with these parameters behind it."""
    return path + "?" + urllib.parse.urlencode(parameters) if parameters else path


def request_json(port, method, path, body=None, **parameters):
    """Status and JSON body of one reply."""
    reply = request(port, method, query(path, **parameters), body)
    return reply.status, reply.json
