"""recorderctl user and session: accounts, and the sessions that are opened for them."""
import re
import sqlite3
import time
from contextlib import closing

import pytest

from failures import misused, refused


def registry(state, sql):
    with closing(sqlite3.connect(state.path / "registry.db")) as connection:
        return connection.execute(sql).fetchall()


def users(state):
    return state.ctl("user", "list")


# --- user ----------------------------------------------------------------------------------------


def test_a_new_recorder_has_no_users(state):
    assert users(state) == state.ctl("user", "list", "--json") == ""


def test_an_added_user_is_printed_and_an_administrator_unless_told_otherwise(state):
    assert state.ctl("user", "add", "admin", given="secret of mine\n") == "admin\n"
    assert state.ctl("user", "add", "guest", "--level", "0", given="secret of mine\n") == "guest\n"
    assert users(state) == "admin\t11\nguest\t0\n"


def test_users_are_listed_by_name_as_json_objects(state):
    for name, level in (("zoë", 3), ("admin", 4294967295)):
        state.add_user(name, level)
    assert state.ctl_json("user", "list") == [{"name": "admin", "level": 4294967295},
                                              {"name": "zoë", "level": 3}]


def test_a_name_that_is_taken_is_refused_and_its_user_stays(state):
    state.add_user("admin", 3)
    before = registry(state, "SELECT * FROM user")
    assert refused(state, "user", "add", "admin", given="another secret\n") == (
        "there is a user admin already")
    assert registry(state, "SELECT * FROM user") == before


def test_a_removed_user_is_printed_and_gone_with_the_sessions(state):
    state.add_user("admin")
    state.add_user("guest")
    sid, other = state.open_session("admin"), state.open_session("guest")
    assert state.ctl("user", "remove", "admin") == "admin\n"
    assert users(state) == "guest\t11\n"
    assert refused(state, "session", "close", sid) == "there is no such session"
    assert state.ctl("session", "close", other) == "closed\n"


def test_an_unknown_user_cannot_be_removed(state):
    assert refused(state, "user", "remove", "nobody") == "there is no user nobody"


@pytest.mark.parametrize("name", ["", "a\nb", "\x7f", "n" * 1024, "ü" * 512])
def test_a_name_that_is_no_name_is_refused_before_the_password_is_read(state, name):
    assert refused(state, "user", "add", name) == (
        "a user name has 1 to 1023 bytes and no control characters")
    assert users(state) == ""


@pytest.mark.parametrize("name", ["n" * 1023, "two words", "o'Brien \"%s\"", "-"])
def test_any_other_name_is_taken(state, name):
    state.add_user(name)
    assert state.ctl_json("user", "list") == [{"name": name, "level": 11}]


@pytest.mark.parametrize("level", ["", "-1", "x", "1.5", "4294967296"])
def test_a_level_that_is_no_number_is_refused(state, level):
    assert "--level" in misused(state, "user", "add", "admin", "--level", level)
    assert users(state) == ""


@pytest.mark.parametrize("command", ["add", "remove"])
def test_a_user_needs_a_name(state, command):
    assert misused(state, "user", command) == "NAME is required"


def test_the_password_is_stored_as_a_hash_alone(state):
    for name in ("admin", "guest"):
        state.ctl("user", "add", name, given="the same password\n")
    hashes = {row[0] for row in registry(state, "SELECT password_hash FROM user")}
    assert len(hashes) == 2
    assert all(hash_.startswith("$argon2id$") for hash_ in hashes)
    for file in state.path.glob("registry.db*"):
        assert b"the same password" not in file.read_bytes()


@pytest.mark.parametrize("given", ["", "\n", "\nsecond line\n"])
def test_a_user_without_a_password_is_refused(state, given):
    assert refused(state, "user", "add", "admin", given=given) == "no password on standard input"
    assert users(state) == ""


@pytest.mark.parametrize("password", ["a", "nine char", "ü" * 9])
@pytest.mark.parametrize("command", ["add", "password"])
def test_a_password_of_less_than_ten_characters_is_refused(state, command, password):
    state.add_user("admin")
    before = registry(state, "SELECT * FROM user")
    name = {"add": "guest", "password": "admin"}[command]
    assert refused(state, "user", command, name, given=password + "\n") == (
        "a password has at least 10 characters")
    assert registry(state, "SELECT * FROM user") == before


@pytest.mark.parametrize("password", ["0123456789", "ü" * 10, " " * 10])
def test_a_password_of_ten_characters_is_taken(state, password):
    state.ctl("user", "add", "admin", given=password + "\n")
    assert users(state) == "admin\t11\n"


