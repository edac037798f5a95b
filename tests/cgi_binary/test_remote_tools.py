"""The server test over stand-in tools: their exact calls, and whatever tools can do."""
import copy
import json
import os
import stat
import threading
from concurrent.futures import ThreadPoolExecutor

import pytest

from places import CREDENTIALS, DEBUG_FILE
from processes import is_running
from replies import (COMMAND_FAILED, CONNECT_ERROR, INVALID_VALUE, PARSE_FAIL, PERMISSION_DENIED,
                     UNKNOWN_ERROR, error)
from stand_in_tools import (LOCAL_FILE, MISSING, MOUNTS, TEN_MEBIBYTES, StandInTools, empty_places,
                            leftovers, list_shares)
from waiting import wait_until

CREDENTIALS_FAILED = 0x950A000F
RESULT_FILE_FAILED = 0x950A0010
HOST_DOWN = 0x950A0011
FOLDER_NOT_MADE = -1
TIMED_OUT = 124
NOBODY = 65534

ENVIRONMENT = ["PATH=/usr/sbin:/usr/bin:/sbin:/bin", "LC_ALL=C.UTF-8"]
OPTIONS = ",port=445,file_mode=0664,dir_mode=0755%s,credentials=/tmp/.recording_backup_mnt_info"
SMB3 = ",vers=3.0"
SERVER = {"serverIP": "192.0.2.7", "port": 445, "username": "backup", "password": "the password",
          "destPath": "/share"}

MOUNT_POINT = "from pathlib import Path; point = Path(arguments[1]); "
REMOTE_FILE = MOUNT_POINT + "remote = point / point.name.split('-')[1]; "


def check_server(remote, **changes):
    return remote.request("PUT", "/server/testing", json.dumps({**SERVER, **changes}))


def assert_passed(result):
    before, _, rate = result.text.partition('"transferRate": ')
    assert before == '{ "ret_code": 0, "mesg": "Success.", '
    assert int(rate.removesuffix(' }').strip('"')) != 0
    assert result.status == 0
    assert list(MOUNTS.iterdir()) == []
    assert not LOCAL_FILE.exists()


def assert_failed(result, code):
    assert result.text == error(code, "Test mount remote server fail.")
    assert result.status == code & 0xFF


def mount_point():
    """The one mount point that stayed."""
    (point,) = MOUNTS.iterdir()
    return point


# --- how the tools are called --------------------------------------------------------------------


def test_mount_and_unmount_get_exactly_their_arguments(remote, tools):
    assert_passed(check_server(remote))
    mount, unmount = tools.calls()
    point = mount["arguments"][1]
    assert point.startswith("/mnt/Remote_Server_Test-")
    assert mount["arguments"] == ["//192.0.2.7/share", point, "-o", OPTIONS % ""]
    assert (unmount["tool"], unmount["arguments"]) == ("umount", [point])


def test_failed_mount_is_tried_once_more_with_version_three(remote, tools):
    tools.install("mount.cifs", "say('no')")
    assert_failed(check_server(remote), UNKNOWN_ERROR)
    first, second = tools.calls()
    assert first["arguments"][3] == OPTIONS % ""
    assert second["arguments"][3] == OPTIONS % SMB3
    assert first["arguments"][:3] == second["arguments"][:3]


def test_second_attempt_alone_decides(remote, tools):
    tools.install("mount.cifs", f"if '{SMB3}' not in arguments[3]: say('mount error(13)')")
    assert_passed(check_server(remote))
    assert len(tools.calls("mount.cifs")) == 2
    tools.install("mount.cifs",
                  f"say('mount error(112)' if '{SMB3}' in arguments[3] else 'mount error(13)')")
    assert_failed(check_server(remote), HOST_DOWN)


def test_tools_run_as_root_with_two_variables_no_input_and_no_further_files(remote, tools):
    check_server(remote)
    list_shares(remote)
    calls = tools.calls()
    assert [call["tool"] for call in calls] == ["mount.cifs", "umount", "smbclient"]
    for call in calls:
        assert call["environment"] == ENVIRONMENT
        assert call["input"] == ""
        assert call["files"] == 4  # the three standard ones, and the folder being read
        assert call["users"] == [0, 0, 0]


