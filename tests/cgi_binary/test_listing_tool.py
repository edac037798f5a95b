"""The share listing over a stand-in tool: its exact call, and whatever it can say or do."""
import json
import os
import time
from pathlib import Path

import pytest

from replies import INVALID_VALUE, error
from stand_in_tools import MISSING, TEN_MEBIBYTES, list_shares

NOT_STARTED = 127
KILLED = 128 + 9


def shares(*names):
    """The reply with these shares, as text."""
    listed = " " if not names else " " + ", ".join(f'"{name}"' for name in names) + " "
    return '{ "ret_code": 0, "mesg": "Success.", "shareList": [%s] }' % listed


def test_listing_tool_gets_exactly_its_arguments(remote, tools):
    assert list_shares(remote, "192.0.2.7", "1445", "a user", "p%w&d").text == shares()
    (call,) = tools.calls()
    assert call["tool"] == "smbclient"
    assert call["arguments"] == ["-gL", "192.0.2.7", "-p", "1445", "-U", "a user%p%w&d"]


@pytest.mark.parametrize("text", ["-x", "--help", "$(reboot)", "a b;`id`|&", "'\"\\", "é\n\tü", "",
                                  "%s%n"])
def test_values_reach_the_listing_tool_as_they_are(remote, tools, text):
    list_shares(remote, text, text, text, text)
    (call,) = tools.calls()
    given = [argument.encode("latin-1").decode() for argument in call["arguments"]]
    assert given == ["-gL", text, "-p", text, "-U", f"{text}%{text}"]


@pytest.mark.parametrize("missing", ["ip", "port", "user", "pwd"])
def test_missing_parameter_calls_no_tool(remote, tools, missing):
    values = {"ip": "a", "port": "1", "user": "u", "pwd": "cA=="}
    del values[missing]
    query = "&".join(f"{name}={value}" for name, value in values.items())
    result = remote.request("GET", "/share", query=f"sid={remote.sid}&{query}")
    assert result.text == error(-1794506746, "ip | port | user | pwd length is 0")
    assert result.status == INVALID_VALUE & 0xFF
    assert tools.calls() == []


@pytest.mark.parametrize("said, names", [
    ("", ()), ("Disk|public|a comment\n", ("public",)),
    ("IPC|IPC$|x\nDisk|b|\nPrinter|p|\nDisk|a|\n", ("b", "a")),
    ("Disk|only|", ("only",)), ("Disk|no separator\n", ("no separator\\n",)), ("Disk", ("",)),
    ("Disk\n", ("",)), ("disk|a|\n Disk|b|\n\n", ()),
    ("Disk|HaldenAppData|\nDisk|OstraAppData|\nDisk|OstraAutoSnap|\nDisk|VeskAutoSnap|\n"
     "Disk|OstraDB|\nDisk|OstraSpace_|\nDisk|OstraSpace_7|\n", ()),
    ("Disk|OstraAppData2|\nDisk|ostradb|\nDisk|OstraSpace|\n", ("OstraAppData2", "ostradb",
                                                                 "OstraSpace"))])
def test_disk_lines_are_shares_but_for_the_recorder_s_own(remote, tools, said, names):
    tools.install("smbclient", f"say({said!r})")
    result = list_shares(remote)
    assert (result.text, result.status) == (shares(*names), 0)


@pytest.mark.parametrize("script, status, message", [
    ("sys.exit(1)", 1, ""), ("say('NT_STATUS_LOGON_FAILURE\\n'); sys.exit(1)", 1,
                             "NT_STATUS_LOGON_FAILURE\\n, "),
    ("say('a\\nDisk|b|'); sys.exit(255)", 255, "a\\n, Disk|b|, "),
    (MISSING, NOT_STARTED, r"\/usr\/bin\/smbclient: No such file or directory\n, "),
    ("os.kill(os.getpid(), signal.SIGKILL)", KILLED, "")])
def test_failed_listing_gives_the_tool_s_status_and_words(remote, tools, script, status, message):
    tools.install("smbclient", script)
    result = list_shares(remote)
    assert (result.text, result.status) == (error(status, message), status)


def test_listing_of_ten_mebibytes_is_cut_at_ten_thousand_shares(remote, tools):
    count = TEN_MEBIBYTES // 16
    tools.install("smbclient", f"say(''.join(f'Disk|s{{i:07}}|x\\n' for i in range({count})))")
    listed = json.loads(list_shares(remote).text)["shareList"]
    assert listed == [f"s{i:07}" for i in range(10000)]


def test_failed_listing_of_ten_mebibytes_is_passed_on_in_part(remote, tools):
    tools.install("smbclient", f"say('x' * {TEN_MEBIBYTES}); sys.exit(3)")
    result = list_shares(remote)
    assert result.status == 3
    message = json.loads(result.text)["mesg"].replace(", ", "")
    assert set(message) == {"x"}
    assert 65000 < len(message) < 67000


def test_long_comment_adds_no_share(remote, tools):
    tools.install("smbclient", "say('Disk|a|' + 1016 * 'x' + 'Disk|forged|\\nDisk|b|\\n')")
    assert list_shares(remote).text == shares("a", "b")


@pytest.mark.parametrize("script", ["say('Disk|public|\\n')", MISSING])
def test_planted_output_is_not_taken_for_the_tool_s(remote, tools, tmp_path, script):
    secret = tmp_path / "secret"
    secret.write_text("Disk|secret|\n")
    tools.install("smbclient", script)
    now = int(time.time() * 1000)
    planted = [Path(f"/tmp/smb_share_kist-{stamp}") for stamp in range(now, now + 20000)]
    for path in planted:
        path.symlink_to(secret)
    result = list_shares(remote)
    left = [path for path in planted if os.path.lexists(path)]
    for path in left:
        path.unlink()
    assert "secret" not in result.text
    assert result.status == (NOT_STARTED if script is MISSING else 0)
    assert len(left) == len(planted) - 1
    assert secret.read_text() == "Disk|secret|\n"
