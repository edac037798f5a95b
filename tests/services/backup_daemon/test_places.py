"""Whose a folder on a share is, which destination an address leads to, and the cameras' folders."""
import json
import random
import socket
import sqlite3
import tempfile
import time
from contextlib import ExitStack, closing, contextmanager
from pathlib import Path

import pytest

from backup_house import FAILED, MIB, House, noise, tree
from event_ids import OWN_FOLDER_MADE
from fault_proxy import FaultProxy
from lone_daemon import LoneDaemon
from older_registry import TO_SCHEMA_1
from places import SOURCE, STATE, STORAGE
from recorder_clock import day_name
from samba_server import SambaServer
from waiting import SECONDS, wait_until

MARKER = ".recording-backup"


def marker(folder):
    return json.loads((folder / MARKER / "recorder.json").read_text())


def cameras(folder):
    told = json.loads((folder / MARKER / "cameras.json").read_text())["cameras"]
    return {camera["guid"]: camera["folder"] for camera in told}


def unmarked(found):
    """Without markers, and without what other recorders have below."""
    return {path: digest for path, digest in found.items()
            if MARKER not in path and not path.startswith("Recorder ")}


def sent(house, task_id, port):
    """Bytes that a run sends to a port of the same server."""
    with FaultProxy(port) as proxy:
        house.recorder.ctl("task", "set", task_id, f"port={proxy.port}")
        house.run(task_id)
        return proxy.sent


# --- one recorder ---------------------------------------------------------------------------------

def test_folder_is_marked_with_recorder_destination_and_cameras(house):
    house.record(0, 0, "01-00-00.mp4", b"content")
    house.run(house.create())
    place = house.share / "recorder"
    assert marker(place)["recorder"] == house.recorder.ctl_json("info")[0]["identity"]
    assert house.database("SELECT id FROM destination") == [{"id": marker(place)["destination"]}]
    assert cameras(place) == {f"guid-{number}": f"Camera {number}" for number in range(3)}
    assert [path.name for path in place.iterdir() if path.name.startswith(".")] == [MARKER]


def test_new_port_or_address_of_the_server_sends_nothing_again(house):
    for number in range(4):
        house.record(0, number, "01-00-00.mp4", noise(MIB, number))
    task_id = house.create()
    house.run(task_id)
    assert sent(house, task_id, house.samba.port) < MIB // 4
    with FaultProxy(house.samba.port, socket.create_server(("127.0.0.9", 0))) as proxy:
        house.recorder.ctl("task", "set", task_id, "serverIP=127.0.0.9", f"port={proxy.port}")
        house.run(task_id)
        assert 0 < proxy.sent < MIB // 4
    house.recorder.ctl("task", "set", task_id, "serverIP=127.0.0.1", f"port={house.samba.port}")
    assert len(house.copied()) == 4 and len(house.database("SELECT * FROM destination")) == 1
    house.recorder.ctl("task", "set", task_id, "remoteKeepRec=true", "remoteKeepRecDays=1")
    house.run(task_id)
    assert {path.split("/")[1] for path in house.shared()} == {day_name(0), day_name(1)}


def rename(house, number, name):
    house.recorder.ctl("channel", "remove", str(number))
    house.add_channel(number, name)


def test_renamed_camera_keeps_its_folder(house):
    house.record(0, 0, "01-00-00.mp4", noise(MIB, "one"))
    task_id = house.create()
    house.run(task_id)
    rename(house, 0, "Gate")
    assert sent(house, task_id, house.samba.port) < MIB // 4
    assert house.shared() == house.sources()


def test_second_camera_of_a_name_moves_nothing(house):
    house.record(0, 0, "01-00-00.mp4", noise(MIB, "one"))
    house.run(house.create())
    for number, name in ((3, "Camera 0"), (4, "CAMERA 0"), (5, "Camera 0 guid-3"), (6, "Ä"),
                         (7, "ä"), (8, "x" * 168), (9, "x" * 168), (10, "x" * 250)):
        house.add_channel(number, name)
        house.record(number, 0, "01-00-00.mp4", name.encode())
    task_id = house.create(chIdxList=list(range(11)))
    assert sent(house, task_id, house.samba.port) < MIB // 2
    folders = {path.split("/")[0] for path in house.shared()}
    assert {"Camera 0", "Camera 0 guid-3", "CAMERA 0 guid-4", "Camera 0 guid-3 guid-5", "Ä",
            "ä guid-7"} < folders
    assert len({folder.upper() for folder in folders}) == 9
    assert sorted(house.shared().values()) == sorted(house.sources().values())