@pytest.mark.parametrize("text", ["-o", "--help", "$(reboot)", "a b;`id`|&", "'\"\\", "é\n\tü", "",
                                  "%s%n"])
def test_values_reach_the_mount_tool_as_they_are(remote, tools, text):
    check_server(remote, serverIP=text, username=text, password=text)
    call = tools.calls("mount.cifs")[0]
    assert call["arguments"][0].encode("latin-1").decode() == f"//{text}/share"
    assert call["credentials"].encode("latin-1").decode() == f"username={text}\npassword={text}"
    assert call["arguments"][2:] == ["-o", OPTIONS % ""]


@pytest.mark.parametrize("path, share, folders", [
    ("share", "share", []), ("/share", "share", []), ("", "", []), ("/", "", []),
    ("/share/", "share", []), ("/share/a//b/", "share", ["a", "a/b"]), ("//a", "", ["a"]),
    ("/-o/-p/ ", "-o", ["-p", "-p/ "])])
def test_destination_is_a_share_and_the_folders_on_it(remote, tools, path, share, folders):
    tools.install("umount", "sys.exit(1)")  # so that the folders can be seen
    assert_failed(check_server(remote, destPath=path), COMMAND_FAILED)
    assert tools.calls("mount.cifs")[0]["arguments"][0] == f"//192.0.2.7/{share}"
    point = mount_point()
    assert sorted(str(found.relative_to(point)) for found in point.rglob("*")) == folders


@pytest.mark.parametrize("port", [-1, 0, 2147483647, -2147483648])
def test_port_is_passed_on_as_a_number(remote, tools, port):
    check_server(remote, port=port)
    assert f",port={port},file_mode" in tools.calls("mount.cifs")[0]["arguments"][3]


@pytest.mark.parametrize("changes, code", [
    ({"port": "445"}, PARSE_FAIL), ({"password": None}, PARSE_FAIL),
    *(({"destPath": f"/sha{character}re"}, INVALID_VALUE) for character in '"\\:|*?<>')])
def test_refused_request_calls_no_tool_and_leaves_nothing(remote, tools, changes, code):
    assert_failed(check_server(remote, **changes), code)
    assert tools.calls() == []
    assert list(MOUNTS.iterdir()) == []
    assert not CREDENTIALS.exists()


# --- the credentials file ------------------------------------------------------------------------


def test_user_and_password_reach_the_tool_through_a_private_file_only(remote, tools):
    os.umask(0)
    try:
        check_server(remote, username="a user", password="p,w=%x\\")
    finally:
        os.umask(0o022)
    call = tools.calls("mount.cifs")[0]
    assert call["credentials"] == "username=a user\npassword=p,w=%x\\"
    assert call["credentials_mode"] == "0o100600"
    assert (call["credentials_owner"], call["credentials_links"]) == (0, 1)
    for call in tools.calls():
        words = "\0".join(call["arguments"] + call["environment"])
        assert "p,w=%x" not in words and "a user" not in words
    assert "p,w=%x" not in DEBUG_FILE.read_text()


def test_next_test_replaces_the_credentials(remote, tools):
    check_server(remote, password="a long password of the first test")
    check_server(remote, password="short")
    assert CREDENTIALS.read_text() == "username=backup\npassword=short"
    assert stat.filemode(CREDENTIALS.stat().st_mode) == "-rw-------"


def plant(what, victim):
    """Leaves something of another user's in the credentials file's place."""
    if what == "symbolic link":
        CREDENTIALS.symlink_to(victim)
    elif what == "dangling link":
        CREDENTIALS.symlink_to(victim.with_name("nowhere"))
    elif what == "hard link":
        os.link(victim, CREDENTIALS)
    elif what == "fifo":
        os.mkfifo(CREDENTIALS, 0o666)
    else:
        CREDENTIALS.write_text("foreign")
        CREDENTIALS.chmod(0o666)
        os.chown(CREDENTIALS, NOBODY, NOBODY)


@pytest.mark.parametrize("what", ["symbolic link", "dangling link", "hard link", "fifo",
                                  "foreign file"])
