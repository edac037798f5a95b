"""The server test with the real mount tool, a real kernel and real shares: replies and remains."""
import os
from pathlib import Path

import pytest

import virtual_machine
from places import BUILD, SOURCE
from replies import COMMAND_FAILED, CONNECT_ERROR, PERMISSION_DENIED, UNKNOWN_ERROR

KERNEL = Path(os.environ["RECORDER_KERNEL"])

HEADERS = "Status: 200 OK\r\nContent-type: application/json\r\n\r\n"
SUCCESS = HEADERS + '{ "ret_code": 0, "mesg": "Success.", "transferRate": "%d" }\n\n'
FAILURE = HEADERS + '{ "ret_code": %d.0, "mesg": "Test mount remote server fail." }\n\n'

FOLDER_NOT_MADE = -1


@pytest.fixture(scope="module")
def cases(tmp_path_factory):
    unavailable = KERNEL / "unavailable"
    if unavailable.exists():
        pytest.skip("no kernel to boot: " + unavailable.read_text().strip())
    assert (KERNEL / "vmlinuz").exists(), f"run tests/kernel_mount/prepare {KERNEL} first"
    return virtual_machine.boot(KERNEL, BUILD, SOURCE, tmp_path_factory.mktemp("guest"))


@pytest.fixture
def case(request, cases):
    """One case; whatever became of it, these hold."""
    found = cases[request.param]
    assert found["errors"] == ""
    assert found["tmp"] == [".recording_backup_mnt_info"]  # no output file of the mount tool
    assert (found["credentials"]["mode"], found["credentials"]["owner"]) == ("0o100600", 0)
    assert not found["password_in_debug_file"]
    assert found["shares"]["readonly"] == []
    assert found["shares"]["full"] == ["ballast"]
    return found


def of(name):
    """The test is about this case."""
    return pytest.mark.parametrize("case", [name], indirect=True)


def rate_of(case):
    """The rate of a success, of which nothing but the credentials file remains."""
    rate = int(case["output"].partition('"transferRate": "')[2].partition('"')[0])
    assert case["output"] == SUCCESS % rate
    assert case["status"] == 0
    assert (case["mounts"], case["mount_points"], case["storage"]) == ([], [], [])
    return rate


def assert_failed(case, code):
    assert case["output"] == FAILURE % code
    assert case["status"] == code & 0xFF


def assert_nothing_mounted(case):
    assert (case["mounts"], case["mount_points"], case["storage"]) == ([], [], [])
    assert case["shares"]["public"] == []


def assert_only_a_folder_stays(case):
    """The mounts have gone with the program; where they were, an empty folder is left."""
    assert case["mounts"] == []
    assert len(case["mount_points"]) == 1


# --- a share that works --------------------------------------------------------------------------


@of("share")
def test_share_that_works_gives_its_rate_and_is_left_as_it_was(case):
    assert rate_of(case) > 0
    assert case["shares"]["public"] == []
    assert case["credentials"]["text"] == "username=backup\npassword=p@ss, 100% wörd"


@of("folders")
def test_folders_are_made_one_below_the_other(case):
    assert rate_of(case) > 0
    assert case["shares"]["public"] == ["a", "a/b"]


@of("existing folders")
def test_folders_that_exist_are_used(case):
    assert rate_of(case) > 0
    assert case["shares"]["public"] == ["a", "a/b"]


@of("full share")
def test_share_without_a_free_byte_passes_and_keeps_no_test_file(case):
    assert rate_of(case) > 0


@of("folder name is a file's")
def test_file_in_the_folder_s_place_counts_as_existing(case):
    assert rate_of(case) > 0


# --- a share that cannot be mounted --------------------------------------------------------------


@pytest.mark.parametrize("case", ["wrong password", "empty password", "unknown user"],
                         indirect=True)
def test_account_that_the_server_refuses_is_permission_denied(case):
    assert_failed(case, PERMISSION_DENIED)
    assert_nothing_mounted(case)
    assert case["tool_words"] == ["mount error(13): Permission denied"] * 2


