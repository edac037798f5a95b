"""recorderctl's state folder: made by init, found by every other command, never made by one."""
import os
import sqlite3
import subprocess
import tempfile
from contextlib import closing
from pathlib import Path

import pytest

from failures import misused, refused
from older_registry import TO_SCHEMA_1
from places import PROGRAMS
from state_folder import StateFolder
from waiting import SECONDS

DATABASES = {"config.db", "registry.db", "events.db"}

# Every command but init, and the database that it works on.
COMMANDS = [
    ("registry.db", ["info"]),
    ("registry.db", ["user", "add", "admin"]), ("registry.db", ["user", "list"]),
    ("registry.db", ["user", "remove", "admin"]), ("registry.db", ["user", "password", "admin"]),
    ("registry.db", ["session", "open", "admin"]), ("registry.db", ["session", "list"]),
    ("registry.db", ["session", "close", "0" * 32]),
    ("registry.db", ["config", "get", "s", "k"]), ("registry.db", ["config", "set", "s", "k", "v"]),
    ("registry.db", ["config", "unset", "s", "k"]),
    ("config.db", ["channel", "add", "--index", "0", "--guid", "g", "--ip", "i", "--name", "n",
                   "--brand", "b", "--model", "m", "--streams", "1", "--recordings", "/"]),
    ("config.db", ["channel", "remove", "0"]), ("config.db", ["channel", "list"]),
    ("config.db", ["channel", "state", "0", "0"]), ("config.db", ["task", "list"]),
    ("config.db", ["task", "set", "1", "status=1"]), ("events.db", ["event", "list"]),
]
each_command = pytest.mark.parametrize("database, words", COMMANDS)


@pytest.fixture
def nowhere(tmp_path):
    return StateFolder(tmp_path / "nowhere")


def permissions(path):
    return path.stat().st_mode & 0o7777


def test_init_makes_the_folder_and_its_databases_and_prints_the_folder(nowhere):
    assert nowhere.ctl("init") == f"{nowhere.path}\n"
    assert {path.name for path in nowhere.path.iterdir()} >= DATABASES


def test_init_keeps_other_users_out(state):
    assert permissions(state.path) == 0o700
    assert {permissions(path) for path in state.path.iterdir()} == {0o600}


def test_what_root_makes_in_another_users_folder_is_that_users():
    if os.geteuid() != 0:
        pytest.skip("needs root")
    with tempfile.TemporaryDirectory() as folder:
        os.chown(folder, 4711, 4712)
        state = StateFolder(folder)
        # A sanitizer cannot look for leaks in a process that has changed its user.
        state.environment["ASAN_OPTIONS"] = "detect_leaks=0"
        state.init().add_user("admin")
        state.add_channel(1, "Front door", "/")
        owners = {(found.st_uid, found.st_gid) for found in map(os.lstat, state.path.iterdir())}
    assert owners == {(4711, 4712)}


def test_init_repeated_keeps_what_is_stored(state):
    state.ctl("config", "set", "s", "k", "v", "--force")
    state.add_user("admin")
    state.add_tasks(1)
    state.add_event("62040001", 1, "admin", "", "a")
    sid = state.open_session("admin")
    assert state.ctl("init") == f"{state.path}\n"
    assert state.ctl("config", "get", "s", "k") == "v\n"
    assert state.ctl("session", "close", sid) == "closed\n"
    assert (len(state.stored_tasks()), len(state.events())) == (1, 1)


def test_info_tells_identity_version_and_folder(state):
    told, = state.ctl_json("info")
    assert set(told) == {"identity", "version", "state"}
    assert len(bytes.fromhex(told["identity"])) == 16
    assert told["state"] == str(state.path)
    assert told["version"] == state.ctl("--version").split()[1]
    assert state.ctl("info") == "".join(f"{key}\t{told[key]}\n" for key in told)


def test_identity_is_the_folders_own_and_stays(state, nowhere):
    told = state.ctl_json("info")
    state.init()
    assert state.ctl_json("info") == told
    assert nowhere.init().ctl_json("info")[0]["identity"] != told[0]["identity"]


def test_older_state_folder_gets_its_identity_at_the_next_init(state):
    with closing(sqlite3.connect(state.path / "registry.db")) as connection:
        connection.executescript(TO_SCHEMA_1)
    assert "run recorderctl init" in refused(state, "info")
    state.init()
    assert len(state.ctl_json("info")[0]["identity"]) == 32


def test_init_in_a_files_place_is_refused_and_leaves_the_file(nowhere):
    nowhere.path.write_text("precious")
    assert str(nowhere.path) in refused(nowhere, "init")
    assert nowhere.path.read_text() == "precious"


