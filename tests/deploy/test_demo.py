"""The demo recorder: what it prints works when pasted, outlives a restart, fails in one line."""
import hashlib
import json
import os
import re
import shutil
import signal
import socket
import subprocess
from pathlib import Path

import pytest

from loopback import listens, request
from other_user import NOBODY
from places import BUILD, SOURCE, STATE
from processes import processes
from service_process import ended_afterwards, start_recorder
from state_folder import StateFolder
from waiting import SECONDS, wait_until

PORT = 8080
SHARE_PORT = 10445


def welcome(process):
    """What is printed after "ready", up to the last line."""
    lines = []
    while not lines or not lines[-1].startswith("Ctrl-C"):
        lines.append(process.stdout.readline())
        assert lines[-1], "it ended early: " + "".join(lines)
    return "".join(lines)


def paste(text):
    """What the printed lines say in a shell, the end of the run included."""
    lines = text[text.index("\napi="):text.index("\nCtrl-C")]
    return subprocess.run(["bash", "-e", "-c", lines], text=True, timeout=SECONDS, check=True,
                          stdout=subprocess.PIPE, stderr=subprocess.STDOUT).stdout


def tour(text):
    """What the script of the same lines says."""
    url, sid = re.search(r"^api=(.*)\nsid=(\S+)", text, re.MULTILINE).groups()
    return subprocess.run([SOURCE / "scripts/demo_tour", url, sid, STATE], text=True, check=True,
                          timeout=SECONDS, stdout=subprocess.PIPE).stdout


def pairs(said):
    """(hash, copy, recording) of what the lines compare."""
    found = re.findall(r"^([0-9a-f]{64})  (.*/demo/share/.*)\n([0-9a-f]{64})  (.*/recordings/.*)$",
                       said, re.MULTILINE)
    assert all(first == second for first, _, second, _ in found)
    return [(digest, Path(copy), Path(recording)) for digest, copy, _, recording in found]


def chosen_recordings():
    """Those of the cameras that there still are."""
    return {file for file in (STATE / "recordings").rglob("*.mp4") if "old-gate" not in file.parts}


def camera_states(text):
    """What the page would show, asked for in the printed session."""
    url, sid = re.search(r"^api=(.*)\nsid=(\S+)", text, re.MULTILINE).groups()
    said = subprocess.run(["curl", "--silent", f"{url}/channel?sid={sid}"], capture_output=True,
                          text=True, timeout=SECONDS, check=True).stdout
    return {entry["name"]: entry["connection_status"].removeprefix("NVR_CAM_")
            for entry in json.loads(said)["channel_list"]}


STATES = {"Front door": "CONNECTED", "Car park": "DISCONNECTED", "Loading bay": "CONNECTION_ERROR",
          "Corridor": "CONNECTING", "Old gate": "REMOVED"}


def password(text):
    return re.search(r"password\s+(\S+)", text)[1]


def serving(*words, **options):
    return ended_afterwards(start_recorder(PORT, *words, **options))


DEMO = "--demo", STATE


def test_the_demo_works_when_pasted_and_is_made_once():
    recorder = StateFolder(STATE)
    with serving(*DEMO) as process:
        first = welcome(process)
        assert len(first.splitlines()) <= 30
        said = paste(first)
        assert '{ "ret_code": 0, "mesg": "Success." }' in said
        assert '"status": "success"' in said
        assert {recording for _, _, recording in pairs(said)} == chosen_recordings()
        assert f"Run succeeded: {len(chosen_recordings())} files" in said
        assert camera_states(first) == STATES
    cameras = recorder.ctl("channel", "list")
    assert len(cameras.splitlines()) == 5
    assert recorder.ctl("config", "get", "fuse", "fuse_enabled").strip() == "1"
    with serving(*DEMO) as process:
        second = welcome(process)
        assert password(second) == password(first)
        assert camera_states(second) == STATES
        assert '"status": "success"' in paste(second)
        assert [task["taskName"] for task in recorder.stored_tasks()] == \
            ["All cameras", "Every night", "Every night"]
    assert recorder.ctl("channel", "list") == cameras
    assert (STATE / "demo/password").read_text().strip() == password(first)
    for name in ("password", "share-password", "task.json"):
        assert (STATE / "demo" / name).stat().st_mode & 0o777 == 0o600


def test_a_demo_that_was_given_many_cameras_starts_again():
    recorder = StateFolder(STATE)
    with serving(*DEMO) as process:
        welcome(process)
    for index in range(5, 60):
        recorder.add_channel(index, f"Camera {index}", STATE)
    with serving(*DEMO) as process:
        assert camera_states(welcome(process)).items() >= STATES.items()


