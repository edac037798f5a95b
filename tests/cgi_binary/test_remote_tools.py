"""The server test over stand-in tools: their exact calls, and whatever tools can do."""
import copy
import json
import os
import stat
import time
from concurrent.futures import ThreadPoolExecutor
from pathlib import Path

import pytest

from places import CREDENTIALS, DEBUG_FILE, STORAGE
from processes import is_running
from replies import (COMMAND_FAILED, CONNECT_ERROR, INVALID_VALUE, PARSE_FAIL, PERMISSION_DENIED,
                     UNKNOWN_ERROR, error)
from stand_in_tools import (LOCAL_FILE, MISSING, MOUNTS, REAL_MOUNT, REAL_UNMOUNT, TEN_MEBIBYTES,
                            StandInTools, empty_places, leftovers, list_shares)
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


def plant(what, victim, place=CREDENTIALS):
    """Leaves something of another user's in a file's place."""
    if what == "symbolic link":
        place.symlink_to(victim)
    elif what == "dangling link":
        place.symlink_to(victim.with_name("nowhere"))
    elif what == "hard link":
        os.link(victim, place)
    elif what == "fifo":
        os.mkfifo(place, 0o666)
    else:
        place.write_text("foreign")
        place.chmod(0o666)
        os.chown(place, NOBODY, NOBODY)


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


# Notes its call once more when it may go on, with the credentials as they are then.
SLOW_MOUNT = """
while not Path({go!r}).exists():
    time.sleep(0.01)
call["credentials"] = credentials.read_text()
with open({calls!r}, "a") as calls:
    calls.write(json.dumps(call) + "\\n")
"""


def waits_for_a_lock():
    return "-> FLOCK" in Path("/proc/locks").read_text()


def test_tests_at_once_keep_their_credentials_apart(remote, tools, tmp_path):
    go = tmp_path / "go"
    tools.install("mount.cifs", SLOW_MOUNT.format(go=str(go), calls=str(tools.calls_file)))
    with ThreadPoolExecutor() as at_once:
        first = at_once.submit(check_server, remote, username="first", destPath="/first")
        wait_until(lambda: tools.calls("mount.cifs"), "the first test's mount tool")
        second = at_once.submit(check_server, remote, username="second", destPath="/second")
        wait_until(lambda: waits_for_a_lock() or len(tools.calls("mount.cifs")) > 1,
                   "the second test's turn")
        go.touch()
    for result in (first.result(), second.result()):
        assert result.status == 0
    used = [(call["arguments"][0], call["credentials"].splitlines()[0])
            for call in tools.calls("mount.cifs")]
    assert used == [("//192.0.2.7/first", "username=first")] * 2 + [
        ("//192.0.2.7/second", "username=second")] * 2
    assert list(MOUNTS.iterdir()) == []


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
                                    "os.kill(os.getpid(), signal.SIGSEGV)"])
def test_mount_tool_without_a_word_counts_as_mounted(remote, tools, script):
    tools.install("mount.cifs", script)
    assert_passed(check_server(remote))


def test_mount_tool_that_cannot_be_started_is_an_unknown_error(remote, tools):
    tools.install("mount.cifs", MISSING)
    assert_failed(check_server(remote), UNKNOWN_ERROR)
    assert list(MOUNTS.iterdir()) == []
    assert ("strCommandResult: /usr/sbin/mount.cifs: No such file or directory\n"
            in DEBUG_FILE.read_text())