def test_replaced_camera_gets_a_folder_of_its_own(house):
    house.record(0, 1, "01-00-00.mp4", b"of the first camera")
    task_id = house.create(chIdxList=[0])
    house.run(task_id)
    house.recorder.ctl("channel", "remove", "0")
    new = STORAGE / "new"
    (new / day_name(1)).mkdir(parents=True)
    (new / day_name(1) / "01-00-00.mp4").write_bytes(b"of the second camera")
    house.recorder.add_channel(0, "Camera 0", new, guid="another")
    house.run(task_id)
    assert sorted(house.shared()) == [f"Camera 0 another/{day_name(1)}/01-00-00.mp4",
                                      f"Camera 0/{day_name(1)}/01-00-00.mp4"]
    house.check_records()


def test_lost_memory_takes_the_cameras_folders_from_beside_the_marker(house):
    house.record(0, 0, "01-00-00.mp4", noise(MIB, "one"))
    task_id = house.create()
    house.run(task_id)
    rename(house, 0, "Gate")
    house.add_channel(3, "Camera 0")
    house.record(3, 0, "01-00-00.mp4", b"other")
    house.recorder.stop()
    for path in STATE.glob("backupd.db*"):
        path.unlink()
    house.recorder.serve()
    house.recorder.ctl("task", "set", task_id, "chIdxList=3,0")
    assert sent(house, task_id, house.samba.port) < MIB // 4
    assert {path.split("/")[0] for path in house.shared()} == {"Camera 0", "Camera 0 guid-3"}


def test_emptied_share_is_filled_again_and_keeps_its_identifier(house):
    house.record(0, 0, "01-00-00.mp4", b"content")
    task_id = house.create()
    house.run(task_id)
    before = marker(house.share / "recorder")
    (house.share / "recorder").rename(house.share / "elsewhere")
    house.run(task_id)
    assert marker(house.share / "recorder") == before
    assert house.shared() == house.sources()


def test_marker_that_the_server_has_lost_the_content_of_is_written_again(house):
    house.record(0, 0, "01-00-00.mp4", noise(MIB, "one"))
    with FaultProxy(house.samba.port) as proxy:
        task_id = house.create(port=proxy.port)
        house.run(task_id)
        before, sent_before = marker(house.share / "recorder"), proxy.sent
        file = house.share / "recorder" / MARKER / "recorder.json"
        for spoilt in (b"", b"\0" * 110, b'{"recorder":', None):
            file.unlink()
            if spoilt is not None:
                file.write_bytes(spoilt)
            house.run(task_id)
            assert marker(house.share / "recorder") == before
        assert proxy.sent - sent_before < MIB // 2
    assert house.shared() == house.sources()


@pytest.mark.parametrize("text", [b"", b"\xff" * 60_000, b"x" * 10_000_000, b"[" * 40_000,
                                  b'{"recorder":"' + b"0" * 32 + b'","destination":"../.."}'],
                         ids=["empty", "bytes", "endless", "deep", "path"])
def test_strange_marker_is_left_alone_and_the_run_has_a_folder_of_its_own(house, text):
    file = house.share / "recorder" / MARKER / "recorder.json"
    file.parent.mkdir(parents=True)
    file.write_bytes(text)
    house.record(0, 0, "01-00-00.mp4", b"content")
    house.run(house.create())
    own = "recorder/Recorder " + house.recorder.ctl_json("info")[0]["identity"][:8]
    assert house.shared(own) == house.sources()
    assert file.read_bytes() == text
    assert house.last_event(OWN_FOLDER_MADE) == [own.removeprefix("/")]


