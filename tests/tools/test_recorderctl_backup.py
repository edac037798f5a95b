"""recorderctl state: consistent copies of the databases, put back whole or not at all, checked."""
import os
import re
import shutil
import sqlite3
import tempfile
from contextlib import closing, contextmanager
from pathlib import Path

import pytest

from failures import misused, refused
from older_registry import TO_SCHEMA_1
from state_folder import StateFolder

NEEDED = {"config.db", "registry.db", "events.db"}
MOMENT = re.compile(r"\d{4}-\d\d-\d\dT\d\d-\d\d-\d\dZ")


def connect(path):
    return closing(sqlite3.connect(path, isolation_level=None))


@pytest.fixture
def full(state):
    """One task, event, user and key, and a database as the daemon's."""
    state.add_tasks(1, password="secret-of-the-share")
    state.add_event("62040001", 1, "admin", "", "a")
    state.add_user("admin")
    state.ctl("config", "set", "log", "keep_days", "30")
    with connect(state.path / "backupd.db") as database:
        database.executescript(
            "PRAGMA journal_mode=WAL; CREATE TABLE t (x); INSERT INTO t VALUES (1)")
    return state


def contents(state):
    """What the state tells of itself."""
    return [state.ctl(*words) for words in (
        ["info"], ["user", "list"], ["config", "get", "log", "keep_days"],
        ["task", "list", "--json"], ["event", "list", "--json"])]


def change(state):
    state.ctl("user", "remove", "admin")
    state.ctl("config", "set", "log", "keep_days", "31")
    state.add_tasks(1)
    state.add_event("62040001", 2, "other", "", "b")


def files(folder):
    return {path.name for path in Path(folder).iterdir()}


def permissions(path):
    return path.stat().st_mode & 0o7777


# --- backup --------------------------------------------------------------------------------------


def test_a_backup_is_a_state_folder_with_the_same_contents(full, tmp_path):
    target = tmp_path / "copy"
    assert full.ctl("state", "backup", target) == f"{target}\n"
    assert files(target) == NEEDED | {"backupd.db"}
    assert files(tmp_path) == {"state", "copy"}
    before = contents(full)[1:]
    assert contents(StateFolder(target))[1:] == before
    with connect(target / "backupd.db") as database:
        assert database.execute("SELECT x FROM t").fetchall() == [(1,)]


def test_a_backup_is_for_its_owner_alone_whatever_the_umask(full, tmp_path):
    before = os.umask(0)
    try:
        full.ctl("state", "backup", tmp_path / "copy")
    finally:
        os.umask(before)
    assert permissions(tmp_path / "copy") == 0o700
    assert {permissions(path) for path in (tmp_path / "copy").iterdir()} == {0o600}


def test_a_backup_has_what_is_in_the_write_ahead_log_of_somebody_who_is_writing(full, tmp_path):
    with connect(full.path / "config.db") as writer, connect(full.path / "registry.db") as reader:
        reader.execute("SELECT * FROM user").fetchall()
        writer.execute("UPDATE task SET taskName = 'in the log'")
        writer.execute("BEGIN IMMEDIATE")
        writer.execute("UPDATE task SET taskName = 'not committed'")
        full.ctl("state", "backup", tmp_path / "copy")
    assert StateFolder(tmp_path / "copy").stored_tasks()[0]["taskName"] == "in the log"


@pytest.mark.parametrize("ending", ["", "/", "/."])
def test_a_backup_does_not_touch_what_exists(full, tmp_path, ending):
    target = tmp_path / "copy"
    target.mkdir()
    (target / "precious").write_text("precious")
    assert refused(full, "state", "backup", f"{target}{ending}") == f"there is a {target} already"
    assert files(target) == {"precious"} and files(tmp_path) == {"state", "copy"}


def test_a_backup_without_a_place_to_go_to_says_why(full, tmp_path):
    said = refused(full, "state", "backup", tmp_path / "no" / "where")
    assert said.startswith(f"cannot make {tmp_path}/no/.where.part as user ")
    assert said.endswith(": No such file or directory")