def test_planted_output_is_not_taken_for_the_tool_s(remote, tools):
    tools.install("mount.cifs", "say('mount error(13): Permission denied')")
    now = int(time.time() * 1000)
    planted = [Path(f"/tmp/.recording_backup_mnt_std-{stamp}") for stamp in range(now, now + 20000)]
    for path in planted:
        path.touch()
        os.chown(path, NOBODY, NOBODY)
    result = check_server(remote)
    left = [path for path in planted if path.exists()]
    for path in left:
        path.unlink()
    assert_failed(result, PERMISSION_DENIED)
    assert len(left) == len(planted) - 2  # one an attempt


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
    share = tmp_path / "share"
    share.mkdir()
    tools.install("mount.cifs", REMOTE_FILE + f"""
subprocess.run(["/bin/mount", "--bind", {str(share)!r}, point], check=True)
remote.touch()
os.link(remote, point / "kept")
""")
    tools.install("umount", REAL_UNMOUNT)
    assert_passed(check_server(remote))
    assert [path.name for path in share.iterdir()] == ["kept"]
    assert (share / "kept").read_bytes() == (b"a" * 1023 + b"\0") * 5120


@pytest.mark.parametrize("make", ["remote.symlink_to({victim!r})", "os.mkfifo(remote)",
                                  "subprocess.run(['/bin/mknod', remote, 'c', '1', '3'])"])
def test_test_file_is_written_into_a_file_of_the_share_alone(remote, tools, tmp_path, make):
    victim = tmp_path / "victim"
    victim.write_text("precious")
    tools.install("mount.cifs", REAL_MOUNT + REMOTE_FILE + make.format(victim=str(victim)))
    assert_failed(check_server(remote), COMMAND_FAILED)
    assert victim.read_text() == "precious"


@pytest.mark.parametrize("path", ["/share/..", "/share/../x", "/share/../../storage/x",
                                  "/share/a/../../../storage/x", "/share/way/x",
                                  "/share/a/up/storage/x", "/share/root/storage/x"])
def test_folders_are_never_made_outside_the_share(remote, tools, path):
    tools.install("mount.cifs", REAL_MOUNT + """
(point / "a").mkdir()
(point / "way").symlink_to("/storage")
(point / "a/up").symlink_to("../../..")
(point / "root").symlink_to("/proc/self/root")
""")
    assert_failed(check_server(remote, destPath=path), FOLDER_NOT_MADE)
    assert len(tools.calls("mount.cifs")) == 2
    assert list(mount_point().iterdir()) == []
    assert list(STORAGE.iterdir()) == []


def test_folder_above_another_is_reached_within_the_share(remote, tools):
    tools.install("umount", "sys.exit(1)")  # so that the folders can be seen
    assert_failed(check_server(remote, destPath="/share/a/../b/./c"), COMMAND_FAILED)
    point = mount_point()
    assert sorted(str(path.relative_to(point)) for path in point.rglob("*")) == ["a", "b", "b/c"]


LOOK_AROUND = """
program = os.getppid()
shell = int(Path(f"/proc/{{program}}/stat").read_text().rpartition(")")[2].split()[1])
mounts = [Path(f"/proc/{{pid}}/mounts").read_text() for pid in (program, shell)]
tool = Path(arguments[0], "tool")
try:
    mounts.append(subprocess.run([tool], capture_output=True).returncode)
except PermissionError:
    mounts.append("refused")
Path({seen!r}).write_text(json.dumps(mounts))
sys.exit(1)
"""


def test_mount_is_the_test_s_own_and_nothing_on_it_is_in_effect(program, tools, tmp_path):
    tools.install("mount.cifs", REAL_MOUNT + """
(point / "tool").write_bytes(Path("/bin/true").read_bytes())
(point / "tool").chmod(0o4755)
""")
    seen = tmp_path / "seen"
    tools.install("umount", LOOK_AROUND.format(seen=str(seen)))
    program.command = tools.below_a_shell(program.command)
    assert_failed(check_server(program), COMMAND_FAILED)
    its_own, others, tool = json.loads(seen.read_text())
    (line,) = [line for line in its_own.splitlines() if " /mnt/" in line]
    assert {"nosuid", "nodev", "noexec"} <= set(line.split()[3].split(","))
    assert " /mnt/" not in others
    assert tool == "refused"
    assert list(mount_point().iterdir()) == []
    mount_point().rmdir()  # busy nowhere


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


