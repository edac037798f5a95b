"""The share listing of a real Samba server, through the real web server and the real tool."""
import base64
import json
from urllib.parse import urlencode

import pytest

from loopback import free_port
from samba_server import PASSWORD, USER, SambaServer

TOOL_FAILED = 1  # its exit status, whatever the reason
PLATFORM = ["HaldenAppData", "OstraAppData", "OstraAutoSnap", "VeskAutoSnap", "OstraDB",
            "OstraSpace_1", "OstraSpace_"]
# The server knows no difference between upper and lower case, and lists each as it is written.
LISTED = ["cameras", "two words", "Überwachung", "監視", "OstraAppData2", "OstraSpace", "hash # $"]


@pytest.fixture(scope="module")
def samba(tmp_path_factory):
    folder = tmp_path_factory.mktemp("samba")
    folder.chmod(0o755)
    disk = {"path": folder, "comment": "a | b"}
    shares = {name: disk for name in PLATFORM + LISTED}
    shares["hidden"] = {**disk, "browseable": "no"}
    shares["printer"] = {"path": folder, "printable": "yes"}
    with SambaServer(folder / "server", shares) as server:
        yield server


def list_shares(recorder, port, ip="127.0.0.1", user=USER, password=PASSWORD):
    pwd = base64.b64encode(password.encode()).decode()
    query = urlencode({"ip": ip, "port": port, "user": user, "pwd": pwd})
    reply = recorder.call("GET", "share?" + query)
    assert reply.status == 200
    return reply


def assert_refused(reply, words):
    """The tool's own words and exit status are the reply."""
    found = json.loads(reply.body)
    assert sorted(found) == ["mesg", "ret_code"]
    assert words in found["mesg"]
    assert found["mesg"].endswith("\n, ")
    assert found["ret_code"] == TOOL_FAILED


def test_disk_shares_are_listed_and_others_are_not(recorder, samba):
    found = list_shares(recorder, samba.port).json
    assert list(found) == ["ret_code", "mesg", "shareList"]
    assert (found["ret_code"], found["mesg"]) == (0, "Success.")
    assert sorted(found["shareList"]) == sorted(LISTED)


def test_wrong_password_is_the_tool_s_failure(recorder, samba):
    assert_refused(list_shares(recorder, samba.port, password="wrong"), "NT_STATUS_LOGON_FAILURE")


def test_empty_password_is_tried_and_refused_by_the_server(recorder, samba):
    assert_refused(list_shares(recorder, samba.port, password=""), "NT_STATUS_LOGON_FAILURE")


def test_unknown_user_is_the_tool_s_failure(recorder, samba):
    assert_refused(list_shares(recorder, samba.port, user="nobody-here"),
                   "NT_STATUS_LOGON_FAILURE")


def test_closed_port_is_the_tool_s_failure(recorder):
    assert_refused(list_shares(recorder, free_port()), "NT_STATUS_CONNECTION_REFUSED")


# --- values that look like options of the tool ---------------------------------------------------


@pytest.mark.parametrize("ip", ["-x", "--help", "--version", "-?", "--configfile=x"])
def test_ip_that_looks_like_an_option_is_a_host_name(recorder, samba, ip):
    assert_refused(list_shares(recorder, samba.port, ip=ip), f"Connection to {ip} failed")


@pytest.mark.parametrize("port", ["-x", "--help", "--version", "-L127.0.0.1", "x", ""])
def test_port_that_is_no_number_means_the_usual_ports(recorder, port):
    assert_refused(list_shares(recorder, port), "NT_STATUS_CONNECTION_REFUSED")


@pytest.mark.parametrize("user", ["-x", "--help", "-N", "--no-pass", "-A/etc/passwd"])
def test_user_that_looks_like_an_option_is_an_account_name(recorder, samba, user):
    assert_refused(list_shares(recorder, samba.port, user=user), "NT_STATUS_LOGON_FAILURE")
