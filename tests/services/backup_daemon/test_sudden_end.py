"""kill -9 of the daemon at random moments of one run: it goes on and nothing is lost."""
import random
import signal
import time

from backup_house import MIB, SUCCESS, House, noise
from fault_proxy import FaultProxy
from service_process import end
from waiting import wait_until

KILLS = 50

# What is sent between two kills at most, so that all of them fall into the run.
MOST_AT_A_TIME = 5 * MIB

# What was on its way at a kill may be sent again.
PROMISE = 8 * MIB


def record_all(house):
    total = 0
    for channel in range(2):
        for days_ago in range(2):
            for number in range(5):
                size = 14 * MIB + 1009 * number
                house.record(channel, days_ago, f"{number:02}-30-00.mp4",
                             noise(size, f"{channel} {days_ago} {number}"), alarm=number == 4)
                total += size
    return total


def wait_a_moment(chance, proxy, already_sent):
    """For a random time, unless more is sent in it than may be."""
    moment = time.monotonic() + chance.uniform(0.02, 0.5)
    wait_until(lambda: time.monotonic() > moment or proxy.sent > already_sent + MOST_AT_A_TIME,
               "a moment")


def test_killed_daemon_goes_on_each_time_and_loses_nothing(tmp_path):
    with House(tmp_path, channels=2) as house, FaultProxy(house.samba.port) as proxy:
        planned = record_all(house)
        # Slow enough for kills while a file is sent, too, not only while it is read back.
        proxy.rate = 12 * MIB
        task_id = house.create(port=proxy.port)
        chance = random.Random(20240301)
        house.recorder.kill_service("recording-backupd")
        daemon = house.recorder.start_service("recording-backupd")
        house.force(task_id)
        sent = 0
        for _ in range(KILLS):
            wait_a_moment(chance, proxy, sent)
            end(daemon, signal.SIGKILL)
            house.check_records()
            sent = proxy.sent
            daemon = house.recorder.start_service("recording-backupd")
        assert house.status(task_id) != SUCCESS, "the kills must fall into the run"
        proxy.rate = None
        wait_until(lambda: house.status(task_id) == SUCCESS, "the run's end")
        assert house.shared() == house.sources()
        assert len(house.copied()) == 20
        house.check_records()
        assert house.database("SELECT * FROM checkpoint") == []
        print(f"planned {planned} sent {proxy.sent}")
        assert proxy.sent - planned < KILLS * PROMISE