def test_what_a_claim_left_goes_with_the_tasks_next_run(house):
    house.record(0, 0, "01-00-00.mp4", b"content")
    task_id = house.create()
    house.run(task_id)
    identity = house.recorder.ctl_json("info")[0]["identity"]
    left = house.share / "recorder" / f"{MARKER}.{identity[:8]}-{task_id}"
    left.mkdir()
    (left / "recorder.json").write_text("cut off")
    house.run(task_id)
    assert not left.exists()
    assert house.shared() == house.sources()


def test_somebodys_file_of_the_markers_name_stays(house):
    place = house.share / "recorder"
    place.mkdir()
    (place / MARKER).write_bytes(b"somebody's")
    house.record(0, 0, "01-00-00.mp4", b"content")
    house.run(house.create())
    assert (place / MARKER).read_bytes() == b"somebody's"
    assert unmarked(tree(place / ("Recorder " + house.recorder.ctl_json("info")[0]["identity"][:8]))
                    ) == house.sources()


def test_share_that_cannot_be_written_fails_the_first_run(house):
    house.samba.shares["backup"]["read only"] = "yes"
    house.samba.reload()
    house.record(0, 0, "01-00-00.mp4", b"content")
    house.run(house.create(), FAILED)
    assert list(house.share.iterdir()) == []


def test_copies_in_a_folder_that_another_recorder_has_now_do_not_count_below_it(house):
    for days_ago in range(2):
        house.record(0, days_ago, "01-00-00.mp4", noise(1000, days_ago))
    task_id = house.create()
    house.run(task_id)
    shared = house.share / "recorder"
    before = marker(shared)
    (shared / MARKER / "recorder.json").write_text(json.dumps({**before, "recorder": "9" * 32}))
    # What made room there is missing here.
    with closing(sqlite3.connect(STATE / "backupd.db", timeout=SECONDS)) as memory, memory:
        memory.execute("UPDATE copied_file SET removed = 1 WHERE day = ?", (day_name(1),))
    house.run(task_id)
    own = f"recorder/Recorder {before['recorder'][:8]}"
    assert house.shared(own) == house.sources()
    assert marker(house.share / own)["destination"] != before["destination"]
    house.run(task_id)
    assert [row["removed"] for row in house.database(
        "SELECT removed FROM copied_file WHERE destination = ?",
        marker(house.share / own)["destination"])] == [0, 0]


@pytest.fixture
def open_house(tmp_path):
    """Its share lies where a server without root's rights gets at it."""
    with tempfile.TemporaryDirectory(dir="/var/tmp") as folder:
        Path(folder).chmod(0o755)
        with House(tmp_path, share=folder) as house:
            yield house


def test_marker_that_must_not_be_read_fails_the_run_and_stays(open_house):
    house, settings = open_house, open_house.samba.shares["backup"]
    house.record(0, 0, "01-00-00.mp4", b"content")
    task_id = house.create()
    house.run(task_id)
    file = house.share / "recorder" / MARKER / "recorder.json"
    before = file.read_bytes()
    file.chmod(0)
    settings["force user"] = "nobody"
    house.samba.reload()
    house.run(task_id, FAILED)
    assert "nobody can tell whose folder it is" in house.progress(task_id)[0]["message"]
    settings["force user"] = "root"
    house.samba.reload()
    house.run(task_id)
    assert file.read_bytes() == before


# --- from the version before ----------------------------------------------------------------------

