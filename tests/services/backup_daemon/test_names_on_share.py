"""What the daemon replaces on a share: its own copies as it recorded them, and nothing else."""
import json
import os
import time

import pytest

from backup_house import FAILED, MIB, SUCCESS, noise
from delay_proxy import DelayProxy
from event_ids import FILE_NOT_COPIED
from fault_proxy import FaultProxy
from request_proxy import RequestProxy
from waiting import wait_until

CHANGED = "the copy there was changed by somebody else, and stays as it is"
FOREIGN = "another file, not of this recorder, has this name"


@pytest.fixture
def proxy(house):
    with FaultProxy(house.samba.port) as between:
        yield between


def copy_of(house, source, channel=0):
    return house.share / f"recorder/Camera {channel}" / source.parent.name / source.name


def why_not_copied(house):
    return [detail[0] for event, detail in house.events() if event == FILE_NOT_COPIED]


def unfinished(house):
    return [path for path in house.shared() if ".part" in path]


@pytest.mark.parametrize("format", ["mp4", "ostra"])
def test_foreign_file_that_appears_during_the_copy_stays(house, proxy, format):
    source = house.record(0, 0, "01-00-00.mp4", noise(30 * MIB, "ours"))
    other = house.record(0, 0, "02-00-00.mp4", noise(MIB, "other"))
    proxy.crawl_after(2 * MIB)
    task_id = house.create(port=proxy.port, recordingFormat=format)
    house.force(task_id)
    wait_until(lambda: proxy.crawls() and any("01-00-00" in path for path in unfinished(house)),
               "the copy's start")
    copy_of(house, source).write_bytes(b"somebody's")
    proxy.rate = None
    house.wait_for_end(task_id)
    assert house.status(task_id) == FAILED
    assert copy_of(house, source).read_bytes() == b"somebody's"
    assert copy_of(house, other).read_bytes() == other.read_bytes()
    assert [FOREIGN in why for why in why_not_copied(house)] == [True]
    assert unfinished(house) == []
    house.check_records()


def test_foreign_file_in_a_descriptions_place_stays(house):
    source = house.record(0, 0, "01-00-00.mp4", noise(MIB, "ours"))
    place = copy_of(house, source).with_name("01-00-00.mp4.json")
    place.parent.mkdir(parents=True)
    place.write_bytes(b"{}\n")
    house.run(house.create(recordingFormat="ostra"), FAILED)
    assert place.read_bytes() == b"{}\n"
    assert FOREIGN in why_not_copied(house)[0]
    assert unfinished(house) == []


def test_truncated_copy_is_replaced(house):
    source = house.record(0, 0, "01-00-00.mp4", noise(3 * MIB, "ours"))
    task_id = house.create()
    house.run(task_id)
    os.truncate(copy_of(house, source), MIB + 1)
    house.run(task_id)
    assert house.shared() == house.sources()
    house.check_records()


def holed(content, *ranges):
    """With zeros where a server has lost bytes with its power."""
    for begin, end in ranges:
        content = content[:begin] + bytes(end - begin) + content[end:]
    return content


def test_what_a_server_left_of_copies_claims_and_descriptions_is_replaced(house):
    size = 3 * MIB
    lost = {"copy": [(5, MIB), (2 * MIB, size)], "all of a copy": [(0, size)], "none of it": []}
    for number, ranges in enumerate(lost.values()):
        source = house.record(0, 0, f"0{number}-00-00.mp4", noise(size, number))
        place = copy_of(house, source)
        place.parent.mkdir(parents=True, exist_ok=True)
        place.write_bytes(holed(source.read_bytes(), *ranges))
        place.with_name(f"{source.name}.json").write_bytes(bytes(93))
    claimed = house.record(0, 0, "09-00-00.mp4", noise(size, "claimed"))
    copy_of(house, claimed).write_bytes(bytes(93))
    house.run(house.create(recordingFormat="ostra"))
    shared = house.shared()
    descriptions = [path for path in shared if path.endswith(".json")]
    assert {path: shared[path] for path in shared if path not in descriptions} == house.sources()
    assert len(descriptions) == 4
    for path in descriptions:
        described = json.loads((house.share / "recorder" / path).read_text())
        assert described["sha256"] == shared[path.removesuffix(".json")]
    house.check_records()


def test_foreign_file_with_one_other_byte_among_zeros_stays(house):
    source = house.record(0, 0, "01-00-00.mp4", noise(3 * MIB, "ours"))
    place = copy_of(house, source)
    place.parent.mkdir(parents=True)
    other = bytearray(holed(source.read_bytes(), (5, 3 * MIB)))
    other[2 * MIB] = source.read_bytes()[2 * MIB] ^ 0xff or 1
    place.write_bytes(other)
    house.run(house.create(), FAILED)
    assert place.read_bytes() == other
    assert FOREIGN in why_not_copied(house)[0]


@pytest.mark.parametrize("change", ["grown", "another time", "same size"])
def test_copy_that_somebody_has_changed_stays_and_fails_the_run(house, change):
    source = house.record(0, 0, "01-00-00.mp4", noise(3 * MIB, "ours"))
    task_id = house.create()
    house.run(task_id)
    copy = copy_of(house, source)
    changed = {"grown": source.read_bytes() + b"x",
               "another time": b"y" + source.read_bytes()[1:],
               "same size": noise(3 * MIB, "theirs")}[change]
    copy.write_bytes(changed)
    os.utime(copy, (0, 1_700_000_000))
    house.run(task_id, FAILED)
    assert copy.read_bytes() == changed
    assert CHANGED in why_not_copied(house)[0]