def test_a_damaged_database_is_not_copied_and_pushes_no_good_backup_out(full, tmp_path):
    place = tmp_path / "place"
    (place / "2024-03-01T12-00-00Z").mkdir(parents=True)
    before = files(place)
    damage(full.path / "events.db")
    for words in ([place / "copy"], ["--keep", "1", place]):
        assert refused(full, "state", "backup", *words).startswith(f"{full.path}/events.db: ")
    assert files(place) == before


def test_a_backup_of_nothing_asks_for_init(tmp_path):
    nowhere = StateFolder(tmp_path / "nowhere")
    assert refused(nowhere, "state", "backup", tmp_path / "copy") == (
        f"there is no {nowhere.path}/config.db; run recorderctl init")
    assert files(tmp_path) == set()


# --- backup --keep -------------------------------------------------------------------------------


def test_kept_backups_are_named_after_the_moment_and_the_oldest_go(full, tmp_path):
    place = tmp_path / "place"
    for name in ("2024-03-01T12-00-00Z", "2024-03-02T12-00-00Z", "2024-03-03T12-00-00Z", "mine",
                 "2024-03-01T12-00-00Z.old"):
        (place / name).mkdir(parents=True)
    (place / "2024-03-01T00-00-00Z").write_text("a file")
    new, = full.ctl("state", "backup", "--keep", "3", place).splitlines()
    assert MOMENT.fullmatch(Path(new).name) and Path(new).parent == place
    assert files(new) >= NEEDED
    assert files(place) == {Path(new).name, "2024-03-03T12-00-00Z", "2024-03-02T12-00-00Z", "mine",
                            "2024-03-01T12-00-00Z.old", "2024-03-01T00-00-00Z"}


def test_the_place_of_kept_backups_is_made_and_private(full, tmp_path):
    full.ctl("state", "backup", "--keep", "1", tmp_path / "place")
    assert permissions(tmp_path / "place") == 0o700


def test_backups_of_a_clock_that_was_ahead_go_first(full, tmp_path):
    for name in ("2999-01-01T00-00-00Z", "2024-03-01T12-00-00Z"):
        (tmp_path / "place" / name).mkdir(parents=True)
    new = full.ctl("state", "backup", "--keep", "2", tmp_path / "place").strip()
    assert files(tmp_path / "place") == {Path(new).name, "2024-03-01T12-00-00Z"}


def test_what_a_backup_that_was_cut_short_left_is_removed(full, tmp_path):
    (tmp_path / "place" / ".2024-03-01T12-00-00Z.part").mkdir(parents=True)
    new = full.ctl("state", "backup", "--keep", "2", tmp_path / "place").strip()
    assert files(tmp_path / "place") == {Path(new).name}


@pytest.mark.parametrize("count", ["0", "-1", "x", "", "1001"])
def test_a_number_of_backups_out_of_range_is_refused(full, tmp_path, count):
    assert "--keep" in misused(full, "state", "backup", "--keep", count, tmp_path / "place")
    assert files(tmp_path) == {"state"}


# --- restore -------------------------------------------------------------------------------------


@pytest.fixture
def copy(full, tmp_path):
    """Where a backup of the state lies; the state has changed since."""
    full.ctl("state", "backup", tmp_path / "copy")
    full.then = contents(full)
    change(full)
    return tmp_path / "copy"


def test_a_restored_state_is_that_of_the_backup_and_the_one_before_it_is_kept(full, copy):
    changed = contents(full)
    first, second = full.ctl("state", "restore", copy).splitlines()
    kept = Path(second.removeprefix("the state before it\t"))
    assert first == f"restored\t{copy}"
    assert kept.parent == full.path and kept.name.startswith("before-restore-2")
    assert contents(full) == full.then
    assert files(full.path) == NEEDED | {"backupd.db", kept.name}
    assert {permissions(path) for path in full.path.iterdir()} == {0o600, 0o700}
    full.ctl("state", "restore", kept)
    assert contents(full) == changed


