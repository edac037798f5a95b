"""What a run makes of a bad network, a full or read-only share, and refusals."""

import pytest

from backup_house import CANCEL, FAILED, MIB, SUCCESS, House, noise
from event_ids import (CONNECTION_LOST, FILE_NOT_COPIED, ROOM_MADE, RUN_FAILED, RUN_SUCCEEDED,
                       SHARE_FULL)
from fault_proxy import FaultProxy
from small_share import SmallShare
from waiting import wait_until

# Above what is copied: login, folders, names; and what was on its way when the line was cut.
OVERHEAD = MIB
ON_THE_WAY = 8 * MIB


@pytest.fixture
def proxy(house):
    with FaultProxy(house.samba.port) as between:
        yield between


def record_days(house, files=4, size=8 * MIB):
    """The same number of files on each of three days."""
    for days_ago in range(3):
        for number in range(files):
            house.record(0, days_ago, f"{number:02}-00-00.mp4",
                         noise(size + number, f"{days_ago} {number}"))
    return 3 * sum(size + number for number in range(files))


def temporary_files(house):
    return [path for path in house.shared() if ".part" in path]


def check_complete(house):
    assert house.shared() == house.sources()
    assert house.database("SELECT * FROM checkpoint") == []
    house.check_records()


def test_cut_connection_goes_on_inside_the_file(house, proxy):
    house.record(0, 0, "01-00-00.mp4", noise(60 * MIB + 7, "long"))
    proxy.cut_after(40 * MIB)
    house.run(house.create(port=proxy.port))
    check_complete(house)
    assert proxy.connections > 1
    assert proxy.sent < 60 * MIB + ON_THE_WAY + OVERHEAD
    assert CONNECTION_LOST in [event for event, _ in house.events()]


def test_many_cuts_cost_what_was_on_its_way_and_no_more(house, proxy):
    size = record_days(house)
    task_id = house.create(port=proxy.port)
    cuts = 6
    proxy.cut_every(10 * MIB, cuts)
    house.run(task_id)
    assert proxy.cut_at is None, "all cuts fell into the run"
    check_complete(house)
    assert proxy.sent < size + cuts * (ON_THE_WAY + OVERHEAD)


def test_refused_connections_are_tried_again(house, proxy):
    record_days(house, files=1)
    proxy.refusing = True
    task_id = house.create(port=proxy.port)
    house.force(task_id)
    wait_until(lambda: CONNECTION_LOST in [event for event, _ in house.events()], "the loss")
    assert house.status(task_id) != FAILED
    proxy.refusing = False
    house.wait_for_end(task_id)
    check_complete(house)


