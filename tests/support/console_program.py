"""The console's CGI program as a web server starts it: a request in, a reply out."""
import json
import sqlite3
import subprocess
from contextlib import closing
from email.parser import BytesParser

from cgi_program import cgi_variables
from openapi import check_reply
from places import PROGRAMS
from state_folder import StateFolder
from waiting import SECONDS

ADDRESS = "198.51.100.9"
ROOT = "/cgi-bin/console.cgi"


class Answer:
    """One reply, taken apart."""

    def __init__(self, output):
        head, self.body = output.split(b"\r\n\r\n", 1)
        self.headers = BytesParser().parsebytes(head + b"\r\n\r\n")
        self.status = int(self.headers["Status"].split(" ")[0])

    @property
    def json(self):
        assert self.headers["Content-Type"] == "application/json"
        return json.loads(self.body)

    @property
    def code(self):
        """Of a refusal."""
        return self.json["error"]["code"]

    @property
    def cookie(self):
        """The session's identifier that the reply has the browser keep."""
        value, *attributes = self.headers["Set-Cookie"].split("; ")
        assert value.startswith("sid=")
        return value.removeprefix("sid="), set(attributes)


class ConsoleProgram(StateFolder):
    """The program over a state folder of its own, with an administrator's session."""

    def __init__(self, path, zone="UTC0"):
        super().__init__(path, zone)
        self.init()
        self.add_user("admin")
        self.sid = self.open_session("admin")

    def environment_of(self, method, path, query="", length=None, sid=..., address=ADDRESS,
                       **variables):
        own = {name: self.environment[name] for name in ("RECORDER_STATE", "TZ")}
        sid = self.sid if sid is ... else sid
        cookie = {} if sid is None else {"HTTP_COOKIE": f"other=1; sid={sid}"}
        return {**own, **cgi_variables(method, path, query, length), **cookie,
                "HTTP_X_FORWARDED_FOR": address, **variables}

    def start(self, environment):
        return subprocess.Popen([PROGRAMS / "console.cgi"], stdin=subprocess.PIPE,
                                stdout=subprocess.PIPE, stderr=subprocess.PIPE, env=environment)

    def call(self, method, path, body=None, complaint=b"", **how):
        """One request, with the administrator's session unless `sid` says otherwise. A body that
        is no bytes is sent as JSON. `complaint` is a part of what the program says on standard
        error; without it nothing is."""
        if body is not None and not isinstance(body, bytes):
            body = json.dumps(body).encode()
        how.setdefault("length", None if body is None else len(body))
        process = self.start(self.environment_of(method, path, **how))
        output, errors = process.communicate(body or b"", timeout=SECONDS)
        assert process.returncode == 0
        assert complaint in errors and bool(complaint) == bool(errors), errors
        answer = Answer(output)
        check_reply(method, ROOT + path, answer.status, answer.headers["Content-Type"],
                    answer.body)
        return answer

    def get(self, path, query="", **how):
        return self.call("GET", path, query=query, **how)

    def sign_in(self, name="admin", password="password of admin", sid=None, **how):
        return self.call("POST", "/session", {"name": name, "password": password}, sid=sid, **how)

    def sql(self, database, statement, *values):
        """What no program does: rows changed, as time would change them."""
        with closing(sqlite3.connect(self.path / f"{database}.db")) as connection, connection:
            return connection.execute(statement, values).fetchall()