def test_alerts_that_waited_when_the_copy_was_made_are_not_restored_but_problems_are(full, copy):
    with connect(copy / "backupd.db") as database:
        database.executescript("CREATE TABLE alert (id); INSERT INTO alert VALUES ('a-1');"
                               "CREATE TABLE alert_given_up (id);"
                               "INSERT INTO alert_given_up VALUES (2);"
                               "CREATE TABLE problem (id); INSERT INTO problem VALUES (1)")
    full.ctl("state", "restore", copy)
    with connect(full.path / "backupd.db") as database:
        assert database.execute("SELECT * FROM alert").fetchall() == []
        assert database.execute("SELECT * FROM alert_given_up").fetchall() == []
        assert database.execute("SELECT * FROM problem").fetchall() == [(1,)]
    with connect(copy / "backupd.db") as database:
        assert database.execute("SELECT * FROM alert").fetchall() == [("a-1",)]


def test_the_state_before_has_what_was_in_its_write_ahead_log(full, copy):
    source = full.path / "config.db"
    with connect(source) as writer:
        writer.execute("UPDATE task SET taskName = 'in the log'")
        log = Path(f"{source}-wal").read_bytes()
    Path(f"{source}-wal").write_bytes(log)  # as a killed program leaves it
    kept = full.ctl("state", "restore", copy).splitlines()[1].split("\t")[1]
    assert StateFolder(kept).stored_tasks()[0]["taskName"] == "in the log"
    assert contents(full) == full.then


def test_a_folder_that_was_copied_by_hand_with_its_logs_is_restored_with_them(full, copy):
    with connect(copy / "config.db") as writer:
        writer.execute("UPDATE task SET taskName = 'in the log'")
        log = (copy / "config.db-wal").read_bytes()
    (copy / "config.db-wal").write_bytes(log)
    full.ctl("state", "restore", copy)
    assert full.stored_tasks()[0]["taskName"] == "in the log"


def test_a_backup_stays_as_it_is(full, copy):
    before = {path.name: path.read_bytes() for path in copy.iterdir()}
    full.ctl("state", "restore", copy)
    assert {path.name: path.read_bytes() for path in copy.iterdir()} == before


@contextmanager
def used(path):
    with connect(path) as user:
        if path.name == "registry.db":
            user.execute("BEGIN IMMEDIATE")  # without a write-ahead log only work is seen
        user.execute("SELECT * FROM sqlite_schema").fetchall()
        yield


@pytest.mark.parametrize("database", sorted(NEEDED | {"backupd.db"}))
def test_a_state_that_is_in_use_is_not_replaced(full, copy, database):
    changed = contents(full)
    there = files(full.path)
    with used(full.path / database):
        assert refused(full, "state", "restore", copy) == (
            f"{full.path}/{database} is in use; stop the recorder's services and their sockets "
            "first")
    assert contents(full) == changed
    assert {name for name in files(full.path) if name.endswith(".db")} == {
        name for name in there if name.endswith(".db")}
    assert not any("restore" in name for name in files(full.path))


@pytest.mark.parametrize("database", sorted(NEEDED))
def test_a_backup_that_lacks_a_database_changes_nothing(full, copy, database):
    changed = contents(full)
    (copy / database).unlink()
    assert refused(full, "state", "restore", copy) == (
        f"{copy}/{database} is missing; this is no backup of the state")
    assert contents(full) == changed
    assert not any("restore" in name for name in files(full.path))


def damage(path):
    """Spoils a page that is in use."""
    with path.open("r+b") as file:
        file.seek(4096 + 3)
        file.write(b"\xff" * 2000)


@pytest.mark.parametrize("spoil", [damage, lambda path: path.write_text("no database at all"),
                                   lambda path: os.truncate(path, 5000)])
def test_a_damaged_backup_changes_nothing(full, copy, spoil):
    changed = contents(full)
    spoil(copy / "registry.db")
    assert refused(full, "state", "restore", copy).startswith(f"{copy}/registry.db: ")
    assert contents(full) == changed
    assert not any("restore" in name for name in files(full.path))


def test_a_backup_of_a_newer_program_changes_nothing(full, copy):
    changed = contents(full)
    with connect(copy / "backupd.db") as database:
        database.execute("PRAGMA user_version = 99")
    assert refused(full, "state", "restore", copy).startswith(
        f"{copy}/backupd.db: newer than schema ")
    assert contents(full) == changed


