"""What people are told of a run on its way: its speed, its percent, and both across a restart."""
import statistics
import time

from backup_house import MIB, RUNNING, SUCCESS, noise
from fault_proxy import FaultProxy
from repeating import Repeating
from waiting import wait_until

RATE = 3 * MIB


class ShareWatch(Repeating):
    """When the share had how many bytes of recordings, whole or not."""

    pause = 0.02

    def __init__(self, house):
        self.folder = house.share
        self.seen = []

    def look(self):
        self.seen.append((time.time() * 1000, sum(map(size_of, self.folder.rglob("*.mp4*")))))

    def at(self, time_ms):
        """What lay there at the latest when the clock showed this."""
        return max((size for seen, size in self.seen if seen <= time_ms), default=0)


def size_of(path):
    try:
        return path.stat().st_size
    except FileNotFoundError:
        return 0  # it has been renamed meanwhile


def figures_until_the_end(house, task_id):
    """All figures that are told while the task runs."""
    told = {}
    while house.status(task_id) == RUNNING:
        figures = house.progress(task_id)[0]
        told[figures["time_ms"]] = figures
        time.sleep(0.2)
    return list(told.values())[2:-2]


def check_told_figures(house, files, file_size, rate=RATE):
    size = files * file_size
    for number in range(files):
        house.record(0, 1, f"{number // 60:02}-{number % 60:02}-00.mp4", noise(file_size, number))
    with FaultProxy(house.samba.port) as proxy, ShareWatch(house) as share:
        proxy.rate = rate
        task_id = house.create(port=proxy.port)
        house.force(task_id)
        house.wait_for(task_id, RUNNING)
        began, sent = time.monotonic(), proxy.sent
        told = figures_until_the_end(house, task_id)
        true_rate = (proxy.sent - sent) / (time.monotonic() - began)
    assert house.status(task_id) == SUCCESS
    mean_rate = statistics.mean(figures["rate"] for figures in told)
    assert abs(mean_rate / true_rate - 1) < 0.1, (mean_rate, true_rate)
    percents = [(figures["percent"], 100 * share.at(figures["time_ms"]) / size)
                for figures in told]
    assert all(abs(percent - truth) < 2 for percent, truth in percents), percents


def test_told_figures_of_large_files_are_true(house):
    """Of each file there is a piece on the share that was not read back yet, and is not told."""
    check_told_figures(house, files=3, file_size=160 * MIB, rate=8 * MIB)


def test_told_figures_of_many_files_are_true(house):
    check_told_figures(house, files=600, file_size=MIB // 4)


def test_figures_go_on_where_they_were_when_the_daemon_ends(house):
    for number in range(12):
        house.record(0, number % 3, f"{number:02}-00-00.mp4", noise(6 * MIB, number))
    with FaultProxy(house.samba.port) as proxy:
        proxy.rate = 8 * MIB
        task_id = house.create(port=proxy.port)
        house.force(task_id)
        wait_until(lambda: (house.progress(task_id) or [{"percent": 0}])[0]["percent"] > 50, "half")
        house.recorder.crash()
        before = house.progress(task_id)[0]
        proxy.rate = 2 * MIB
        house.recorder.serve()
        wait_until(lambda: house.progress(task_id)[0]["time_ms"] > before["time_ms"], "figures")
        for _ in range(10):
            after = house.progress(task_id)[0]
            assert before["percent"] <= after["percent"] < before["percent"] + 25
            assert after["files_done"] >= before["files_done"]
            assert after["bytes_done"] > before["bytes_done"] - 24 * MIB
            assert abs(after["bytes_planned"] - 72 * MIB) <= 24 * MIB
            time.sleep(0.3)
        proxy.rate = None
        house.wait_for_end(task_id)
    assert house.status(task_id) == SUCCESS
    assert house.progress(task_id)[0]["percent"] == 100
    assert house.progress(task_id)[0]["files_done"] >= 11
