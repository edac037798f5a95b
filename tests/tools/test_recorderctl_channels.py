"""recorderctl channel: cameras are added, listed, pinned and removed, within their limits."""
import os
import shutil
import tempfile
from pathlib import Path

import pytest

from failures import misused, refused
from state_folder import StateFolder

RECORDINGS = os.getcwd()  # a folder like any other
DOOR = {"index": "3", "guid": "g3", "ip": "192.0.2.3", "name": "Door", "brand": "B", "model": "M",
        "streams": "2", "recordings": RECORDINGS}
LISTED = {**DOOR, "index": 3, "streams": 2, "removed": False}


def words(**changes):
    """The command line that adds the door; an option given as None is left out."""
    options = {**DOOR, **changes}
    return ["channel", "add", *(word for name, value in options.items() if value is not None
                                for word in (f"--{name}", value))]


@pytest.fixture
def door(state):
    assert state.ctl(*words()) == "3\n"
    return state


def channels(state):
    return state.ctl_json("channel", "list")


def test_a_new_recorder_has_no_channels(state):
    assert state.ctl("channel", "list") == state.ctl("channel", "list", "--json") == ""


def test_a_channel_is_listed_with_what_it_was_added_with(door):
    assert channels(door) == [LISTED]


def test_a_row_has_index_presence_name_address_guid_and_folder(door):
    door.ctl(*words(index="4", guid="g4", name="Tab\tand\nline"))
    door.ctl("channel", "remove", "3")
    assert door.ctl("channel", "list") == (
        f"3\tremoved\tDoor\t192.0.2.3\tg3\t{RECORDINGS}\n"
        f"4\tpresent\tTab and line\t192.0.2.3\tg4\t{RECORDINGS}\n")


def test_channels_are_listed_by_index(state):
    for index in ("100", "0", "20"):
        state.ctl(*words(index=index, guid=index))
    assert [channel["index"] for channel in channels(state)] == [0, 20, 100]


@pytest.mark.parametrize("given, stored", [
    ("../tools", RECORDINGS), ("/usr/../usr//./lib", "/usr/lib"), (".", None)])
def test_the_folder_is_stored_as_an_absolute_path(state, given, stored):
    state.ctl(*words(recordings=given))
    assert channels(state)[0]["recordings"] == (stored or os.getcwd() + "/")


@pytest.mark.parametrize("index", ["-1", "128", "x", "", "1.5"])
def test_an_index_out_of_range_is_refused(state, index):
    assert misused(state, *words(index=index)).startswith("--index: ")
    assert channels(state) == []


@pytest.mark.parametrize("streams", ["-1", "17", "x", ""])
def test_a_number_of_streams_out_of_range_is_refused(state, streams):
    assert misused(state, *words(streams=streams)).startswith("--streams: ")
    assert channels(state) == []


@pytest.mark.parametrize("index, streams", [("0", "0"), ("127", "16")])
def test_the_ends_of_the_ranges_are_taken(state, index, streams):
    assert state.ctl(*words(index=index, streams=streams)) == f"{index}\n"
    assert [(channel["index"], channel["streams"]) for channel in channels(state)] == [
        (int(index), int(streams))]


@pytest.mark.parametrize("option", DOOR)
def test_every_option_is_needed(state, option):
    assert misused(state, *words(**{option: None})) == f"--{option} is required"
    assert channels(state) == []


@pytest.mark.parametrize("index, guid", [("3", "other"), ("4", "g3")])
def test_an_index_or_guid_in_use_is_refused_and_its_channel_stays(door, index, guid):
    assert refused(door, *words(index=index, guid=guid, name="Other")) == (
        f"index {index} or guid {guid} belongs to another channel")
    assert channels(door) == [LISTED]


# --- folders that cannot be read -----------------------------------------------------------------


def test_a_folder_that_is_not_there_is_refused_and_taken_by_force(state, tmp_path):
    later = tmp_path / "later"
    problem = f"{later} cannot be read: No such file or directory"
    assert refused(state, *words(recordings=str(later))) == (
        f"{problem}; --force adds the channel all the same")
    assert channels(state) == []
    state.ctl(*words(recordings=str(later)), "--force")
    assert channels(state) == [{**LISTED, "recordings": str(later), "recordings_problem": problem}]


def test_a_file_is_no_folder_of_recordings(state):
    assert f"{__file__} cannot be read: Not a directory" in refused(
        state, *words(recordings=__file__))