def test_an_older_backup_is_brought_up_to_date(full, copy):
    with connect(copy / "registry.db") as database:
        database.executescript(TO_SCHEMA_1)
    full.ctl("state", "restore", copy)
    assert contents(full)[1:] == full.then[1:]


def test_a_database_that_the_backup_does_not_have_is_not_mixed_with_it(full, copy):
    (copy / "backupd.db").unlink()
    kept = full.ctl("state", "restore", copy).splitlines()[1].split("\t")[1]
    assert "backupd.db" not in files(full.path)
    assert "backupd.db" in files(kept)


def test_damaged_and_lost_databases_are_replaced(full, copy):
    (full.path / "config.db").write_text("no database at all")
    (full.path / "events.db").unlink()
    full.ctl("state", "restore", copy)
    assert contents(full) == full.then


def test_a_restore_that_was_cut_short_is_in_nobodys_way(full, copy):
    (full.path / ".restore.part").mkdir()
    full.ctl("state", "restore", copy)
    assert contents(full) == full.then
    assert ".restore.part" not in files(full.path)


def test_a_restore_without_a_state_folder_asks_for_init(copy, tmp_path):
    nowhere = StateFolder(tmp_path / "nowhere")
    assert refused(nowhere, "state", "restore", copy) == (
        f"there is no state folder {nowhere.path}; run recorderctl init")


def test_root_copies_and_restores_as_the_user_whose_state_it_is():
    if os.geteuid() != 0:
        pytest.skip("needs root")
    with tempfile.TemporaryDirectory() as place:
        os.chmod(place, 0o755)
        for name in ("state", "backups"):
            (Path(place) / name).mkdir(mode=0o700)
            os.chown(Path(place) / name, 4711, 4712)
        state = StateFolder(Path(place) / "state")
        # A sanitizer cannot look for leaks in a process that has changed its user.
        state.environment["ASAN_OPTIONS"] = "detect_leaks=0"
        state.init()
        assert refused(state, "state", "backup", f"{place}/copy") == (
            f"cannot make {place}/.copy.part as user 4711: Permission denied")
        copy = Path(state.ctl("state", "backup", "--keep", "1", f"{place}/backups").strip())
        assert owners(copy) == {(4711, 4712)}
        kept_by_root = Path(place) / "kept by root"
        shutil.copytree(copy, kept_by_root)
        kept_by_root.chmod(0o700)
        state.ctl("state", "restore", kept_by_root)
        assert owners(state.path) == {(4711, 4712)}


def owners(folder):
    return {(found.st_uid, found.st_gid)
            for found in map(os.lstat, [folder, *Path(folder).rglob("*")])}


# --- check ---------------------------------------------------------------------------------------


def rows(text):
    return {row[0]: row[1:] for row in (line.split("\t") for line in text.splitlines())}


def unsound(state):
    """What check prints, and its one line about it."""
    done = state.run("recorderctl", "state", "check")
    assert done.returncode == 1
    assert done.stderr == f"recorderctl: the state in {state.path} is not sound\n"
    return rows(done.stdout)


def test_a_new_state_is_sound_and_the_daemons_database_comes_later(state):
    said = rows(state.ctl("state", "check"))
    assert list(said) == ["config.db", "registry.db", "events.db", "backupd.db"]
    assert {words[1] for name, words in said.items() if name in NEEDED} == {"sound"}
    assert said["backupd.db"] == ["-", "not made yet"]


def test_a_newer_database_is_said_to_be(state):
    with connect(state.path / "events.db") as database:
        database.execute("PRAGMA user_version = 99")
    schema, words = unsound(state)["events.db"]
    assert schema == "schema 99" and words.startswith("newer than schema ")


def test_an_older_database_is_sound(state):
    with connect(state.path / "registry.db") as database:
        database.execute("PRAGMA user_version = 1")
    schema, words = rows(state.ctl("state", "check"))["registry.db"]
    assert schema == "schema 1" and words.startswith("sound, older than schema ")


def test_a_damaged_and_a_missing_database_are_named(full):
    damage(full.path / "events.db")
    (full.path / "config.db").unlink()
    said = unsound(full)
    assert said["config.db"] == ["-", "missing"]
    assert said["events.db"][1] not in ("", "sound")
    assert said["registry.db"][1] == "sound"