@each_command
def test_a_command_without_a_state_folder_asks_for_init_and_makes_none(nowhere, database, words):
    assert refused(nowhere, *words, given="password\n") == (
        f"no recorder state in {nowhere.path}; run recorderctl init")
    assert not nowhere.path.exists()


@each_command
def test_a_command_refuses_a_database_of_another_version(state, database, words):
    with closing(sqlite3.connect(state.path / database)) as connection:
        connection.execute("PRAGMA user_version = 99")
    assert database in refused(state, *words, given="password\n")


def test_the_state_option_counts_before_the_environment_wherever_it_stands(state, tmp_path):
    other = tmp_path / "other"
    assert state.ctl("--state", other, "init") == f"{other}\n"
    state.ctl("config", "--state", other, "set", "s", "k", "v", "--force")
    assert state.ctl("config", "get", "s", "k", "--state", other) == "v\n"
    assert refused(state, "config", "get", "s", "k") == "there is no key k in section s"


def test_the_state_option_needs_a_folder(state):
    assert misused(state, "--state") == "--state: 1 required DIR missing"


@pytest.mark.parametrize("words", [[], ["user"], ["session"], ["config"], ["channel"], ["task"],
                                   ["event"], ["state"], ["backup"]])
def test_a_command_line_without_a_command_is_refused(state, words):
    assert misused(state, *words) == "A subcommand is required"


@pytest.mark.parametrize("words, named", [
    (["tsak"], 'command "tsak"'), (["tsak", "list"], 'command "tsak"'),
    (["user", "nonsense"], 'command "nonsense"'), (["--nonsense"], 'option "--nonsense"'),
    (["user", "--nonsense"], 'option "--nonsense"'),
    (["user", "add", "--nonsense"], 'option "--nonsense"'),
    (["two\nlines"], 'command "two\\nlines"'), (["\udcff"], 'command "\ufffd"')])
def test_an_unknown_word_is_named_on_one_line(state, words, named):
    assert misused(state, *words) == f"unknown {named}"


@pytest.mark.parametrize("words", [
    ["init", "x"], ["user", "list", "x"], ["session", "close", "a", "x"], ["task", "list", "x"],
    ["config", "set", "s", "k", "v", "x"], ["channel", "list", "x"], ["event", "list", "x"]])
def test_a_word_too_many_is_refused(state, words):
    assert misused(state, *words) == "The following argument was not expected: x"


@pytest.mark.parametrize("words", [["init"], ["config", "get", "s", "k"], ["user", "remove", "a"]])
def test_json_is_for_lists_alone(state, words):
    assert misused(state, *words, "--json") == "The following argument was not expected: --json"


def test_help_names_every_group_of_commands(state):
    said = state.ctl("--help")
    for name in ("init", "info", "state", "user", "session", "config", "channel", "task", "backup",
                 "event", "--state"):
        assert f"\n  {name} " in said, name


# --- who may -------------------------------------------------------------------------------------


def as_nobody(state, *words):
    return subprocess.run(["setpriv", "--reuid", "nobody", "--regid", "nogroup", "--clear-groups",
                           PROGRAMS / "recorderctl", *words], env=state.environment, check=False,
                          capture_output=True, text=True, timeout=SECONDS)


@pytest.fixture
def roots():
    """The state of a recorder that belongs to root, where everybody can see its folder."""
    if os.geteuid() != 0:
        pytest.skip("needs root")
    with tempfile.TemporaryDirectory() as place:
        os.chmod(place, 0o755)
        yield StateFolder(Path(place) / "state").init()


@pytest.mark.parametrize("words", [["init"], ["user", "list"], ["state", "check"]])
def test_another_users_state_needs_root_in_words(roots, words):
    done = as_nobody(roots, *words)
    assert (done.returncode, done.stdout) == (1, "")
    assert done.stderr == (f"recorderctl: needs root: the recorder's state in {roots.path} belongs "
                           "to user root\n")


def test_a_state_that_is_out_of_sight_needs_root_in_words(roots):
    hidden = StateFolder(roots.path / "inner")
    done = as_nobody(hidden, "user", "list")
    assert done.stderr == (f"recorderctl: needs root: {hidden.path} is out of sight for user "
                           "nobody\n")


def test_help_and_version_need_nobodys_state(roots):
    assert as_nobody(roots, "--version").stdout == roots.ctl("--version")
    assert as_nobody(roots, "user", "--help").stdout == roots.ctl("user", "--help")
