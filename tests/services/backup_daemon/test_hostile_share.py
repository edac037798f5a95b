"""What a server that means no good brings about: nothing beyond its own copies."""
import os
import stat
from pathlib import Path

from backup_house import FAILED, MIB, noise
from event_ids import FILE_NOT_COPIED
from fault_proxy import FaultProxy
from processes import descendants
from recorder_clock import day_name
from repeating import Repeating
from waiting import wait_until

TIB = MIB * MIB
NO_CAPABILITY = "0" * 16


class EndlessFile(Repeating):
    """Makes a recording's temporary files longer than anybody reads when they are half sent. From
    there on the line crawls until that is done."""

    def __init__(self, folder, size, proxy):
        self.folder = folder
        self.size = size
        self.proxy = proxy
        self.spoilt = 0
        self.crawl_behind_the_half()

    def crawl_behind_the_half(self):
        self.proxy.rate = None
        self.proxy.crawl_after(self.size * 3 // 4)

    def look(self):
        if not self.proxy.crawls():
            return
        for path in self.folder.rglob("*.part"):
            self.look_at(path)

    def look_at(self, path):
        try:
            if self.size // 2 < path.stat().st_size < TIB:
                os.truncate(path, TIB)
                self.spoilt += 1
                self.crawl_behind_the_half()
        except FileNotFoundError:
            pass  # it has been renamed or removed meanwhile


def test_file_without_an_end_is_a_mismatch_and_the_others_are_copied(house):
    size = 60 * MIB + 7
    endless = house.record(0, 0, "01-00-00.mp4", noise(size, "endless"))
    house.record(0, 0, "02-00-00.mp4", noise(MIB, "other"))
    with (FaultProxy(house.samba.port) as proxy,
          EndlessFile(house.share, size, proxy) as server):
        house.run(house.create(port=proxy.port), FAILED)
    assert server.spoilt == 2, "it is sent once more, and then no more"
    details = [detail[0] for event, detail in house.events() if event == FILE_NOT_COPIED]
    assert len(details) == 1 and endless.name in details[0]
    assert "gives back other bytes than it got" in details[0]
    assert list(house.shared()) == [f"Camera 0/{day_name(0)}/02-00-00.mp4"]
    house.check_records()


def test_folder_full_of_foreign_files_is_no_hindrance(house):
    """Within the memory that a copying process has."""
    house.record(0, 0, "01-00-00.mp4", noise(MIB, "first"))
    house.run(house.create())
    folder = house.share / "recorder/Camera 0" / day_name(0)
    for number in range(200_000):
        os.mknod(folder / f"somebody else's file number {number:06}", 0o600 | stat.S_IFREG)
    house.record(0, 0, "02-00-00.mp4", noise(MIB, "second"))
    task_id = house.recorder.stored_tasks()[-1]["taskID"]
    house.run(task_id)
    assert sorted(house.copied()) == [f"Camera 0/{day_name(0)}/{name}-00-00.mp4"
                                      for name in ("01", "02")]
    house.check_records()


def status_of(pid):
    lines = Path(f"/proc/{pid}/status").read_text().splitlines()
    return dict(line.split(":\t", 1) for line in lines if ":\t" in line)


def open_files(pid):
    """All but the standard ones."""
    links = [link for link in Path(f"/proc/{pid}/fd").iterdir() if int(link.name) > 2]
    return [place for place in map(os.readlink, links) if place.startswith("/")]


def test_copying_processes_have_no_rights_and_no_file_open_but_the_recording(house):
    recording = house.record(0, 0, "01-00-00.mp4", noise(40 * MIB, "slow"))
    with FaultProxy(house.samba.port) as proxy:
        proxy.crawl_after(2 * MIB)
        task_id = house.create(port=proxy.port)
        daemon = house.recorder.service("recording-backupd")
        wait_until(lambda: len(descendants(daemon)) == 1, "the folders have been looked at")
        house.force(task_id)
        wait_until(proxy.crawls, "the start")
        workers = descendants(daemon)[1:]
        for status in map(status_of, workers):
            assert status["NoNewPrivs"] == "1"  # so what the bounding set still names is no use
            for name in ("CapInh", "CapPrm", "CapEff", "CapAmb"):
                assert status[name] == NO_CAPABILITY, name
        # One that still connects has files of the library's open.
        wait_until(lambda: sum(map(open_files, workers), []) == [str(recording)],
                   "nothing open but the recording")
        proxy.rate = None
        house.wait_for_end(task_id)
    assert house.shared() == house.sources()
