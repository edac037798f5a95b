"""The CGI program as a web server starts it: environment and standard input in, bytes out."""
import subprocess

from places import PROGRAMS
from state_folder import StateFolder
from waiting import SECONDS

HEADERS = b"Status: 200 OK\r\nContent-type: application/json\r\n\r\n"


def cgi_variables(method, path, query, length):
    """What a web server tells of a request; None leaves a variable out."""
    variables = {"REQUEST_METHOD": method, "PATH_INFO": path, "QUERY_STRING": query,
                 "CONTENT_LENGTH": None if length is None else str(length),
                 "HTTP_X_FORWARDED_FOR": "198.51.100.9"}
    return {name: value for name, value in variables.items() if value is not None}


def printed(text):
    """What the program prints for a reply with headers."""
    return HEADERS + text.encode() + b"\n\n"


class Result:
    """Exit status and standard output of one request."""

    def __init__(self, done):
        self.status = done.returncode
        self.output = done.stdout
        self.errors = done.stderr

    @property
    def text(self):
        """The reply without headers and closing line ends; fails when either is missing."""
        assert self.output.startswith(HEADERS), self.output
        assert self.output.endswith(b"\n\n"), self.output
        return self.output[len(HEADERS):-2].decode("utf-8", "surrogateescape")


class CgiProgram(StateFolder):
    """The program over a state folder of its own, with an administrator's session."""

    def __init__(self, path, programs=PROGRAMS):
        super().__init__(path, "UTC0", programs)
        self.command = [programs / "recording_backup.cgi"]
        self.init()
        self.add_user("admin")
        self.sid = self.open_session("admin")

    def serve(self, method, path, body=None, length=..., query=None):
        """Serves one request. `length` is the body's own unless given; `query` has the session."""
        data = body.encode("utf-8", "surrogateescape") if isinstance(body, str) else body
        if length is ...:
            length = None if data is None else len(data)
        own = {name: self.environment[name] for name in ("RECORDER_STATE", "TZ")}
        query = f"sid={self.sid}" if query is None else query
        return Result(subprocess.run(
            self.command, input=data or b"", capture_output=True, timeout=SECONDS,
            env={**own, **cgi_variables(method, path, query, length)}, check=False))

    def request(self, *arguments, **how):
        """serve(), with nothing on standard error and an end by itself."""
        result = self.serve(*arguments, **how)
        assert result.errors == b""
        assert result.status >= 0, f"ended by signal {-result.status}"
        return result

    def create(self, body, **how):
        return self.request("PUT", "/task", body, **how)

    def modify(self, task_id, body, **how):
        return self.request("POST", f"/task/{task_id}", body, **how)