def test_a_newcomer_signs_in_as_is_printed_and_watches_a_first_backup():
    with serving(*DEMO) as process:
        said = welcome(process)
        assert f"page is http://127.0.0.1:{PORT}/\n" in said

        def ask(method, path, body=None, sid=""):
            return request(PORT, method, f"/cgi-bin/{path}", body, {"Cookie": f"sid={sid}"})

        name = re.search(r"administrator\s+(\S+)", said)[1]
        reply = ask("POST", "console.cgi/session",
                    json.dumps({"name": name, "password": password(said)}))
        assert reply.status == 200
        sid = re.search(r"sid=([^;]+)", reply.headers["Set-Cookie"])[1]

        def task():
            first = ask("GET", "console.cgi/tasks", sid=sid).json["tasks"][0]
            assert f'start the task "{first["name"]}"' in said
            return first

        assert task()["status"] == "new"
        assert ask("POST", "recording_backup.cgi/task/1/active", '{"is_active": true}',
                   sid).json["ret_code"] == 0
        wait_until(lambda: task()["status"] == "success", "the first backup")
        assert not task()["problems"]


def test_what_is_copied_has_the_recordings_bytes():
    with serving(*DEMO) as process:
        found = pairs(tour(welcome(process)))
    assert {recording for _, _, recording in found} == chosen_recordings()
    for digest, copy, recording in found:
        assert copy.read_bytes() == recording.read_bytes()
        assert hashlib.sha256(copy.read_bytes()).hexdigest() == digest
    assert len({digest for digest, _, _ in found}) == len(found)  # no two pictures alike


def share_servers():
    return [pid for pid, command in processes() if b"smbd" in command]


def status_of(pid):
    """None of a process that is gone: each connection of the share has one of its own."""
    try:
        return Path(f"/proc/{pid}/status").read_text()
    except (FileNotFoundError, ProcessLookupError):
        return None


def test_another_user_s_state_folder_has_a_share_of_that_user_s(monkeypatch, tmp_path):
    """Also where that user cannot get into the source tree, as in root's home."""
    # The leak checker cannot look into a process that has changed its user.
    monkeypatch.setenv("ASAN_OPTIONS", "detect_leaks=0")
    shutil.copytree(SOURCE / "scripts", tmp_path / "scripts")
    tmp_path.chmod(0o700)
    shutil.chown(STATE, NOBODY, NOBODY)
    try:
        with serving(*DEMO, source=tmp_path) as process:
            assert pairs(paste(welcome(process)))
            servers = [status for status in map(status_of, share_servers()) if status]
            assert servers
            for status in servers:
                assert re.search(rf"^Uid:\t{NOBODY}\t", status, re.MULTILINE)
                assert re.search(r"^CapBnd:\t0+$", status, re.MULTILINE)
        assert {path.stat().st_uid for path in (STATE / "demo").rglob("*")} == {NOBODY}
    finally:
        shutil.chown(STATE, 0, 0)


def test_the_share_s_password_is_in_nobody_s_arguments():
    with serving(*DEMO) as process:
        welcome(process)
        secret = (STATE / "demo/share-password").read_text().strip()
        assert not [command for _, command in processes() if secret.encode() in command]


def serve(*options):
    return subprocess.run([SOURCE / "scripts/serve", "--build", BUILD, *options], text=True,
                          capture_output=True, timeout=SECONDS, check=False)


def test_a_taken_port_gives_one_line_and_leaves_nothing():
    for port in (PORT, SHARE_PORT, 10205, 10141, 10206, 10150):
        with socket.create_server(("127.0.0.1", port)):
            done = serve(*DEMO)
        assert done.returncode == 1
        assert done.stderr.startswith(f"serve: port {port} of 127.0.0.1 is taken")
        assert done.stderr.count("\n") == 1
        assert done.stdout == ""


def test_a_wrong_port_number_gives_one_line():
    for port in ("0", "65536", "x", "8080x", ""):
        done = serve("--port", port)
        assert done.returncode == 1
        assert "is not a port number" in done.stderr


def servers_left():
    """Those that start processes of their own; what was sent SIGKILL may take its time to go."""
    return [command for _, command in processes() if b"apache2" in command or b"smbd" in command]


@pytest.mark.parametrize("program, name", [("recorder-logd", "recorder-logd"),
                                           ("apache2", "httpd"), ("smbd", "demo-share")])
def test_when_a_service_ends_all_end_and_the_message_names_it(program, name):
    with serving(*DEMO) as process:
        found = subprocess.run(["pgrep", "-P", str(process.pid), program], text=True,
                               capture_output=True, check=True).stdout
        os.kill(int(found), signal.SIGKILL)
        said = process.communicate(timeout=SECONDS)[0]
        assert f"{name} has ended" in said
        assert process.returncode == 1
    ports = (PORT, SHARE_PORT, 10205, 10141, 10206, 10150)
    wait_until(lambda: not any(map(listens, ports)), "the ports to be free")
    wait_until(lambda: not servers_left(), "the servers' processes to end")
