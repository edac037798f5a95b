"""A whole recorder for one test: fresh state, real services and web server, an HTTP client."""
import json
import os
import shutil
import signal
import socket
import subprocess
from pathlib import Path

from cgi_program import cgi_variables
from event_ids import is_of_a_run
from loopback import free_port, request
from openapi import check_reply
from places import CGI, FIXED_PATHS, STATE, STORAGE
from processes import descendants, freeze, is_running, parent_of, processes, signal_all
from replies import SUCCESS
from sample_task import task
from service_process import start_recorder, start_service
from state_folder import ZONE, StateFolder
from waiting import SECONDS, wait_until

ROOT_URL = "/cgi-bin/recording_backup.cgi"


def empty(folder):
    for entry in folder.iterdir():
        if entry.is_dir() and not entry.is_symlink():
            shutil.rmtree(entry)
        else:
            entry.unlink()


class Recorder(StateFolder):
    """Its start() leaves an administrator's session in `sid`."""

    def __init__(self, zone=ZONE):
        super().__init__(STATE, zone)
        self.server = None
        self.port = None
        self.sid = None
        self.strays = []

    def start(self):
        for folder in (STATE, *FIXED_PATHS):
            empty(folder)
        self.serve()
        self.add_user("admin")
        self.sid = self.open_session("admin")
        return self

    def serve(self):
        """Starts services and web server on the state as it is."""
        self.port = free_port()
        self.server = start_recorder(self.port, env=self.environment)

    def stop(self):
        """Stops everything; fails when something had ended by itself."""
        self.server.send_signal(signal.SIGTERM)
        said = self.server.communicate(timeout=SECONDS)[0]
        assert self.server.returncode == 0, said

    def clean_up(self):
        for process in self.strays:
            process.kill()
            process.communicate()
        if self.server and self.server.poll() is None:
            self.server.send_signal(signal.SIGCONT)
            self.server.send_signal(signal.SIGTERM)
            self.server.communicate(timeout=SECONDS)

    def restart(self):
        self.stop()
        self.serve()

    def __enter__(self):
        try:
            return self.start()
        except BaseException:
            self.clean_up()
            raise

    def __exit__(self, *unused):
        self.clean_up()

    # --- services -------------------------------------------------------------------------------

    def services(self, program):
        """The pids of those that run this program."""
        return [pid for pid, command in processes()
                if Path(command.split(b" ")[0].decode(errors="replace")).name == program
                and parent_of(pid) == self.server.pid]

    def service(self, program):
        """The pid of one of the services."""
        found = self.services(program)
        assert len(found) == 1, found
        return found[0]

    def kill_service(self, program):
        """Ends one service as a crash would. The script that runs them all would end the others,
        so it is kept from noticing; nothing but clean_up() can be done with it afterwards."""
        pid = self.service(program)
        freeze(self.server.pid)
        os.kill(pid, signal.SIGKILL)
        wait_until(lambda: not is_running(pid), "the service's end")

    def start_service(self, program):
        """Starts a service again; it ends with the recorder, or before."""
        process = start_service(program, self)
        self.strays.append(process)
        return process

    def crash(self):
        """Ends everything at once, as a power cut would, requests in progress included."""
        stopped = []
        while found := [pid for pid in descendants(self.server.pid) if pid not in stopped]:
            signal_all(found, signal.SIGSTOP)  # so that nobody starts another process meanwhile
            stopped += found
        signal_all(stopped, signal.SIGKILL)
        self.server.communicate(timeout=SECONDS)
        wait_until(lambda: not any(map(is_running, stopped)), "the end of everything")

    # --- requests -------------------------------------------------------------------------------

    def request(self, method, path, body=None, headers=None, **options):
        """One request as it stands: `path` brings its own query and nothing is added."""
        reply = request(self.port, method, path, body, headers, **options)
        check_reply(method, path, reply.status, reply.headers["Content-Type"], reply.body)
        return reply

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
        self.add_channel(99, "Silent", STORAGE)
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

    def requested_events(self):
        """Those that requests wrote, newest first; what runs wrote is left out."""
        return [event for event in self.events() if not is_of_a_run(event["id"])]

    def start_cgi(self, method, segments, body):
        """The program without a web server; the body lies ready in a file."""
        variables = cgi_variables(method, "/" + segments, "sid=" + self.sid, len(body))
        with open(os.memfd_create("body"), "w+b") as file:
            file.write(body)
            file.seek(0)
            return subprocess.Popen([CGI], env={**self.environment, **variables}, stdin=file,
                                    stdout=subprocess.PIPE)