def test_credentials_are_never_written_through_what_was_planted(remote, tools, tmp_path, what):
    victim = tmp_path / "victim"
    victim.write_text("precious")
    plant(what, victim)
    assert_passed(check_server(remote))
    call = tools.calls("mount.cifs")[0]
    assert call["credentials"] == "username=backup\npassword=the password"
    assert (call["credentials_mode"], call["credentials_owner"]) == ("0o100600", 0)
    assert call["credentials_links"] == 1
    assert victim.read_text() == "precious"
    assert not victim.with_name("nowhere").exists()


def test_folder_in_the_credentials_file_s_place_is_reported(remote, tools):
    CREDENTIALS.mkdir()
    assert_failed(check_server(remote), CREDENTIALS_FAILED)
    assert tools.calls() == []
    assert list(mount_point().iterdir()) == []
    assert list(CREDENTIALS.iterdir()) == []


# --- what the mount tool says --------------------------------------------------------------------


@pytest.mark.parametrize("words, code", [
    ("mount error(13): Permission denied\n", PERMISSION_DENIED),
    ("mount error(112): Host is down\n", HOST_DOWN),
    ("mount error(115): Operation now in progress\n", CONNECT_ERROR),
    ("Unable to find suitable address.\n", CONNECT_ERROR),
    ("mount error(113): No route to host\n", PERMISSION_DENIED),
    ("112 115 13", PERMISSION_DENIED), ("115 112", HOST_DOWN),
    ("mount error(2): No such file or directory\n", UNKNOWN_ERROR),
    ("\nmount error(13)\n", UNKNOWN_ERROR), ("\xff\x00" + "13", UNKNOWN_ERROR),
    pytest.param("x" * 1021 + "13", PERMISSION_DENIED, id="just within what is read"),
    pytest.param("x" * 1022 + "13", UNKNOWN_ERROR, id="just behind what is read")])
def test_first_line_decides(remote, tools, words, code):
    tools.install("mount.cifs", f"say({words!r}); sys.exit(32)")
    assert_failed(check_server(remote), code)
    assert list(MOUNTS.iterdir()) == []
    assert len(tools.calls("mount.cifs")) == 2
    assert tools.calls("umount") == []


@pytest.mark.parametrize("script", ["say('mount error(13)'); sys.exit(0)",
                                    "sys.stderr.write('mount error(13)')"])
def test_both_outputs_are_read_and_the_exit_status_is_not(remote, tools, script):
    tools.install("mount.cifs", script)
    assert_failed(check_server(remote), PERMISSION_DENIED)


@pytest.mark.parametrize("script", ["sys.exit(32)", "os.kill(os.getpid(), signal.SIGKILL)",
                                    "os.kill(os.getpid(), signal.SIGSEGV)", MISSING])
def test_mount_tool_without_a_word_counts_as_mounted(remote, tools, script):
    tools.install("mount.cifs", script)
    assert_passed(check_server(remote))


def test_mount_tool_that_dies_with_a_word_is_an_unknown_error(remote, tools):
    tools.install("mount.cifs", "say('help'); os.kill(os.getpid(), signal.SIGKILL)")
    assert_failed(check_server(remote), UNKNOWN_ERROR)
    assert list(MOUNTS.iterdir()) == []


@pytest.mark.parametrize("line_end, code", [("", UNKNOWN_ERROR), ("13\n", PERMISSION_DENIED)])
def test_mount_tool_that_prints_ten_mebibytes(remote, tools, line_end, code):
    tools.install("mount.cifs", f"say({line_end!r} + 'x' * {TEN_MEBIBYTES} + '13')")
    assert_failed(check_server(remote), code)
    assert list(MOUNTS.iterdir()) == []


# --- files on the share and beside it ------------------------------------------------------------


def test_test_file_is_five_mebibytes_with_a_zero_at_the_end_of_each_block(remote, tools, tmp_path):
    kept = tmp_path / "kept"
    tools.install("mount.cifs", REMOTE_FILE + f"remote.symlink_to({str(kept)!r})")
    assert_passed(check_server(remote))
    assert kept.read_bytes() == (b"a" * 1023 + b"\0") * 5120


def test_folder_that_cannot_be_made_is_reported_and_nothing_is_unmounted(remote, tools):
    tools.install("mount.cifs", MOUNT_POINT + "(point / 'file').touch()")
    assert_failed(check_server(remote, destPath="/share/file/folder"), FOLDER_NOT_MADE)
    assert [call["tool"] for call in tools.calls()] == ["mount.cifs"] * 2
    assert [path.name for path in mount_point().iterdir()] == ["file"]


