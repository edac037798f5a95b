"""A whole recorder for one test: fresh state, real services and web server, an HTTP client."""
import copy
import http.client
import json
import os
import shutil
import signal
import socket
import subprocess
import time
from pathlib import Path

SOURCE = Path(os.environ["RECORDER_SOURCE"])
BUILD = Path(os.environ["RECORDER_BUILD"])
STATE = Path("/var/lib/recorder")
LOGS = STATE / "logs"
CGI = Path("/home/httpd/cgi-bin/recording_backup.cgi")
DEBUG_FILE = Path("/Zdbglog/.cgi_log/.cgi.log")
FIXED_PATHS = [Path(path) for path in ("/share", "/storage", "/home/httpd", "/Zdbglog")]
ROOT_URL = "/cgi-bin/recording_backup.cgi"
SECONDS = 60  # generous: reached only by something that hangs

# Not UTC, so that local times and UTC cannot be mistaken for each other.
ZONE = "CET-1CEST,M3.5.0,M10.5.0/3"

SUCCESS = '{ "ret_code": 0, "mesg": "Success." }'
FAILURE = '{ "ret_code": %s, "mesg": "Insert task to database fail." }'

EVENT_CREATED = 0x62040001
EVENT_MODIFIED = 0x62040002
EVENT_STARTED = 0x23150001

TASK = {
    "taskName": "Front door",
    "serverIP": "192.0.2.10",
    "port": 445,
    "username": "nvr",
    "password": "secret-of-the-share",
    "destPath": "/backup/cameras",
    "chIdxList": [3, 1, 2],
    "backupType": "BackupByLastDay",
    "backupDays": 7,
    "backupImmediately": False,
    "scheduleType": "weekly",
    "scheduleWeekly": 1,
    "scheduleHour": 2,
    "scheduleMin": 30,
    "scheduleEveryHours": 6,
    "recordingType": "recording_and_alarm",
    "recordingFormat": "ostra",
    "remoteKeepRec": True,
    "remoteKeepRecDays": 30,
    "remoteOverwriteType": "overwrite",
}


def task(**changes):
    """A request body with every member, some of them changed."""
    return {**copy.deepcopy(TASK), **changes}


def refused(code):
    """The error reply of create and modify; codes are printed as doubles."""
    return FAILURE % f"{code}.0"


def wait_until(condition, what):
    deadline = time.monotonic() + SECONDS
    while not condition():
        assert time.monotonic() < deadline, f"waited in vain for {what}"
        time.sleep(0.02)


class Reply:
    """One HTTP reply. `text` is the body without the two line ends that close every document."""

    def __init__(self, response):
        self.status = response.status
        self.headers = response.headers
        self.body = response.read()

    @property
    def text(self):
        assert self.body.endswith(b"\n\n"), self.body
        return self.body[:-2].decode()

    @property
    def json(self):
        return json.loads(self.body)


def processes():
    """(pid, command line) of every process that there is, arguments joined by blanks."""
    for folder in Path("/proc").glob("[0-9]*"):
        try:
            command = (folder / "cmdline").read_bytes()
        except OSError:
            continue  # it has ended meanwhile
        yield int(folder.name), command.rstrip(b"\0").replace(b"\0", b" ")


def parent_of(pid):
    try:
        return int(Path(f"/proc/{pid}/stat").read_text().rpartition(")")[2].split()[1])
    except OSError:
        return 0


def descendants(pid):
    """`pid` and every process below it, parents first."""
    parents = {child: parent_of(child) for child, _ in processes()}
    found = [pid]
    for ancestor in found:
        found += [child for child, parent in parents.items() if parent == ancestor]
    return found


def signal_all(pids, number):
    for pid in pids:
        try:
            os.kill(pid, number)
        except ProcessLookupError:
            pass  # it has ended meanwhile


def empty(folder):
    for entry in folder.iterdir():
        if entry.is_dir() and not entry.is_symlink():
            shutil.rmtree(entry)
        else:
            entry.unlink()


