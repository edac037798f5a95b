"""A recorder of the page's tests alone: speaks its wire, and can be put into any state at once.

usage: fake_console.py PAGE-FOLDER; prints where it listens, and ends with its standard input.
A test posts to /_fake what is to be.
"""
import json
import re
import sys
import threading
from http.server import BaseHTTPRequestHandler, ThreadingHTTPServer
from pathlib import Path
from urllib.parse import parse_qs, urlsplit

TYPES = {".html": "text/html; charset=utf-8", ".js": "text/javascript; charset=utf-8",
         ".css": "text/css; charset=utf-8", ".svg": "image/svg+xml"}
POLICY = ("default-src 'none'; script-src 'self'; style-src 'self'; img-src 'self'; "
          "font-src 'none'; connect-src 'self'; form-action 'none'; base-uri 'none'; "
          "frame-ancestors 'none'")
SID = "0123456789abcdef"
PASSWORD = "right"
NOW = 1_795_355_000  # a Sunday in November 2026, in the recorder's afternoon
HOUR, DAY = 3600, 86_400
SECRETS = ("mail_password", "web_hook_secret")
OF_THE_MACHINE = ("ca_file", "sendmail", "smtp_password_file")
NO_ROOM = 'make room, shorten "remoteKeepRecDays", or choose "overwrite"'
OTHERWISE = {"sendmail": "/usr/sbin/sendmail", "smtp_security": "starttls"}


def sample_task(number, **changes):
    """A task as the console lists it; `changes` are to its members, "settings" to those inside."""
    settings = {
        "taskID": str(number), "taskName": f"Task {number}", "serverIP": "nas.local", "port": 445,
        "username": "nvr", "destPath": "/backup/cameras", "chIdxList": [0, 3],
        "backupType": "BackupByLastDay", "backupDays": 7, "backupStartDay": "",
        "backupEndDay": "", "scheduleType": "daily", "scheduleWeekly": 7, "scheduleHour": 2,
        "scheduleMin": 30, "scheduleEveryHours": 0, "recordingType": "recording_and_alarm",
        "recordingFormat": "mp4", "remoteKeepRec": 1, "remoteKeepRecDays": 30,
        "remoteOverwriteType": "stop_overwrite", **changes.pop("settings", {})}
    task = {
        "id": str(number), "revision": "1", "name": settings["taskName"], "enabled": True,
        "status": "success", "settings": settings, "queue_place": None, "progress": None,
        "next_run": NOW + 12 * HOUR, "last_success": NOW - 12 * HOUR,
        "last_attempt": {"number": 3, "started": NOW - 12 * HOUR - 600, "ended": NOW - 12 * HOUR,
                         "outcome": "success", "reason": "", "remedy": None},
        "overdue_since": None, "problems": [], "remedies": [], "missing": None, "notes": [],
        **changes}
    settings["taskName"] = task["name"]
    return task


def sample_run(number, outcome="success", reason="", failed=0):
    amount = {"files": 120, "bytes": 4_200_000_000}
    none = {"files": 0, "bytes": 0}
    started = NOW - (40 - number) * DAY
    return {"number": number, "cause": "schedule", "started": started, "ended": started + 754,
            "outcome": outcome, "reason": reason, "rate": 5_570_000, "planned": amount,
            "sent": amount, "kept": {"files": 740, "bytes": 26_000_000_000},
            "failed": {"files": failed, "bytes": 0}, "removed": none}


def sample_event(number):
    return {"id": number, "time": NOW - (1000 - number) * HOUR, "user": "System",
            "address": "127.0.0.1", "kind": "runs", "task": "Front door",
            "text": f"Backup finished: {number}"}


def sample_alert_settings(**values):
    """Settings of alerts, of which these are set."""
    keys = (*OF_THE_MACHINE, *SECRETS, "mail_from", "mail_to", "smtp_security", "smtp_server",
            "smtp_user", "web_hook")
    return [{"key": key, "value": None if key in SECRETS else values.get(key),
             "set": key in values, "valid": True, "default": OTHERWISE.get(key, ""),
             "changeable": key not in OF_THE_MACHINE, "meaning": ""} for key in sorted(keys)]


