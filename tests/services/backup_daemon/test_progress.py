"""What people are told of a run on its way: its speed, its percent, and both across a restart."""
import time

from backup_house import MIB, SUCCESS, noise
from fault_proxy import FaultProxy
from repeating import Repeating
from waiting import wait_until

RATE = 3 * MIB


WINDOW = 5000  # milliseconds that a told speed is of
ROUNDING = 10


class ShareWatch(Repeating):
    """When the share had how many bytes of recordings, whole or not. It gets no fewer."""

    pause = 0.02

    def __init__(self, house):
        self.folder = house.share
        self.seen = []

    def look(self):
        self.seen.append((time.time() * 1000, sum(map(size_of, self.folder.rglob("*.mp4*")))))

    def least_at(self, time_ms):
        """What lay there for certain when the clock showed this."""
        ended_before = [look[1] for look, later in zip(self.seen, self.seen[1:])
                        if later[0] <= time_ms]
        return max(ended_before, default=0)

    def most_at(self, time_ms):
        """No more lay there then. The second look that began later: one may miss a file that is
        being renamed."""
        later = [number for number, (began, _) in enumerate(self.seen) if began >= time_ms]
        return max(size for _, size in self.seen[:later[1] + 1])


def size_of(path):
    try:
        return path.stat().st_size
    except FileNotFoundError:
        return 0  # it has been renamed meanwhile


def keep_all_figures(house):
    """From now on the daemon's database keeps what its next figures replace."""
    house.change_database("CREATE TABLE told AS SELECT * FROM run_progress WHERE 0",
                          "CREATE TRIGGER keep AFTER INSERT ON run_progress "
                          "BEGIN INSERT INTO told SELECT * FROM run_progress; END")


def check_rates(told):
    """Each is that of the bytes told in its window, which begins with one of two figures: clocks
    are read one after the other."""
    compared = 0
    for now in told:
        earlier = [figures for figures in told
                   if figures["time_ms"] <= now["time_ms"] - WINDOW + ROUNDING]
        rates = [1000 * (now["bytes_done"] - first["bytes_done"]) /
                 (now["time_ms"] - first["time_ms"]) for first in earlier[-2:]]
        if len(rates) == 2:
            assert any(abs(now["rate"] - rate) <= 0.01 * rate for rate in rates), (now, rates)
            compared += 1
    assert compared, "the run was too short"


def check_percents(told, share, size):
    """What lay there when the figures before were told has been told, but for what is on its way;
    what does not lie there yet has not."""
    for before, now in zip(told, told[1:]):
        least, most = share.least_at(before["time_ms"]), share.most_at(now["time_ms"])
        assert 100 * least / size - 2 < now["percent"] <= 100 * most / size, (least, now, most)


def check_told_figures(house, files, file_size, rate=RATE):
    for number in range(files):
        house.record(0, 1, f"{number // 60:02}-{number % 60:02}-00.mp4", noise(file_size, number))
    keep_all_figures(house)
    with FaultProxy(house.samba.port) as proxy, ShareWatch(house) as share:
        proxy.rate = rate
        task_id = house.create(port=proxy.port)
        house.run(task_id)
        looks = len(share.seen)
        wait_until(lambda: len(share.seen) > looks + 2, "looks at the end")
    told = house.database("SELECT * FROM told ORDER BY rowid")[1:-1]
    check_rates(told)
    check_percents(told, share, files * file_size)


def test_told_figures_of_large_files_are_true(house):
    """Of each file there is a piece on the share that was not read back yet, and is not told."""
    check_told_figures(house, files=3, file_size=160 * MIB, rate=8 * MIB)


def test_told_figures_of_many_files_are_true(house):
    check_told_figures(house, files=600, file_size=MIB // 4)


def test_figures_go_on_where_they_were_when_the_daemon_ends(house):
    for number in range(12):
        house.record(0, number % 3, f"{number:02}-00-00.mp4", noise(6 * MIB, number))
    with FaultProxy(house.samba.port) as proxy:
        proxy.crawl_after(40 * MIB)
        task_id = house.create(port=proxy.port)
        house.force(task_id)
        wait_until(lambda: (house.progress(task_id) or [{"percent": 0}])[0]["percent"] > 50, "half")
        house.recorder.crash()
        before, sent = house.progress(task_id)[0], proxy.sent
        proxy.rate = 2 * MIB
        house.recorder.serve()
        wait_until(lambda: house.progress(task_id)[0]["time_ms"] > before["time_ms"], "figures")
        for _ in range(10):
            after = house.progress(task_id)[0]
            sent_since = 100 * (proxy.sent - sent) / (72 * MIB)
            assert before["percent"] <= after["percent"] < before["percent"] + 17 + sent_since
            assert after["files_done"] >= before["files_done"]
            assert after["bytes_done"] > before["bytes_done"] - 24 * MIB
            assert abs(after["bytes_planned"] - 72 * MIB) <= 24 * MIB
            time.sleep(0.3)
        proxy.rate = None
        house.wait_for_end(task_id)
    assert house.status(task_id) == SUCCESS
    assert house.progress(task_id)[0]["percent"] == 100
    assert house.progress(task_id)[0]["files_done"] >= 11
