"""The sandbox keeps the machine untouched, hands on what it should, and leaves nothing behind."""
import os
import signal
import subprocess
import uuid
from pathlib import Path

import pytest

from places import SOURCE
from processes import processes
from waiting import SECONDS, wait_until

SANDBOX = SOURCE / "scripts/sandbox"

pytestmark = pytest.mark.skipif(os.environ.get("RECORDER_IN_PLACE") == "1",
                                reason="there is no sandbox when running in place")


def inside(*options, script):
    return subprocess.run([SANDBOX, *options, "--", "bash", "-c", script], text=True,
                          capture_output=True, timeout=SECONDS, check=False)


def is_running(mark):
    """Whether any process has this text in its command line."""
    return any(mark.encode() in command for _, command in processes())


@pytest.mark.parametrize("folder", ["/share", "/storage", "/home/httpd", "/Zdbglog", "/mnt", "/tmp",
                                    "/var/lib/recorder", "/etc", "/usr/local"])
def test_what_is_written_inside_is_not_seen_outside(folder):
    file = Path(folder) / f"sandbox-test-{uuid.uuid4()}"
    done = inside(script=f"echo x >{file} && cat {file}")
    assert done.stdout == "x\n", done.stderr
    assert not file.exists()


def test_the_fixed_paths_are_there_and_empty():
    folders = ["/share", "/storage", "/home/httpd", "/Zdbglog", "/var/lib/recorder", "/mnt", "/tmp"]
    for folder in folders:
        if Path(folder) not in SOURCE.parents:  # the source tree is to be seen
            done = inside(script=f"ls -A {folder}")
            assert (done.returncode, done.stdout) == (0, "")


def test_the_state_folder_outlives_the_sandbox(tmp_path):
    state = tmp_path / "a state"
    assert inside("--state", state, script="echo kept >/var/lib/recorder/file").returncode == 0
    assert (state / "file").read_text() == "kept\n"
    assert state.stat().st_mode & 0o777 == 0o700
    assert inside("--state", state, script="cat /var/lib/recorder/file").stdout == "kept\n"


def test_a_bound_folder_is_the_real_one(tmp_path):
    (tmp_path / "file").write_text("real")
    done = inside("--bind", tmp_path, script=f"cat {tmp_path}/file; echo changed >{tmp_path}/file")
    assert done.stdout == "real"
    assert (tmp_path / "file").read_text() == "changed\n"


def test_the_private_network_has_loopback_and_nothing_else():
    done = inside("--net", script="ip -o link | wc -l; ip -o link show up | grep -c LOOPBACK")
    assert done.stdout == "1\n1\n"


def test_a_set_user_id_program_works_inside():
    done = inside(script="install -m 4755 /usr/bin/id /home/httpd/id &&"
                         " setpriv --reuid 33 --clear-groups /home/httpd/id -un")
    assert done.stdout == "root\n", done.stderr


@pytest.mark.parametrize("folder", ["/storage", "/home/httpd", "/usr/bin"])
def test_others_than_root_find_their_way_inside(folder):
    """Also where root keeps what it makes to itself."""
    as_nobody = ["setpriv", "--reuid", "33", "--clear-groups", "test", "-d", folder]
    subprocess.run([SANDBOX, "--", *as_nobody], umask=0o077, timeout=SECONDS, check=True)


def test_the_exit_status_is_the_commands():
    assert inside(script="exit 7").returncode == 7


def test_standard_input_reaches_the_command():
    done = subprocess.run([SANDBOX, "--", "cat"], input="text", text=True, capture_output=True,
                          timeout=SECONDS, check=True)
    assert done.stdout == "text"


def test_a_proxy_of_the_machine_s_is_not_asked_inside(monkeypatch):
    for name in ("http_proxy", "https_proxy", "all_proxy"):
        monkeypatch.setenv(name, "http://127.0.0.1:9/")
        monkeypatch.setenv(name.upper(), "http://127.0.0.1:9/")
    assert inside(script="env | grep -i _proxy=").stdout == ""


def test_sigint_is_not_ignored_inside():
    """A command that a shell starts in the background would ignore it."""
    done = inside(script="python3 -c 'import signal; print(signal.getsignal(signal.SIGINT))'")
    assert "default_int_handler" in done.stdout


@pytest.mark.parametrize("number", [signal.SIGTERM, signal.SIGINT, signal.SIGKILL])
def test_everything_inside_ends_with_the_sandbox(number, tmp_path):
    mark = f"sandbox-test-{uuid.uuid4()}"
    script = (f"setsid bash -c 'exec -a {mark} sleep 1000' & touch {tmp_path}/started;"
              f" exec -a {mark} sleep 1000")
    process = subprocess.Popen([SANDBOX, "--bind", tmp_path, "--", "bash", "-c", script])
    wait_until((tmp_path / "started").exists, "the sandbox's start")
    process.send_signal(number)
    process.wait(SECONDS)
    wait_until(lambda: not is_running(mark), "the end of every process")


@pytest.mark.parametrize("arguments, text", [
    ([], "no command given"),
    (["--nonsense"], "unknown option --nonsense"),
    (["--state"], "--state needs a value"),
])
def test_a_wrong_command_line_gets_one_clear_line(arguments, text):
    done = subprocess.run([SANDBOX, *arguments], text=True, capture_output=True, timeout=SECONDS,
                          check=False)
    assert done.returncode != 0
    assert text in done.stderr
    assert done.stderr.count("\n") == 1