class State:
    """What the recorder is to be; a test replaces members by name."""

    def __init__(self):
        self.signed_in = False
        self.mark = 0  # the second part of the tag, another one each time
        self.silent = False  # hangs up on whatever is asked
        self.retry_after = 0
        self.tasks = [
            sample_task(1, name="Front door"),
            sample_task(2, name="Car park", status="failed", last_success=NOW - 5 * DAY,
                        overdue_since=NOW - DAY, problems=["no copy since Tuesday: the share is"
                                                           " full"],
                        remedies=[NO_ROOM],
                        last_attempt={"number": 4, "started": NOW - 13 * HOUR,
                                      "ended": NOW - 12 * HOUR, "outcome": "failed",
                                      "reason": "the share is full", "remedy": NO_ROOM}),
            sample_task(3, name="Yard", enabled=False, next_run=None),
            sample_task(4, name="Gate", status="new", last_success=None, last_attempt=None,
                        missing="waits for its first run (due soon)",
                        notes=["it waits for its first run (due soon)"])]
        self.services = {"backup": True, "log": True}
        self.problems = []
        self.notes = ["1 task is disabled"]
        self.passwords = {}  # as they were given
        self.requests = []  # those that act: method, path, body
        self.test_code = 0
        self.transfer_rate = "52428800"
        self.save_code = 0
        self.user = "admin"
        self.answers = {}  # by "METHOD path", instead of what would be said
        self.alert_settings = sample_alert_settings(mail_to="admin@example.org",
                                                    mail_password="hidden")
        self.waiting = []
        self.given_up = []
        self.tested = []
        self.rates = [[NOW + second, 5_000_000 + 400_000 * (second % 7)] for second in range(60)]

    def task(self, identifier):
        return next((task for task in self.tasks if task["id"] == identifier), None)

    def running(self):
        return [task for task in self.tasks if task["status"] == "running"]

    def start(self, task):
        task.update(status="running", progress={
            "percent": 34.5, "rate": 11_200_000, "seconds_left": 190, "files_done": 41,
            "files_left": 79, "bytes_done": 1_400_000_000, "bytes_left": 2_800_000_000,
            "message": ""})
        task["last_attempt"] = {"number": 5, "started": NOW, "ended": None, "outcome": None,
                                "reason": "", "remedy": None}

    def verdict(self):
        """By the recorder's rule."""
        if self.problems or any(task["problems"] for task in self.tasks):
            return "attention"
        missing = any(task["missing"] is not None for task in self.tasks if task["enabled"])
        return "not_yet_safe" if missing else "safe"

    def change(self, task, body):
        names = set(task["settings"]) - {"taskID", "backupStartDay", "backupEndDay"}
        task["settings"].update({name: body[name] for name in names if name in body})
        task["settings"]["remoteKeepRec"] = int(body["remoteKeepRec"])
        task.update(name=body["taskName"], enabled=True,
                    revision=str(int(task["revision"]) + 1))
        self.passwords[task["id"]] = body["password"]
        if body["backupImmediately"]:
            self.start(task)