def test_local_test_file_that_cannot_be_made_leaves_the_share_mounted(remote, tools):
    LOCAL_FILE.mkdir()
    assert_failed(check_server(remote), COMMAND_FAILED)
    assert [call["tool"] for call in tools.calls()] == ["mount.cifs"]
    assert list(mount_point().iterdir()) == []


def test_remote_test_file_that_cannot_be_made_leaves_share_and_local_file(remote, tools):
    tools.install("mount.cifs", REMOTE_FILE + "remote.mkdir()")
    assert_failed(check_server(remote), COMMAND_FAILED)
    assert [call["tool"] for call in tools.calls()] == ["mount.cifs"]
    assert mount_point().exists()
    assert LOCAL_FILE.read_bytes() == b"a" * 5 * 1024 * 1024


def test_local_test_file_that_vanishes_answers_null_and_leaves_the_remote_file(remote, tools):
    os.mkfifo(LOCAL_FILE)

    def swallow():
        with open(LOCAL_FILE, "rb") as fifo:
            LOCAL_FILE.unlink()  # before the program can have written everything
            while fifo.read(65536):
                pass

    reader = threading.Thread(target=swallow)
    reader.start()
    result = check_server(remote)
    reader.join()
    assert (result.text, result.status) == ("null", RESULT_FILE_FAILED & 0xFF)
    assert [call["tool"] for call in tools.calls()] == ["mount.cifs"]
    point = mount_point()
    assert [path.name for path in point.iterdir()] == [point.name.split("-")[1]]


# --- the unmount tool ----------------------------------------------------------------------------


@pytest.mark.parametrize("script", ["sys.exit(1)", "sys.exit(255)", MISSING,
                                    "os.kill(os.getpid(), signal.SIGTERM)"])
def test_failed_unmount_is_reported_and_keeps_the_mount_point(remote, tools, script):
    tools.install("umount", script)
    assert_failed(check_server(remote), COMMAND_FAILED)
    assert list(mount_point().iterdir()) == []
    assert not LOCAL_FILE.exists()


def test_unmount_tool_may_say_what_it_likes(remote, tools):
    tools.install("umount", f"say('x' * {TEN_MEBIBYTES}); sys.stderr.write('13')")
    assert_passed(check_server(remote))


# --- tools that hang -----------------------------------------------------------------------------

HANG = """
child = subprocess.Popen(["/bin/sleep", "1000"])
Path({pids!r}).write_text(f"{{child.pid}} {{os.getpid()}}")
signal.pause()
"""


def with_hanging(name, program, tmp_path):
    """The program, seeing one tool that never ends and has a child; and a file with their ids."""
    tools = StandInTools(tmp_path / f"{name} hangs")
    pids = tools.folder / "pids"
    tools.install("umount", "sys.exit(32)")
    tools.install(name, HANG.format(pids=str(pids)))
    other = copy.copy(program)
    other.command = tools.around(program.command)
    return other, pids


def test_tools_that_hang_are_ended_with_their_children(program, tmp_path):
    """All three at once, because each takes as long as a tool may take."""
    empty_places()
    requests = {"mount.cifs": check_server, "umount": check_server, "smbclient": list_shares}
    programs = {name: with_hanging(name, program, tmp_path) for name in requests}
    started = {}
    with ThreadPoolExecutor() as at_once:
        for name, request in requests.items():
            started[name] = at_once.submit(request, programs[name][0])
            # Two of the same millisecond would share a mount point.
            wait_until(programs[name][1].exists, f"{name}'s start")
    results = {name: request.result() for name, request in started.items()}
    # A mount tool without a word counts as mounted; then there is nothing to unmount.
    assert_failed(results["mount.cifs"], COMMAND_FAILED)
    assert_failed(results["umount"], COMMAND_FAILED)
    assert results["smbclient"].text == error(TIMED_OUT, "")
    assert len(list(MOUNTS.iterdir())) == 2
    for _, pids in programs.values():
        assert not any(is_running(pid) for pid in pids.read_text().split())
    assert leftovers() == []