def test_the_list_says_which_folders_are_missing_now(state, tmp_path):
    folder = tmp_path / "camera"
    folder.mkdir()
    state.ctl(*words(recordings=str(folder)))
    assert channels(state) == [{**LISTED, "recordings": str(folder)}]
    folder.rmdir()
    assert state.ctl("channel", "list") == (
        f"3\tpresent\tDoor\t192.0.2.3\tg3\t{folder}\t"
        f"{folder} cannot be read: No such file or directory\n")


@pytest.fixture
def others(tmp_path_factory):
    """The state of a recorder with a user of its own, and a folder of root's."""
    if os.geteuid() != 0:
        pytest.skip("needs root")
    with tempfile.TemporaryDirectory() as place:
        os.chmod(place, 0o755)
        state, recordings = Path(place) / "state", Path(place) / "recordings"
        state.mkdir(mode=0o700)
        recordings.mkdir(mode=0o700)
        shutil.chown(state, 4711, 4712)
        recorder = StateFolder(state)
        # A sanitizer cannot look for leaks in a process that has changed its user.
        recorder.environment["ASAN_OPTIONS"] = "detect_leaks=0"
        yield recorder.init(), recordings


def test_a_folder_that_only_the_daemons_right_to_read_opens_is_taken_from_root(others):
    state, recordings = others
    state.ctl(*words(recordings=str(recordings)))
    assert "recordings_problem" not in channels(state)[0]
    assert {path.stat().st_uid for path in state.path.iterdir()} == {4711}


# --- remove --------------------------------------------------------------------------------------


def test_a_removed_channel_is_printed_and_listed_as_removed(door):
    assert door.ctl("channel", "remove", "3") == "3\n"
    assert channels(door) == [{**LISTED, "removed": True}]


def test_a_removed_channel_keeps_its_pinned_states(door):
    door.ctl("channel", "state", "3", "0,7")
    door.ctl("channel", "remove", "3")
    assert channels(door) == [{**LISTED, "removed": True, "state": [0, 7]}]


def test_a_channel_that_is_not_there_cannot_be_removed(door):
    assert refused(door, "channel", "remove", "4") == "there is no channel 4"
    door.ctl("channel", "remove", "3")
    assert refused(door, "channel", "remove", "3") == "there is no channel 3"


def test_a_removed_channel_comes_back_when_it_is_added_again(door):
    door.ctl("channel", "remove", "3")
    door.ctl(*words(index="5", name="Gate"))
    assert channels(door) == [{**LISTED, "index": 5, "name": "Gate"}]


def test_the_index_of_a_removed_channel_is_free_for_another(door):
    door.ctl("channel", "remove", "3")
    door.ctl(*words(guid="other"))
    assert [(channel["guid"], channel["removed"]) for channel in channels(door)] == [
        ("other", False), ("g3", True)]


# --- state ---------------------------------------------------------------------------------------


@pytest.mark.parametrize("text, states", [("0", [0]), ("0,7", [0, 7]), ("7,0,4", [7, 0, 4]),
                                          (",".join("7" * 16), [7] * 16)])
def test_pinned_states_are_printed_and_listed(door, text, states):
    assert door.ctl("channel", "state", "3", text) == f"{text}\n"
    assert channels(door) == [{**LISTED, "state": states}]


def test_auto_takes_the_pin_out_again(door):
    door.ctl("channel", "state", "3", "7")
    assert door.ctl("channel", "state", "3", "auto") == "auto\n"
    assert channels(door) == [LISTED]


@pytest.mark.parametrize("text", ["x", "-1", "0,x", "0,-1", "1.5", "Auto"])
def test_a_state_that_is_no_number_is_refused(door, text):
    assert refused(door, "channel", "state", "3", text) == (
        "a state is a number such as 0 (connected) or 7 (disconnected)")
    assert channels(door) == [LISTED]


def test_more_states_than_a_channel_has_streams_are_refused(door):
    assert refused(door, "channel", "state", "3", ",".join("0" * 17)) == (
        "a channel has at most 16 streams")
    assert channels(door) == [LISTED]


def test_a_channel_that_is_not_there_cannot_be_pinned(door):
    assert refused(door, "channel", "state", "4", "0") == "there is no channel 4"
    door.ctl("channel", "remove", "3")
    assert refused(door, "channel", "state", "3", "0") == "there is no channel 3"


@pytest.mark.parametrize("line, missing", [(["remove"], "N"), (["state"], "N"),
                                           (["state", "3"], "STATES")])
def test_a_missing_word_is_named(state, line, missing):
    assert misused(state, "channel", *line) == f"{missing} is required"


def test_an_index_that_is_no_number_is_refused(door):
    for line in (["remove", "x"], ["state", "x", "0"]):
        assert misused(door, "channel", *line) == "Could not convert: N = x"
    assert channels(door) == [LISTED]