class Wire(BaseHTTPRequestHandler):
    protocol_version = "HTTP/1.1"
    page = None
    state = State()

    # --- the ways in and out --------------------------------------------------------------------

    def answer(self, status, content=b"", kind="application/json", **headers):
        if not isinstance(content, bytes):
            content = json.dumps(content).encode()
        self.send_response(status)
        for name, value in headers.items():
            self.send_header(name.replace("_", "-"), value)
        self.send_header("Content-Type", kind)
        self.send_header("Content-Length", str(len(content)))
        self.end_headers()
        if status != 304:
            self.wfile.write(content)

    def refuse(self, status, code, text, **more):
        self.answer(status, {"error": {"code": code, "text": text, **more}})

    def handle_request(self):
        url = urlsplit(self.path)
        raw = self.rfile.read(int(self.headers.get("Content-Length") or 0))
        self.body = json.loads(raw) if raw else None
        self.query = {name: values[0] for name, values in parse_qs(url.query).items()}
        if url.path == "/_fake":
            return self.be_told()
        if not url.path.startswith("/cgi-bin/"):
            return self.give_file(url.path)
        if self.state.silent:
            self.close_connection = True
            return None
        _, _, program, *segments = url.path.split("/")
        if program == "console.cgi" and segments == ["session"]:
            return self.session()
        if not self.state.signed_in or f"sid={SID}" not in self.headers.get("Cookie", ""):
            return self.refuse(401, "no_session", "Nobody has signed in.")
        routes = CONSOLE if program == "console.cgi" else PRESCRIBED
        return self.route(routes, "/".join(segments))

    do_GET = do_POST = do_PUT = do_PATCH = do_DELETE = handle_request

    def route(self, routes, path):
        if self.command != "GET" and routes is PRESCRIBED:
            self.state.requests.append([self.command, path, self.body])
        if (told := self.state.answers.get(f"{self.command} {path}")) is not None:
            return self.answer(200, told)
        for method, pattern, function in routes:
            found = re.fullmatch(pattern, path)
            if found and method == self.command:
                return function(self, *found.groups())
        return self.refuse(404, "not_found", "There is nothing here.")

    def be_told(self):
        """Takes members of the state, or {} to tell them all."""
        if self.body.pop("reset", False):
            Wire.state = State()
        for name, value in self.body.items():
            if name == "many":
                value = [sample_task(number) for number in range(1, value + 1)]
                name = "tasks"
            setattr(self.state, name, value)
        self.answer(200, vars(self.state))

    def give_file(self, path):
        file = self.page / ("index.html" if path == "/" else path.lstrip("/"))
        if not file.is_file():
            return self.answer(404)
        self.send_response(200)
        packed = file.read_bytes()
        for name, value in (("Content-Type", TYPES[file.suffix]),
                            ("Content-Length", str(len(packed))),
                            ("X-Content-Type-Options", "nosniff"),
                            ("Content-Security-Policy", POLICY)):
            self.send_header(name, value)
        self.end_headers()
        return self.wfile.write(packed)

    def log_message(self, *unused):
        pass

    # --- the console's routes -------------------------------------------------------------------

    def session(self):
        facts = {"user": self.state.user, "level": 11, "expires": NOW + 1800, "ends": NOW + 43_200}
        if self.command == "DELETE":
            self.state.signed_in = False
            return self.answer(204)
        if self.command == "GET":
            if self.state.signed_in and f"sid={SID}" in self.headers.get("Cookie", ""):
                return self.answer(200, facts)
            return self.refuse(401, "no_session", "Nobody has signed in.")
        if self.state.retry_after:
            wait, self.state.retry_after = self.state.retry_after, 0
            return self.refuse(429, "too_early", "Too early.", retry_after=wait)
        if self.body["password"] != PASSWORD:
            return self.refuse(401, "wrong_sign_in", "Name or password is wrong.")
        self.state.signed_in = True
        return self.answer(200, facts,
                           Set_Cookie=f"sid={SID}; HttpOnly; SameSite=Strict; Path=/cgi-bin/")

    def tasks(self):
        told = {
            "time": NOW,
            "recorder": {"name": "demo", "version": "0.2.0", "zone": "Europe/Berlin",
                         "utc_offset": HOUR},
            "services": self.state.services,
            "verdict": self.state.verdict(),
            "needs_attention": self.state.verdict() == "attention",
            "problems": self.state.problems, "notes": self.state.notes,
            "tasks": self.state.tasks}
        digest = str(hash(json.dumps(told)))
        self.state.mark += 1
        tag = f'"{digest}-{self.state.mark}"'
        if digest in self.headers.get("If-None-Match", ""):
            return self.answer(304, ETag=tag)
        return self.answer(200, told, ETag=tag)

    def runs(self, _identifier):
        newest = int(self.query.get("before", 41)) - 1
        runs = [sample_run(number) for number in range(newest, max(0, newest - 20), -1)]
        if runs and newest == 40:
            runs[2] = sample_run(38, "failed", "the share is full", 2)
        return self.answer(200, {"runs": runs, "older": newest - 19 if newest > 20 else None})

    def run(self, _identifier, number):
        failures = [{"file": f"Front door/2026-11-20/0{hour}-00-00.mp4", "reason": "no room"}
                    for hour in (7, 8)]
        return self.answer(200, {**sample_run(int(number)), "failures": failures,
                                 "rates": self.state.rates})

    def days(self, _guid):
        month = self.query["month"]
        return self.answer(200, {"days": [
            {"day": f"{month}-{day:02}", "recordings": True, "alarms": day % 5 == 0,
             "copied_by": ["1"] if day < 10 else []} for day in range(1, 22)]})

    def preview(self):
        return self.answer(200, {"times": [NOW + 12 * HOUR + day * DAY for day in range(5)]})

    def log(self):
        text = self.query.get("text", "")
        before = int(self.query.get("before", 200))
        limit = int(self.query.get("limit", 50))
        found = [sample_event(number) for number in range(before - 1, 0, -1)]
        found = [event for event in found if text in event["text"]]
        older = found[limit - 1]["id"] if len(found) > limit else None
        return self.answer(200, {"events": found[:limit], "older": older})

    def shares(self):
        if self.body["server"].startswith("nothing"):
            return self.refuse(422, "no_server", "No file server answers at this address.",
                               field="server")
        return self.answer(200, {"shares": [{"name": "backup", "comment": "Copies"},
                                            {"name": "media", "comment": ""}]})

    def recorder(self):
        return self.answer(200, {
            "version": "0.2.0", "zone": "Europe/Berlin", "services": {"backup": True, "log": True},
            "channels": [{"index": 0, "name": "Front door", "guid": "5F0C",
                          "state": "connected", "oldest": "2026-09-01",
                          "unreadable": None},
                         {"index": 3, "name": "Car park", "guid": "5F0D",
                          "state": "disconnected", "oldest": None, "unreadable": None}],
            "rooms": [{"destination": "//nas.local/backup", "free": 12_000_000_000,
                       "total": 4_000_000_000_000, "time": NOW - HOUR}],
            "problems": [{"kind": "run_failed", "subject": "2", "since": NOW - DAY,
                          "detail": "the share is full", "remedy": NO_ROOM}],
            "alerts_waiting": 0})

    # --- the prescribed routes ------------------------------------------------------------------

    def told_alerts(self):
        return {"settings": self.state.alert_settings, "waiting": self.state.waiting,
                "given_up": self.state.given_up}

    def alerts(self):
        return self.answer(200, self.told_alerts())

    def change_alerts(self):
        self.state.requests.append([self.command, "alerts", self.body])
        settings = {setting["key"]: setting for setting in self.state.alert_settings}
        for key, value in self.body.items():
            if value and "refused" in value:
                return self.refuse(400, "bad_field", "This has to be something else.", field=key)
            shown = None if key in SECRETS else value
            settings[key].update(value=shown, set=value is not None, valid=True)
        return self.alerts()

    def test_alerts(self):
        self.state.requests.append([self.command, "alerts/test", self.body])
        if not self.state.tested:
            return self.refuse(422, "no_receiver", "Alerts go nowhere.")
        return self.answer(200, {"receivers": self.state.tested})

    def done(self, **more):
        return self.answer(200, {"ret_code": 0, "mesg": "Success.", **more})

    def list_tasks(self):
        return self.done(task_list=[
            {**task["settings"], "password": self.state.passwords.get(task["id"], "stored")}
            for task in self.state.tasks])

    def channels(self):
        return self.done(channel_list=[
            {"guid": "5F0C", "channel_index": 0, "name": "Front door", "ip": "192.0.2.21",
             "earlyest_local_time": "2026-09-01", "earlyest_utc_times": NOW - 80 * DAY,
             "connection_status": "NVR_CAM_CONNECTED"},
            {"guid": "5F0D", "channel_index": 3, "name": "Car park", "ip": "192.0.2.22",
             "earlyest_local_time": "1970-01-01", "earlyest_utc_times": 0,
             "connection_status": "NVR_CAM_DISCONNECTED"}])

    def create(self):
        number = max([0, *(int(task["id"]) for task in self.state.tasks)]) + 1
        task = sample_task(number, status="new", last_success=None, last_attempt=None)
        self.state.tasks.append(task)
        self.state.change(task, self.body)
        return self.done()

    def modify(self, identifier):
        if self.state.save_code:
            return self.answer(200, {"ret_code": self.state.save_code,
                                     "mesg": "Insert task to database fail."})
        self.state.change(self.state.task(identifier), self.body)
        return self.done()

    def activate(self, identifier):
        task, running = self.state.task(identifier), self.state.running()
        if self.body["is_active"] and running:
            return self.done(has_running_task=True, isFUSE=True, taskID=running[-1]["id"],
                             taskName=running[-1]["name"])
        if self.body["is_active"]:
            self.state.start(task)
        else:
            task.update(status="cancel", progress=None)
        return self.done(has_running_task=False, isFUSE=True, taskID="", taskName="")

    def force(self, identifier):
        if self.body["is_force_running"]:
            for task in self.state.running():
                task.update(status="cancel", progress=None)
        elif not self.body["is_parallel_running"]:
            self.state.task(identifier).update(status="wait", queue_place=0)
            return self.done()
        self.state.start(self.state.task(identifier))
        return self.done()

    def enable(self, identifier):
        task = self.state.task(identifier)
        task.update(enabled=self.body["is_enable"], revision=str(int(task["revision"]) + 1))
        return self.done()

    def delete(self, identifier):
        self.state.tasks.remove(self.state.task(identifier))
        return self.done()

    def test_server(self):
        if self.state.test_code:
            return self.answer(200, {"ret_code": self.state.test_code,
                                     "mesg": "Test mount remote server fail."})
        return self.done(transferRate=self.state.transfer_rate)