def test_stalled_connection_is_given_up_and_made_anew(house, proxy):
    size = record_days(house)
    proxy.crawl_after(size // 3)
    task_id = house.create(port=proxy.port)
    house.force(task_id)
    wait_until(proxy.crawls, "a third")
    proxy.stalled = True
    wait_until(lambda: CONNECTION_LOST in [event for event, _ in house.events()], "the loss")
    proxy.cut()
    proxy.stalled, proxy.rate = False, None
    house.wait_for_end(task_id)
    assert house.status(task_id) == SUCCESS
    check_complete(house)


def test_running_query_tells_percent_and_speed_of_a_slow_run(house, proxy):
    record_days(house)
    proxy.rate = 2 * MIB
    task_id = house.create(port=proxy.port)
    house.force(task_id)
    wait_until(lambda: float(house.recorder.list_tasks()[0]["transferRate"]) > 0, "speed")
    wait_until(lambda: house.recorder.list_tasks()[0]["finishRate"] > 5, "progress")
    entry = house.recorder.list_tasks()[0]
    assert entry["status"] == "running"
    assert 0 < float(entry["transferRate"]) * 1024 < 20 * MIB
    stored = house.progress(task_id)[0]
    assert 0 < stored["bytes_done"] < stored["bytes_planned"]
    assert stored["files_left"] > 0 and stored["seconds_left"] > 0
    proxy.rate = None
    house.wait_for_end(task_id)
    final = house.progress(task_id)[0]
    assert (final["percent"], final["files_left"], final["seconds_left"]) == (100.0, 0, 0)


def test_stop_in_the_middle_and_start_again_sends_the_rest_only(house, proxy):
    size = record_days(house)
    proxy.crawl_after(size // 3)
    task_id = house.create(port=proxy.port)
    house.force(task_id)
    wait_until(proxy.crawls, "a third")
    house.activate(task_id, active=False)
    house.wait_for_end(task_id)
    assert house.status(task_id) == CANCEL
    house.check_records()
    proxy.rate = None
    house.run(task_id)
    check_complete(house)
    assert proxy.sent < size + ON_THE_WAY + OVERHEAD


def test_deleted_running_task_ends_and_its_copies_stay(house, proxy):
    size = record_days(house)
    proxy.crawl_after(size * 2 // 3)
    task_id = house.create(port=proxy.port)
    house.force(task_id)
    wait_until(lambda: len(house.copied()) > 2 and proxy.crawls(), "copies")
    assert house.recorder.call("DELETE", f"task/{task_id}?isStop=0").json["ret_code"] == 0
    assert house.recorder.stored_tasks() == []
    sent = proxy.sent
    wait_until(lambda: not proxy.pairs, "the end of the connections")
    assert proxy.sent < sent + ON_THE_WAY
    house.check_records()


@pytest.mark.parametrize("changes, words", [
    ({"password": "wrong"}, "or the password: The attempted logon is invalid"),
    ({"username": "nobody at all"}, "or the password: The attempted logon is invalid"),
    ({"destPath": "/no such share/folder"}, "there is no such share"),
    ({"destPath": "/"}, "names no server and share")])
def test_refused_login_and_unknown_share_fail_at_once(house, changes, words):
    house.record(0, 0, "01-00-00.mp4", b"x")
    task_id = house.create(**changes)
    house.run(task_id, FAILED)
    assert words in house.last_event(RUN_FAILED)[0]
    assert words in house.progress(task_id)[0]["message"]


def test_server_that_speaks_smb1_only_is_refused(tmp_path):
    with House(tmp_path, settings={"server min protocol": "NT1",
                                   "server max protocol": "NT1"}) as house:
        house.record(0, 0, "01-00-00.mp4", b"x")
        task_id = house.create()
        house.force(task_id)
        wait_until(lambda: house.last_event(CONNECTION_LOST), "the refusal")
        house.activate(task_id, active=False)
        house.wait_for_end(task_id)
        assert house.copied() == {} and house.shared() == {}


def test_password_changed_in_the_middle_fails_when_the_connection_is_made_anew(house, proxy):
    size = record_days(house)
    proxy.crawl_after(size // 3)
    task_id = house.create(port=proxy.port)
    house.force(task_id)
    wait_until(proxy.crawls, "a third")
    house.samba.set_password("another one")
    proxy.cut()
    house.wait_for_end(task_id)
    assert house.status(task_id) == FAILED
    assert "or the password: The attempted logon is invalid" in house.last_event(RUN_FAILED)[0]
    house.check_records()


def test_share_made_read_only_in_the_middle_fails_with_the_servers_words(house, proxy):
    size = record_days(house)
    proxy.crawl_after(size // 3)
    task_id = house.create(port=proxy.port)
    house.force(task_id)
    wait_until(proxy.crawls, "a third")
    house.samba.shares["backup"]["read only"] = "yes"
    house.samba.reload()
    proxy.cut()
    house.wait_for_end(task_id)
    assert house.status(task_id) == FAILED
    assert "Permission denied" in house.last_event(RUN_FAILED)[0]
    house.check_records()


def test_vanished_source_is_reported_and_the_others_are_copied(house, proxy):
    record_days(house)
    proxy.crawl_after(2 * MIB)
    task_id = house.create(port=proxy.port)
    house.force(task_id)
    wait_until(proxy.crawls, "the start")
    gone = house.record(0, 2, "03-00-00.mp4", b"")
    gone.unlink()
    proxy.rate = None
    house.wait_for_end(task_id)
    assert house.status(task_id) == FAILED
    assert house.shared() == house.sources()
    assert any(event == FILE_NOT_COPIED and "03-00-00.mp4" in detail[0]
               for event, detail in house.events())


def test_another_file_of_the_same_name_stays_as_it_is(house):
    source = house.record(0, 0, "01-00-00.mp4", noise(MIB, "ours"))
    place = house.share / "recorder/Camera 0" / source.parent.name
    place.mkdir(parents=True)
    (place / source.name).write_bytes(b"somebody else's")
    house.run(house.create(), FAILED)
    assert (place / source.name).read_bytes() == b"somebody else's"
    assert temporary_files(house) == []


SPOILT = b"S" * 1000


class SpoilsOnce:
    """Turns one byte of the first piece that has the bytes in question."""

    def __init__(self):
        self.done = False

    def __call__(self, piece):
        place = piece.find(SPOILT)
        if self.done or place < 0:
            return piece
        self.done = True
        return piece[:place] + b"s" + piece[place + 1:]


@pytest.mark.parametrize("way", ["up", "down"])
def test_bytes_spoilt_on_the_line_are_found_and_sent_anew(house, proxy, way):
    house.record(0, 0, "01-00-00.mp4", noise(MIB, "ours") + b"S" * MIB + noise(MIB, "more"))
    task_id = house.create(port=proxy.port)
    spoil = SpoilsOnce()
    setattr(proxy, "spoil_" + way, spoil)
    house.run(task_id)
    assert spoil.done, "what is checked must come over the line"
    check_complete(house)
    assert proxy.sent > 5 * MIB, "all of it, and what had been sent when the difference was found"


@pytest.fixture
def small(tmp_path):
    with SmallShare(tmp_path, channels=1) as house:
        yield house


def test_full_share_fails_the_run_when_nothing_may_be_overwritten(small):
    record_days(small, files=2)
    task_id = small.create()
    small.run(task_id, FAILED)
    assert SHARE_FULL in [event for event, _ in small.events()]
    assert "No space left" in small.progress(task_id)[0]["message"]
    assert small.copied()
    small.check_records()


def test_full_share_loses_its_oldest_day_when_that_may_be_overwritten(small):
    record_days(small, files=2)
    foreign = small.share / "foreign"
    foreign.write_bytes(b"not ours")
    task_id = small.create(remoteOverwriteType="overwrite")
    small.run(task_id)
    assert ROOM_MADE in [event for event, _ in small.events()]
    oldest = min(path.split("/")[1] for path in small.sources())
    assert small.shared() == {path: digest for path, digest in small.sources().items()
                              if oldest not in path}
    small.check_records()
    assert foreign.read_bytes() == b"not ours"
    small.run(task_id)
    assert small.last_event(RUN_SUCCEEDED) == ["0 files, 0 bytes"], "what made room came back"
