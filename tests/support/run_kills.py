"""Runs whose daemon is killed at random moments, and what the history must say of them."""
import signal
import time

from backup_house import FAILED, MIB, SUCCESS, noise
from event_ids import RUN_RESUMED, RUN_STARTED
from service_process import end
from waiting import wait_until

RATE = 12 * MIB  # bytes a second


class KillScene:
    """One task. Each life of the daemon begins with a new recording, which a run copies or not."""

    def __init__(self, house, proxy, chance):
        self.house = house
        self.chance = chance
        proxy.rate = RATE
        self.task_id = house.create(port=proxy.port)
        house.recorder.kill_service("recording-backupd")
        self.daemon = house.recorder.start_service("recording-backupd")
        self.recorded = 0
        self.past = []

    def rows(self):
        return self.house.database("SELECT * FROM run WHERE taskID = ? ORDER BY number",
                                   self.task_id)

    def status(self):
        return self.house.recorder.backup_status()[1]["tasks"][0]

    def ended(self):
        return self.house.status(self.task_id) in (SUCCESS, FAILED)

    def begin_anew(self):
        """What a run that has ended by itself left is complete: every recording is on the share."""
        if self.recorded:
            assert self.house.shared() == self.house.sources()
        size = self.chance.choice([1000, MIB, 4 * MIB])
        self.house.record(0, 0, f"{self.recorded // 60:02}-{self.recorded % 60:02}-00.mp4",
                          noise(size, self.recorded))
        self.recorded += 1
        self.house.force(self.task_id)

    def live_a_while_and_be_killed(self):
        if not self.recorded or self.ended():
            self.begin_anew()
        time.sleep(self.chance.uniform(0.0, 0.7))
        end(self.daemon, signal.SIGKILL)
        self.check_killed()
        self.daemon = self.house.recorder.start_service("recording-backupd")
        self.check_history()

    def check_killed(self):
        """With nobody there to mend anything: a success that is told was one. Nothing is recorded
        between a run's end and the next start, so the share has all there is."""
        status = self.status()
        rows = self.rows()
        successes = [row for row in rows if row["outcome"] == 0]
        assert status.get("last_success") == max((row["ended"] for row in successes), default=None)
        if self.ended() and rows[-1]["outcome"] == 0:
            assert self.house.shared() == self.house.sources()

    def check_history(self):
        """Rows are numbered without a gap and never change once they are closed; what the killed
        daemon left open is closed; each run that has told of its beginning has a row."""
        rows = self.rows()
        assert [row["number"] for row in rows] == list(range(1, len(rows) + 1))
        closed = [row for row in rows if row["outcome"] is not None]
        assert closed[:len(self.past)] == self.past, "what was closed has changed"
        assert len(rows) - len(closed) <= 1 and closed == rows[:len(closed)]
        self.past = closed
        begun = [event for event, _ in self.house.events() if event in (RUN_STARTED, RUN_RESUMED)]
        assert len(begun) <= len(rows), "a run without a row"

    def check_the_end(self):
        wait_until(self.ended, "the last run's end")
        assert self.house.status(self.task_id) == SUCCESS
        wait_until(lambda: self.rows()[-1]["outcome"] == 0, "the end in the history")
        self.check_history()
        assert self.house.shared() == self.house.sources()
        causes = {row["cause"] for row in self.rows()}
        assert {1, 3} <= causes, "runs that were started, and runs that were taken up again"