CONSOLE = [
    ("GET", "tasks", Wire.tasks), ("GET", r"task/(\d+)/runs", Wire.runs),
    ("GET", r"task/(\d+)/runs/(\d+)", Wire.run), ("GET", "channel/([^/]+)/days", Wire.days),
    ("POST", "schedule/preview", Wire.preview), ("GET", "log", Wire.log),
    ("POST", "shares", Wire.shares), ("GET", "recorder", Wire.recorder),
    ("GET", "alerts", Wire.alerts), ("PATCH", "alerts", Wire.change_alerts),
    ("POST", "alerts/test", Wire.test_alerts)]
PRESCRIBED = [
    ("GET", "task", Wire.list_tasks), ("GET", "channel", Wire.channels),
    ("PUT", "task", Wire.create), ("POST", r"task/(\d+)", Wire.modify),
    ("POST", r"task/(\d+)/active", Wire.activate),
    ("POST", r"task/(\d+)/active/enforcement", Wire.force),
    ("POST", r"task/(\d+)/is_enable", Wire.enable), ("DELETE", r"task/(\d+)", Wire.delete),
    ("PUT", "server/testing", Wire.test_server)]


class Server(ThreadingHTTPServer):
    daemon_threads = True


def main():
    Wire.page = Path(sys.argv[1])
    server = Server(("127.0.0.1", 0), Wire)
    print(f"http://127.0.0.1:{server.server_port}", flush=True)
    threading.Thread(target=server.serve_forever, daemon=True).start()
    sys.stdin.read()


if __name__ == "__main__":
    main()