def test_copy_that_was_only_touched_is_recorded_anew(house, proxy):
    source = house.record(0, 0, "01-00-00.mp4", noise(3 * MIB, "ours"))
    task_id = house.create(port=proxy.port)
    house.run(task_id)
    os.utime(copy_of(house, source), (0, 1_700_000_000))
    sent = proxy.sent
    house.run(task_id)
    assert proxy.sent < sent + MIB, "nothing was sent"
    (record,) = house.copied().values()
    assert record["share_modified_ns"] == 1_700_000_000 * 10**9


def test_copies_have_the_recordings_times(house):
    for number in range(3):
        path = house.record(0, 0, f"0{number}-00-00.mp4", noise(1000, number))
        os.utime(path, ns=(0, (1_600_000_000 + number) * 10**9 + 123_456_700))
    task_id = house.create()
    house.run(task_id)
    for number in range(3):
        copy = copy_of(house, path.with_name(f"0{number}-00-00.mp4"))
        wanted = (1_600_000_000 + number) * 10**9 + 123_456_700
        assert abs(copy.stat().st_mtime_ns - wanted) < 1000
        recorded = house.copied()[str(copy.relative_to(house.share / "recorder"))]
        assert abs(recorded["share_modified_ns"] - wanted) < 1000


def test_of_a_grown_recording_only_what_is_new_is_sent(house, proxy):
    source = house.record(0, 0, "01-00-00.mp4", noise(40 * MIB, "first"))
    task_id = house.create(port=proxy.port)
    house.run(task_id)
    sent = proxy.sent
    with open(source, "ab") as file:
        file.write(noise(3 * MIB, "second"))
    house.run(task_id)
    assert house.shared() == house.sources()
    house.check_records()
    assert 3 * MIB < proxy.sent - sent < 5 * MIB


def test_recording_that_changed_in_its_beginning_is_sent_anew(house, proxy):
    source = house.record(0, 0, "01-00-00.mp4", noise(10 * MIB, "first"))
    task_id = house.create(port=proxy.port)
    house.run(task_id)
    sent = proxy.sent
    source.write_bytes(noise(12 * MIB, "second"))
    house.run(task_id)
    assert house.shared() == house.sources()
    assert proxy.sent - sent > 12 * MIB


def test_daemon_killed_between_claim_and_name_takes_its_claim_over(house):
    house.recorder.kill_service("recording-backupd")
    daemon = house.recorder.start_service("recording-backupd")
    with RequestProxy(house.samba.port) as proxy:
        task_id = house.create(port=proxy.port)
        house.run(task_id)  # it makes the folder's marker, which takes a renaming
        source = house.record(0, 0, "01-00-00.mp4", noise(3 * MIB, "ours"))
        proxy.at_rename = daemon.kill
        house.force(task_id)
        daemon.wait()
        claim = copy_of(house, source).read_bytes()
        assert claim != source.read_bytes() and b"taken" in claim
        sent = proxy.sent
        house.recorder.start_service("recording-backupd")
        wait_until(lambda: house.status(task_id) == SUCCESS, "the run's end")
        assert house.shared() == house.sources()
        assert proxy.sent < sent + MIB, "the copy was whole already"
    house.check_records()


@pytest.mark.parametrize("check, most", [("1", 19), ("0", 17)])
def test_small_file_costs_no_more_requests_than_the_design_says(house, check, most):
    files = 60
    for number in range(files):
        house.record(0, 0, f"01-00-{number:02}.mp4", noise(20_000, number))
    house.recorder.ctl("config", "set", "backup", "check_reading", check)
    with RequestProxy(house.samba.port) as proxy:
        house.run(house.create(port=proxy.port))
        around = 120  # logins and listings, by all lanes
        assert sum(proxy.requests.values()) <= most * files + around
    assert house.shared() == house.sources()


# The short one has a single thread: the four that an answer passes in the long one take ten
# milliseconds, a long line's, where the processors are busy.
@pytest.mark.parametrize("line, lanes", [(FaultProxy, 3),
                                         (lambda port: DelayProxy(port, round_trip=0.04), 8)],
                         ids=["short", "long"])
def test_small_files_over_a_long_line_go_over_more_connections(house, line, lanes):
    for number in range(60):
        house.record(0, 0, f"01-00-{number:02}.mp4", noise(20_000, number))
    with line(house.samba.port) as proxy:
        house.run(house.create(port=proxy.port))
        assert proxy.connections == lanes
    assert house.shared() == house.sources()


class LateLooks(RequestProxy):
    """Holds up the first looks at what is on the share: the one that connects, and the next one."""

    def watch(self, source, data):
        super().watch(source, data)
        if self.requests["create"] <= 2:
            time.sleep(0.03)


def test_answers_that_come_late_make_no_line_long(house):
    for number in range(60):
        house.record(0, 0, f"01-00-{number:02}.mp4", noise(20_000, number))
    with LateLooks(house.samba.port) as proxy:
        house.run(house.create(port=proxy.port))
        assert proxy.connections == 3