@of("unknown share")
def test_share_that_does_not_exist_is_an_unknown_error(case):
    assert_failed(case, UNKNOWN_ERROR)
    assert_nothing_mounted(case)
    assert case["tool_words"] == ["mount error(2): No such file or directory"] * 2


@of("port closed")
def test_closed_port_is_a_connect_error(case):
    assert_failed(case, CONNECT_ERROR)
    assert_nothing_mounted(case)
    assert len(case["tool_words"]) == 2
    assert "Unable to find suitable address." in case["tool_words"][0]


@of("port closed at an address with 13")
def test_closed_port_at_an_address_with_13_in_it_reads_as_permission_denied(case):
    """The tool names the address in its line, and the digits 13 are looked for first."""
    assert_failed(case, PERMISSION_DENIED)
    assert_nothing_mounted(case)
    assert "mount error(111): could not connect to 127.0.0.13" in case["tool_words"][1]


@of("unknown host")
def test_name_that_does_not_resolve_is_an_unknown_error(case):
    assert_failed(case, UNKNOWN_ERROR)
    assert_nothing_mounted(case)
    assert "could not resolve address" in case["tool_words"][1]


@of("server hangs up")
def test_server_that_hangs_up_is_an_unknown_error(case):
    assert_failed(case, UNKNOWN_ERROR)
    assert_nothing_mounted(case)


@of("network unreachable")
def test_network_without_a_route_is_an_unknown_error(case):
    assert_failed(case, UNKNOWN_ERROR)
    assert_nothing_mounted(case)


@of("server unreachable")
def test_unreachable_host_reads_as_permission_denied(case):
    """The tool's error 113 holds the digits 13, which are looked for first."""
    assert_failed(case, PERMISSION_DENIED)
    assert_nothing_mounted(case)
    assert "mount error(113)" in case["tool_words"][1]


# --- a share that cannot be written --------------------------------------------------------------


@of("read-only share")
def test_share_that_cannot_be_written_fails_and_the_local_test_file_stays(case):
    assert_failed(case, COMMAND_FAILED)
    assert_only_a_folder_stays(case)
    assert case["storage"] == ["rec_bak_test"]


@of("read-only share, folder")
def test_folder_that_cannot_be_made_fails_and_nothing_stays_mounted(case):
    assert_failed(case, FOLDER_NOT_MADE)
    assert_only_a_folder_stays(case)
    assert case["storage"] == []


# --- what a hostile request or server could reach ------------------------------------------------


@of("folder beside")
def test_folder_above_another_is_reached_within_the_share(case):
    assert rate_of(case) > 0
    assert case["shares"]["public"] == ["a", "b"]


@pytest.mark.parametrize("case", ["folder outside", "folder through a link"], indirect=True)
def test_folder_outside_the_share_is_not_made(case):
    assert_failed(case, FOLDER_NOT_MADE)
    assert_only_a_folder_stays(case)
    assert case["storage"] == []


@pytest.mark.parametrize("case", ["set-user-ID by name", "set-user-ID by password"], indirect=True)
def test_options_in_an_account_s_name_leave_nothing_mounted(case):
    assert_failed(case, FOLDER_NOT_MADE)
    assert_only_a_folder_stays(case)


def test_mount_is_seen_by_nobody_else_and_made_harmless(cases):
    watched = cases["watched"]
    assert rate_of({**watched, "status": 0, "mount_points": [], "storage": []}) > 0
    assert watched["others"] == []
    assert watched["options"] == [["nodev", "noexec", "nosuid"]]
    assert watched["modes"] == ["file_mode=04755"]  # the account's name did become an option


def test_mount_of_a_killed_test_goes_with_it(cases):
    assert cases["killed"]["sessions"] > 0
    assert cases["killed"]["mounts"] == []


def test_tests_at_once_use_their_own_accounts(cases):
    outputs = cases["at once"]["outputs"]
    assert len(outputs) == 6
    assert ["Success." in output for output in outputs] == [True] * 6, outputs