def make_older(house):
    """Takes the state back to what the version without identities and markers left."""
    with closing(sqlite3.connect(STATE / "backupd.db")) as memory:
        rows = {}
        for table in ("copied_file", "checkpoint"):
            memory.execute(f"UPDATE {table} SET destination = (SELECT address FROM "
                           "destination_address WHERE id = destination)")
        schema = SOURCE / "services/backup_daemon/memory/memory_schema_1.sql"
        with closing(sqlite3.connect(":memory:")) as first:
            first.executescript(schema.read_text())
            columns = {table: [row[1] for row in first.execute(f"PRAGMA table_info({table})")]
                       for table, in first.execute("SELECT name FROM sqlite_schema "
                                                   "WHERE type = 'table'")}
        for table, names in columns.items():
            rows[table] = memory.execute(f"SELECT {', '.join(names)} FROM {table}").fetchall()
        for table, in memory.execute("SELECT name FROM sqlite_schema WHERE type = 'table' "
                                     "AND name NOT LIKE 'sqlite%'").fetchall():
            memory.execute(f"DROP TABLE {table}")
        memory.executescript(schema.read_text() + "PRAGMA user_version = 1;")
        for table, names in columns.items():
            memory.executemany(f"INSERT INTO {table} ({', '.join(names)}) VALUES "
                               f"({', '.join('?' * len(names))})", rows[table])
        memory.commit()
    with closing(sqlite3.connect(STATE / "registry.db")) as registry:
        registry.executescript(TO_SCHEMA_1)
    for path in (house.share / "recorder" / MARKER).iterdir():
        path.unlink()
    (house.share / "recorder" / MARKER).rmdir()


def upgrade(house):
    house.recorder.stop()
    make_older(house)
    assert "run recorderctl init" in house.recorder.refusal("recording-backupd")
    house.recorder.init()
    house.recorder.serve()


def test_copies_of_the_version_before_are_taken_over(house):
    house.add_channel(3, "Tür 3")
    for number in (0, 1, 3):
        house.record(number, 1, "01-00-00.mp4", noise(MIB, number))
    with FaultProxy(house.samba.port) as proxy:
        task_id = house.create(port=proxy.port, chIdxList=[0, 1, 3])
        house.run(task_id)
        copies, before = house.copied(), proxy.sent
        upgrade(house)
        rename(house, 0, "Gate")
        house.run(task_id)
        assert proxy.sent - before < MIB // 2
    identifier, = {row["destination"] for row in house.copied().values()}
    assert marker(house.share / "recorder")["destination"] == identifier
    assert house.copied().keys() == copies.keys()
    assert {path.split("/")[0] for path in house.shared()} == {"Camera 0", "Camera 1", "Tür 3"}


def test_copies_of_the_version_before_join_those_of_another_address(house):
    for days in range(3):
        house.record(0, days, "01-00-00.mp4", noise(MIB, days))
    with FaultProxy(house.samba.port) as proxy:
        task_id = house.create(port=proxy.port)
        house.run(task_id)
        upgrade(house)
        other = house.create(chIdxList=[1])
        house.run(other)
        assert len(house.database("SELECT * FROM destination")) == 2
        before = proxy.sent
        house.recorder.ctl("task", "set", task_id, "remoteKeepRec=true", "remoteKeepRecDays=1")
        house.run(task_id)
        assert proxy.sent - before < MIB // 2
    assert len(house.database("SELECT * FROM destination")) == 1
    assert {path.split("/")[1] for path in house.shared()} == {day_name(0), day_name(1)}
    house.check_records()


def test_file_begun_by_the_version_before_is_completed(house):
    source = house.record(0, 0, "01-00-00.mp4", noise(20 * MIB, "long"))
    with FaultProxy(house.samba.port) as proxy:
        task_id = house.create(port=proxy.port)
        proxy.cut_after(12 * MIB)
        proxy.crawl_after(12 * MIB)
        house.force(task_id)
        wait_until(lambda: proxy.cut_at is None, "the cut")
        house.recorder.stop()
        folder = house.share / "recorder/Camera 0" / source.parent.name
        part, = folder.glob(".*.part")
        old = folder / f".{source.name}.{task_id}.part"
        part.rename(old)
        make_older(house)
        with closing(sqlite3.connect(STATE / "backupd.db")) as memory:
            memory.execute("UPDATE checkpoint SET temporary = ?",
                           (str(old.relative_to(house.share / "recorder")),))
            memory.commit()
        house.recorder.init()
        proxy.rate = None
        before = proxy.sent
        house.recorder.serve()
        house.wait_for_end(task_id)
        assert proxy.sent - before < 15 * MIB
    assert house.shared() == house.sources()
    assert [path.name for path in folder.iterdir()] == [source.name]