def test_another_password_takes_the_place_of_the_first_and_ends_that_users_sessions(state):
    for name in ("admin", "guest"):
        state.add_user(name, 3)
    before = dict(registry(state, "SELECT name, password_hash FROM user"))
    sid, other = state.open_session("admin"), state.open_session("guest")
    assert state.ctl("user", "password", "admin", given="another secret\n") == "admin\n"
    after = dict(registry(state, "SELECT name, password_hash FROM user"))
    assert after["guest"] == before["guest"] and after["admin"] != before["admin"]
    assert after["admin"].startswith("$argon2id$")
    assert users(state) == "admin\t3\nguest\t3\n"
    assert refused(state, "session", "close", sid) == "there is no such session"
    assert state.ctl("session", "close", other) == "closed\n"


def test_an_unknown_users_password_is_not_asked_for(state):
    assert refused(state, "user", "password", "nobody") == "there is no user nobody"


def test_what_is_stored_as_no_utf8_is_printed_as_utf8(state):
    state.ctl("user", "add", b"M\xfcller", given="secret of mine\n")
    state.ctl("user", "add", b"a\xff\xfeb", given="secret of mine\n")
    assert users(state) == "M\ufffdller\t11\na\ufffd\ufffdb\t11\n"
    assert [user["name"] for user in state.ctl_json("user", "list")] == [
        "M\ufffdller", "a\ufffd\ufffdb"]
    assert state.ctl("user", "remove", b"M\xfcller") == "M\ufffdller\n"


# --- session -------------------------------------------------------------------------------------


def test_an_opened_session_is_printed_as_its_sid(state):
    state.add_user("admin")
    sids = {state.ctl("session", "open", "admin") for _ in range(3)}
    assert len(sids) == 3
    assert all(re.fullmatch(r"[0-9a-f]{32}\n", sid) for sid in sids)


@pytest.mark.parametrize("words, minutes", [([], 60), (["--minutes", "1"], 1),
                                            (["--minutes", "527040"], 527040)])
def test_a_session_ends_after_its_minutes(state, words, minutes):
    state.add_user("admin")
    before = int(time.time() * 1000)
    state.ctl("session", "open", "admin", *words)
    after = int(time.time() * 1000) + 1
    (expires,), = registry(state, "SELECT expires_ms FROM session")
    assert before <= expires - minutes * 60_000 <= after


@pytest.mark.parametrize("minutes", ["0", "-1", "527041", "x", ""])
def test_a_session_of_no_time_or_more_than_a_year_is_refused(state, minutes):
    state.add_user("admin")
    assert "--minutes" in misused(state, "session", "open", "admin", "--minutes", minutes)
    assert registry(state, "SELECT * FROM session") == []


def test_a_session_of_an_unknown_user_is_refused(state):
    assert refused(state, "session", "open", "nobody") == "there is no user nobody"
    assert registry(state, "SELECT * FROM session") == []


def test_a_session_is_closed_once_and_the_others_stay(state):
    state.add_user("admin")
    first, second = state.open_session("admin"), state.open_session("admin")
    assert state.ctl("session", "close", first) == "closed\n"
    assert refused(state, "session", "close", first) == "there is no such session"
    assert state.ctl("session", "close", second) == "closed\n"


def test_open_sessions_are_listed_without_their_sid(state):
    for name in ("guest", "admin"):
        state.add_user(name)
    assert state.ctl("session", "list") == state.ctl("session", "list", "--json") == ""
    before = int(time.time() * 1000)
    sids = [state.open_session(name) for name in ("guest", "admin")]
    after = int(time.time() * 1000) + 1
    admin, guest = state.ctl_json("session", "list")
    assert (admin["user"], guest["user"]) == ("admin", "guest")
    assert before <= admin["opened"] <= after
    assert admin["expires"] - admin["opened"] == 60 * 60_000
    assert set(admin) == {"user", "opened", "expires"}
    said = state.ctl("session", "list")
    assert re.fullmatch(r"(\w+(\t\d{4}-\d\d-\d\d \d\d:\d\d:\d\d){2}\n){2}", said), said
    assert not any(sid in said for sid in sids)


def test_expired_sessions_are_not_listed_and_those_of_older_versions_since_nobody_knows_when(state):
    state.add_user("admin")
    with closing(sqlite3.connect(state.path / "registry.db")) as connection, connection:
        connection.executemany(
            "INSERT INTO session (sid_hash, user, expires_ms) VALUES (?, 'admin', ?)",
            [("gone", 1), ("open", 1709297110000 + 10**12)])
    assert state.ctl_json("session", "list") == [{"user": "admin",
                                                  "expires": 1709297110000 + 10**12}]
    assert state.ctl("session", "list").startswith("admin\t?\t2055-11-")


def test_a_session_needs_a_name_or_a_sid(state):
    assert misused(state, "session", "open") == "NAME is required"
    assert misused(state, "session", "close") == "SID is required"
