"""recorderctl event: the log is listed, newest first and not more of it than asked for."""
import pytest

from failures import misused

MARCH = 1709297110000  # 2024-03-01 13:45:10 +01:00
JULY = 1720000000000  # 2024-07-03 11:46:40 +02:00


def add_numbered(state, count):
    for number in range(count):
        state.add_event("23150001", MARCH + number, "System", "", str(number))


def numbers(state, *words):
    return [int(event["arguments"][0]) for event in state.ctl_json("event", "list", *words)]


def test_a_new_recorder_has_no_events(state):
    assert state.ctl("event", "list") == state.ctl("event", "list", "--json") == ""


def test_an_event_is_listed_with_identifier_time_user_address_and_arguments(state):
    state.add_event("62040001", MARCH + 123, "admin", "192.0.2.1", "Recording Backup", "Tür")
    assert state.events() == [{
        "id": 0x62040001, "entry": 1, "time": MARCH + 123, "channel": -1, "user": "admin",
        "ip": "192.0.2.1", "arguments": ["Recording Backup", "Tür"]}]


def test_a_row_tells_the_local_time_and_the_identifier_in_eight_digits(state):
    state.add_event("62040001", MARCH + 999, "admin", "192.0.2.1", "Recording Backup", "Doors")
    state.add_event("1a", JULY, "System", "")
    assert state.ctl("event", "list") == (
        "0x0000001a\t2024-07-03 11:46:40\tSystem\t\n"
        "0x62040001\t2024-03-01 13:45:10\tadmin\t192.0.2.1\tRecording Backup\tDoors\n")


def test_control_characters_in_a_row_are_blanks(state):
    state.add_event("62040001", MARCH, "a\tb", "", "line\nend", "\x1b[31m\x01")
    assert state.ctl("event", "list") == (
        "0x62040001\t2024-03-01 13:45:10\ta b\t\tline end\t [31m \n")


def test_newest_events_come_first(state):
    add_numbered(state, 3)
    assert numbers(state) == [2, 1, 0]
    assert [event["entry"] for event in state.events()] == [3, 2, 1]


def test_hundred_events_are_listed_unless_told_otherwise(state):
    add_numbered(state, 101)
    assert numbers(state) == list(range(100, 0, -1))
    assert len(state.ctl("event", "list").splitlines()) == 100
    assert len(numbers(state, "--limit", "1000")) == 101


@pytest.mark.parametrize("limit, listed", [("0", []), ("1", [2]), ("2", [2, 1]), ("3", [2, 1, 0]),
                                           ("2147483647", [2, 1, 0])])
def test_no_more_than_the_limit_is_listed(state, limit, listed):
    add_numbered(state, 3)
    assert numbers(state, "--limit", limit) == listed


@pytest.mark.parametrize("limit", ["-1", "x", "", "2147483648"])
def test_a_limit_that_is_no_number_is_refused(state, limit):
    assert "--limit" in misused(state, "event", "list", "--limit", limit)