# --- two recorders --------------------------------------------------------------------------------

DAY = day_name(3)


@pytest.fixture
def server(tmp_path):
    share = tmp_path / "share"
    share.mkdir()
    shares = {"backup": {"path": share, "read only": "no", "force user": "root"}}
    with SambaServer(tmp_path / "samba", shares) as started:
        started.share = share
        yield started


def sources(daemon):
    """What its folder on the share should hold."""
    return {f"Camera {path}": digest for path, digest in tree(daemon.recordings).items()}


def place_of(daemon, folder):
    """Where its copies went; fails where the folder says otherwise."""
    place = folder if marker(folder)["recorder"] == daemon.identity else folder / daemon.own_folder
    assert marker(place)["recorder"] == daemon.identity
    return place


@contextmanager
def running_recorder(folder, server, files=5):
    """Two cameras, named and numbered as every other recorder's."""
    with LoneDaemon(folder, server) as daemon:
        for number in range(2):
            daemon.add_camera(number, f"Camera {number}")
            for hour in range(files):
                daemon.record(number, DAY, f"0{hour}-00-00.mp4",
                              noise(300_000, (folder, number, hour)))
        daemon.start()
        yield daemon


def test_two_recorders_on_one_folder_have_all_their_files(tmp_path, server):
    with ExitStack() as recorders:
        daemons = [recorders.enter_context(running_recorder(tmp_path / name, server))
                   for name in ("a", "b")]
        for number in range(6):
            tasks = [daemon.add_task(chIdxList="0,1", destPath=f"/backup/round {number}")
                     for daemon in daemons]
            assert tasks[0] == tasks[1]
            for daemon, task_id in zip(daemons, tasks):
                daemon.begin_run(task_id)
            assert [daemon.wait_for_end(task_id)
                    for daemon, task_id in zip(daemons, tasks)] == ["success"] * 2
            folder = server.share / f"round {number}"
            places = [place_of(daemon, folder) for daemon in daemons]
            assert sorted(places)[0] == folder and len(set(places)) == 2
            for daemon, place in zip(daemons, places):
                assert unmarked(tree(place)) == sources(daemon)
            # The next runs find everything where it is.
            for daemon, task_id in zip(daemons, tasks):
                before = daemon.proxy.sent
                assert daemon.run_task(task_id) == "success"
                assert daemon.proxy.sent - before < 300_000


def test_recorder_that_was_set_up_anew_goes_on_in_a_folder_of_its_own(tmp_path, server):
    with running_recorder(tmp_path / "before", server) as before:
        assert before.run_task(before.add_task(chIdxList="0,1")) == "success"
        before.stop()
        old = tree(server.share / "recorder")
        with running_recorder(tmp_path / "after", server) as after:
            assert after.run_task(after.add_task(chIdxList="0,1")) == "success"
            assert unmarked(tree(server.share / "recorder" / after.own_folder)) == sources(after)
            told = [event for event in after.events() if event["id"] == OWN_FOLDER_MADE]
            assert [event["arguments"][2] for event in told] == [f"recorder/{after.own_folder}"]
    assert {path: digest for path, digest in tree(server.share / "recorder").items()
            if not path.startswith("Recorder ")} == old


def test_killed_at_any_moment_of_its_first_run_a_recorder_has_one_marker(tmp_path, server):
    chance = random.Random(12)
    with running_recorder(tmp_path / "a", server, files=1) as daemon:
        daemon.kill()
        for number in range(12):
            folder = server.share / f"round {number}"
            task_id = daemon.add_task(chIdxList="0,1", destPath=f"/backup/round {number}")
            for attempt in range(3):
                daemon.start()
                if not attempt:
                    daemon.begin_run(task_id)
                time.sleep(chance.random() * 0.12)
                daemon.kill()
            daemon.start()
            assert daemon.wait_for_end(task_id) == "success"
            assert marker(folder)["recorder"] == daemon.identity
            assert unmarked(tree(folder)) == sources(daemon)
            assert [path.name for path in folder.iterdir() if path.name.startswith(".")] == [MARKER]
            daemon.kill()
