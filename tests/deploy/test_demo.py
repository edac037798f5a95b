"""The demo recorder: what it prints works when pasted, outlives a restart, fails in one line."""
import json
import os
import re
import shlex
import signal
import socket
import subprocess

from loopback import listens
from places import BUILD, SOURCE, STATE
from service_process import ended_afterwards, start_recorder
from state_folder import StateFolder
from waiting import SECONDS

PORT = 8080


def welcome(process):
    """What is printed after "ready", up to the last line."""
    lines = []
    while not lines or not lines[-1].startswith("Ctrl-C"):
        lines.append(process.stdout.readline())
        assert lines[-1], "it ended early: " + "".join(lines)
    return "".join(lines)


def paste(text):
    """The replies to the printed curl lines."""
    commands = [line for line in text.splitlines() if line.startswith("curl ")]
    assert len(commands) == 3
    return [subprocess.run([*shlex.split(command), "--silent"], capture_output=True, text=True,
                           timeout=SECONDS, check=True).stdout for command in commands]


def camera_states(text):
    """What the page would show, asked for in the printed session."""
    url, sid = re.search(r"(http://\S+)", text)[1], re.search(r"session\s+(\S+)", text)[1]
    said = subprocess.run(["curl", "--silent", f"{url}/channel?sid={sid}"], capture_output=True,
                          text=True, timeout=SECONDS, check=True).stdout
    return {entry["name"]: entry["connection_status"].removeprefix("NVR_CAM_")
            for entry in json.loads(said)["channel_list"]}


STATES = {"Front door": "CONNECTED", "Car park": "DISCONNECTED", "Loading bay": "CONNECTION_ERROR",
          "Corridor": "CONNECTING", "Old gate": "REMOVED"}


def password(text):
    return re.search(r"password\s+(\S+)", text)[1]


def serving(*options):
    return ended_afterwards(start_recorder(PORT, *options))


def test_the_demo_works_when_pasted_and_is_made_once():
    recorder = StateFolder(STATE)
    with serving("--demo") as process:
        first = welcome(process)
        created, listed, status = paste(first)
        assert created.strip() == '{ "ret_code": 0, "mesg": "Success." }'
        assert '"taskName": "Every night"' in listed
        assert '"status": "new"' in status
        assert camera_states(first) == STATES
    cameras = recorder.ctl("channel", "list")
    assert len(cameras.splitlines()) == 5
    assert recorder.ctl("config", "get", "fuse", "fuse_enabled").strip() == "1"
    with serving("--demo") as process:
        second = welcome(process)
        assert password(second) == password(first)
        assert camera_states(second) == STATES
        assert paste(second)[1].count('"taskName": "Every night"') == 2
    assert recorder.ctl("channel", "list") == cameras
    assert (STATE / "demo/password").stat().st_mode & 0o777 == 0o600
    assert (STATE / "demo/password").read_text().strip() == password(first)


def serve(*options):
    return subprocess.run([SOURCE / "scripts/serve", "--build", BUILD, *options], text=True,
                          capture_output=True, timeout=SECONDS, check=False)


def test_a_taken_port_gives_one_line_and_leaves_nothing():
    for port in (PORT, 10205, 10141, 10150):
        with socket.create_server(("127.0.0.1", port)):
            done = serve()
        assert done.returncode == 1
        assert done.stderr.startswith(f"serve: port {port} of 127.0.0.1 is taken")
        assert done.stderr.count("\n") == 1
        assert done.stdout == ""


def test_a_wrong_port_number_gives_one_line():
    for port in ("0", "65536", "x", "8080x", ""):
        done = serve("--port", port)
        assert done.returncode == 1
        assert "is not a port number" in done.stderr


def test_when_a_service_ends_all_end_and_the_message_names_it():
    with serving() as process:
        found = subprocess.run(["pgrep", "-P", str(process.pid), "recorder-logd"], text=True,
                               capture_output=True, check=True).stdout
        os.kill(int(found), signal.SIGKILL)
        said = process.communicate(timeout=SECONDS)[0]
        assert "recorder-logd has ended" in said
        assert process.returncode == 1
    for port in (PORT, 10205, 10141, 10150):
        assert not listens(port)