class Recorder:
    """Started with start(), which leaves an administrator's session in `sid`."""

    def __init__(self, zone=ZONE):
        self.environment = {**os.environ, "RECORDER_STATE": str(STATE), "TZ": zone}
        self.server = None
        self.port = None
        self.sid = None
        self.strays = []

    def start(self):
        for folder in (STATE, *FIXED_PATHS):
            empty(folder)
        self.serve()
        self.add_user("admin", 11)
        self.sid = self.open_session("admin")
        return self

    def serve(self):
        """Starts services and web server on the state as it is."""
        with socket.create_server(("127.0.0.1", 0)) as free:
            self.port = free.getsockname()[1]
        command = [SOURCE / "scripts/serve", "--port", str(self.port), "--build", BUILD]
        self.server = subprocess.Popen(command, env=self.environment, stdout=subprocess.PIPE,
                                       stderr=subprocess.STDOUT, text=True)
        line = self.server.stdout.readline()
        assert line == f"ready on http://127.0.0.1:{self.port}\n", line + self.server.stdout.read()

    def stop(self):
        """Stops everything; fails when something had ended by itself."""
        self.server.send_signal(signal.SIGTERM)
        said = self.server.communicate(timeout=SECONDS)[0]
        assert self.server.returncode == 0, said

    def clean_up(self):
        for process in self.strays:
            process.kill()
            process.wait()
        if self.server and self.server.poll() is None:
            self.server.send_signal(signal.SIGCONT)
            self.server.send_signal(signal.SIGTERM)
            self.server.communicate(timeout=SECONDS)

    def restart(self):
        self.stop()
        self.serve()

    # --- services -------------------------------------------------------------------------------

    def service(self, program):
        """The pid of one of the services."""
        found = [pid for pid, command in processes()
                 if Path(command.split(b" ")[0].decode(errors="replace")).name == program
                 and parent_of(pid) == self.server.pid]
        assert len(found) == 1, found
        return found[0]

    def kill_service(self, program):
        """Ends one service as a crash would. The script that runs them all would end the others,
        so it is kept from noticing; nothing but clean_up() can be done with it afterwards."""
        pid = self.service(program)
        self.server.send_signal(signal.SIGSTOP)
        os.kill(pid, signal.SIGKILL)
        wait_until(lambda: not Path(f"/proc/{pid}/exe").is_symlink() or
                   Path(f"/proc/{pid}/stat").read_text().rpartition(")")[2].split()[0] == "Z",
                   "the service's end")

    def crash(self):
        """Ends everything at once, as a power cut would, requests in progress included."""
        stopped = []
        while len(found := descendants(self.server.pid)) > len(stopped):
            signal_all(found, signal.SIGSTOP)  # so that nobody starts another process meanwhile
            stopped = found
        signal_all(stopped, signal.SIGKILL)
        self.server.communicate(timeout=SECONDS)
        wait_until(lambda: not set(stopped) & {pid for pid, command in processes() if command},
                   "the end of everything")

    def start_service(self, program):
        process = subprocess.Popen([BUILD / "bin" / program], env=self.environment,
                                   stdout=subprocess.PIPE, text=True)
        self.strays.append(process)
        line = process.stdout.readline()
        assert line.startswith(program + ": listening"), line

    # --- recorderctl ----------------------------------------------------------------------------

    def ctl(self, *words, text=""):
        done = subprocess.run([BUILD / "bin/recorderctl", *words], env=self.environment, input=text,
                              capture_output=True, text=True, timeout=SECONDS)
        assert done.returncode == 0, done.stderr
        return done.stdout

    def ctl_json(self, *words):
        return [json.loads(line) for line in self.ctl(*words, "--json").splitlines()]

    def add_user(self, name, level):
        self.ctl("user", "add", name, "--level", str(level), text="password of " + name)

    def open_session(self, name):
        return self.ctl("session", "open", name).strip()

    def stored_tasks(self):
        return self.ctl_json("task", "list")

    def events(self):
        """Newest first."""
        return self.ctl_json("event", "list")

    def requested_events(self):
        """Those that requests wrote, newest first; what runs wrote is left out."""
        return [event for event in self.events() if not 0x23150010 <= event["id"] < 0x23160000]

    # --- requests -------------------------------------------------------------------------------

    def request(self, method, path, body=None, headers=None, source="127.0.0.1", **options):
        """One request as it stands: `path` brings its own query and nothing is added."""
        connection = http.client.HTTPConnection("127.0.0.1", self.port, timeout=SECONDS,
                                                source_address=(source, 0))
        try:
            connection.request(method, path, body, headers or {}, **options)
            return Reply(connection.getresponse())
        finally:
            connection.close()

    def call(self, method, segments, body=None, headers=None, **options):
        """A request of the administrator's; `body` is JSON text, or what becomes JSON text."""
        if isinstance(body, (dict, list)):
            body = json.dumps(body)
        headers = {"Cookie": "sid=" + self.sid, **(headers or {})}
        return self.request(method, f"{ROOT_URL}/{segments}", body, headers, **options)

    def create(self, body=None, **changes):
        return self.call("PUT", "task", task(**changes) if body is None else body)

    def create_successfully(self, **changes):
        assert self.create(**changes).text == SUCCESS

    def start_endless_run(self):
        """A task whose server takes connections and never says a word."""
        self.silent = socket.create_server(("127.0.0.1", 0))
        self.ctl("channel", "add", "--index", "99", "--guid", "silent", "--ip", "192.0.2.99",
                 "--name", "Silent", "--brand", "B", "--model", "M", "--streams", "1",
                 "--recordings", "/storage")
        self.create_successfully(taskName="endless", serverIP="127.0.0.1", chIdxList=[99],
                                 port=self.silent.getsockname()[1], backupImmediately=True)

    def enqueue(self, task_id):
        """Has a task wait for the end of what runs."""
        reply = self.call("POST", f"task/{task_id}/active/enforcement", {"is_force_running": False})
        assert reply.text == SUCCESS

    def list_tasks(self):
        reply = self.call("GET", "task").json
        assert reply["ret_code"] == 0, reply
        return reply["task_list"]

    # --- the CGI program without a web server ---------------------------------------------------

    def start_cgi(self, method, segments, body):
        """The program as the web server starts it; the body lies ready in a file."""
        environment = {**self.environment, "REQUEST_METHOD": method, "PATH_INFO": "/" + segments,
                       "QUERY_STRING": "sid=" + self.sid, "CONTENT_LENGTH": str(len(body)),
                       "HTTP_X_FORWARDED_FOR": "127.0.0.1"}
        with open(os.memfd_create("body"), "w+b") as file:
            file.write(body)
            file.seek(0)
            return subprocess.Popen([CGI], env=environment, stdin=file, stdout=subprocess.PIPE)