# Steps at the moment at which the program opens the remote file: it waits for the lease on it.
WHILE_IT_OPENS = REMOTE_FILE + """
import fcntl
remote.touch()
lease = os.open(remote, os.O_RDONLY)
fcntl.fcntl(lease, fcntl.F_SETLEASE, fcntl.F_RDLCK)
if os.fork() == 0:
    while fcntl.fcntl(lease, fcntl.F_GETLEASE) == fcntl.F_RDLCK:
        time.sleep(0.01)
    {steps}
    os._exit(0)
"""


def test_local_test_file_that_vanishes_answers_null_and_leaves_the_remote_file(remote, tools):
    tools.install("mount.cifs", WHILE_IT_OPENS.format(steps=f"os.unlink('{LOCAL_FILE}')"))
    result = check_server(remote)
    assert (result.text, result.status) == ("null", RESULT_FILE_FAILED & 0xFF)
    assert [call["tool"] for call in tools.calls()] == ["mount.cifs"]
    point = mount_point()
    assert [path.name for path in point.iterdir()] == [point.name.split("-")[1]]


def test_local_test_file_of_another_test_is_left_to_it(remote, tools):
    new = f"{LOCAL_FILE}.new"
    steps = f"Path('{new}').write_text('new'); os.rename('{new}', '{LOCAL_FILE}')"
    tools.install("mount.cifs", WHILE_IT_OPENS.format(steps=steps))
    assert check_server(remote).status == 0
    assert LOCAL_FILE.read_text() == "new"


@pytest.mark.parametrize("what", ["symbolic link", "dangling link", "fifo", "foreign file"])
def test_local_test_file_is_never_written_through_what_was_planted(remote, tools, tmp_path, what):
    victim = tmp_path / "victim"
    victim.write_text("precious")
    plant(what, victim, LOCAL_FILE)
    assert_passed(check_server(remote))
    assert victim.read_text() == "precious"
    assert not victim.with_name("nowhere").exists()


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

# A mount tool's first attempt does not, so that it takes no longer than the others.
HANG = """
if {name!r} == "mount.cifs" and {smb3!r} not in arguments[3]:
    sys.exit("no")
child = subprocess.Popen(["/bin/sleep", "1000"])
Path({pids!r}).write_text(f"{{child.pid}} {{os.getpid()}}")
signal.pause()
"""


def with_hanging(name, program, tmp_path):
    """The program, seeing one tool that never ends and has a child; and a file with their ids."""
    tools = StandInTools(tmp_path / f"{name} hangs")
    pids = tools.folder / "pids"
    tools.install("umount", "sys.exit(32)")
    tools.install(name, HANG.format(name=name, smb3=SMB3, pids=str(pids)))
    other = copy.copy(program)
    other.command = tools.around(program.command)
    return other, pids


def test_tools_that_hang_are_ended_with_their_children(program, tmp_path):
    """All three at once, because each takes as long as a tool may take."""
    empty_places()
    requests = {"umount": check_server, "mount.cifs": check_server, "smbclient": list_shares}
    programs = {name: with_hanging(name, program, tmp_path) for name in requests}
    started = {}
    with ThreadPoolExecutor() as at_once:
        for name, request in requests.items():
            started[name] = at_once.submit(request, programs[name][0])
            # Two of the same millisecond would share a mount point.
            wait_until(programs[name][1].exists, f"{name}'s start")
    results = {name: request.result() for name, request in started.items()}
    # A mount tool that was ended has not mounted, although it said nothing itself.
    assert_failed(results["mount.cifs"], UNKNOWN_ERROR)
    assert_failed(results["umount"], COMMAND_FAILED)
    assert results["smbclient"].text == error(TIMED_OUT, "\\/usr\\/bin\\/smbclient: timed out\\n, ")
    assert len(list(MOUNTS.iterdir())) == 1
    # They have all been killed; the kernel takes its time with those that nobody waits for.
    every = [pid for _, pids in programs.values() for pid in pids.read_text().split()]
    wait_until(lambda: not any(map(is_running, every)), "the end of every process")
    assert leftovers() == []
