"""Problems that come and go while their daemon is killed at random moments, and their alerts."""
import json
import signal
import sqlite3
import time
from itertools import groupby

from backup_house import FAILED, SUCCESS
from places import STATE
from recorder_clock import FAR_HOUR
from service_process import end
from waiting import SECONDS, wait_until

# Nobody listens there: alerts wait in the store, and can be counted.
NOBODY = "http://127.0.0.1:9/"

FAILURE, LATE = 0, 1  # kinds of problems, as they are stored
NAMES = {FAILURE: "run_failed", LATE: "overdue"}
RUN_SUCCEEDED, RUN_FAILED = 0, 1
DAY = 86400

GOOD, BAD = "/backup/recorder", "/no-such-share/recorder"


def alerts(house):
    """All alerts' objects, the oldest first."""
    return [json.loads(row["object"])
            for row in house.database("SELECT object FROM alert ORDER BY number")]


def open_problems(house):
    return {(row["kind"], row["subject"]): row for row in house.database("SELECT * FROM problem")}


class AlertScene:
    """Two tasks: the first one's share is there or not, the second one's last success grows old
    while the daemon is down. `events` are the problems' beginnings and ends, as they must be
    told."""

    def __init__(self, house, chance):
        self.house = house
        self.chance = chance
        house.recorder.ctl("config", "set", "--force", "alert", "web_hook", NOBODY)
        house.record(0, 0, "01-00-00.mp4", b"content")
        self.failing = house.create(taskName="Failing")
        self.late = house.create(taskName="Late", scheduleHour=FAR_HOUR)
        began = time.monotonic()
        house.run(self.failing)
        house.run(self.late)
        # However slow the machine is, most lives see a run's end.
        self.longest_life = 2 * (time.monotonic() - began)
        wait_until(lambda: house.database("SELECT 1 FROM task_health WHERE first_due > 0"),
                   "the schedule")
        house.recorder.kill_service("recording-backupd")
        self.daemon = house.recorder.start_service("recording-backupd")
        self.expected_late = []
        self.wanted = {}

    # --- what happens ---------------------------------------------------------------------------

    def start_something(self):
        """A run of a task whose last one has come to what it should."""
        task_id = self.chance.choice([self.failing, self.failing, self.late])
        wanted = SUCCESS
        if task_id == self.failing:
            wanted = self.chance.choice([SUCCESS, FAILED])
            path = GOOD if wanted == SUCCESS else BAD
            self.house.recorder.ctl("task", "set", task_id, f"destPath={path}")
        self.wanted = {task_id: wanted}
        self.house.force(task_id)

    def has_settled(self):
        return all(self.house.status(task_id) == status
                   for task_id, status in self.wanted.items())

    def is_late(self):
        return self.expected_late[-1:] == ["raised"]

    def note_success_of_late(self):
        if self.is_late() and self.late in self.wanted:
            self.expected_late.append("resolved")

    def may_grow_old(self):
        """A success whose row is still open is as new as it is when the row is closed."""
        is_open = self.house.database("SELECT 1 FROM run WHERE outcome IS NULL")
        return self.has_settled() and not is_open and not self.is_late()

    def grow_old(self):
        """Nobody else writes while the daemon is down."""
        long_ago = int(time.time()) - 2 * DAY
        connection = sqlite3.connect(STATE / "backupd.db", timeout=SECONDS)
        with connection:
            connection.execute("UPDATE task_health SET success_time = ?, first_due = ? "
                               "WHERE taskID = ?", (long_ago, long_ago, self.late))
            connection.execute("UPDATE run SET ended = ? WHERE taskID = ?", (long_ago, self.late))
        connection.close()
        self.expected_late.append("raised")

    def live_and_be_killed(self, times):
        """So often, and on until both problems have come and gone: which tasks run in which life,
        and whether they get to their end, is left to chance."""
        for _ in range(times):
            self.live_a_while_and_be_killed()
        wait_until(self.has_seen_all_with_another_life, "both problems to come and go")

    def has_seen_all_with_another_life(self):
        if not self.has_seen_all():
            self.live_a_while_and_be_killed()
        return self.has_seen_all()

    def has_seen_all(self):
        return all({"raised", "resolved"} <= set(told) for told in (
            self.told(FAILURE, self.failing), self.told(LATE, self.late)))

    def live_a_while_and_be_killed(self):
        settled = self.has_settled()
        if settled:
            self.note_success_of_late()
            self.start_something()
        time.sleep(self.chance.uniform(0.0, self.longest_life))
        end(self.daemon, signal.SIGKILL)
        self.check_killed()
        if self.may_grow_old() and self.chance.random() < 0.5:
            self.grow_old()
            self.wanted = {}
        self.daemon = self.house.recorder.start_service("recording-backupd")

    # --- what must be so ------------------------------------------------------------------------

    def told(self, kind, task_id):
        return [alert["event"] for alert in alerts(self.house)
                if alert["problem"] == NAMES[kind] and alert["task"]["id"] == task_id]

    def failures(self, task_id):
        """Beginnings and ends of rows of failures, by the history."""
        outcomes = [row["outcome"] for row in self.house.database(
            "SELECT outcome FROM run WHERE taskID = ? AND outcome IN (0, 1) ORDER BY number",
            task_id)]
        rows = [outcome for outcome, _ in groupby(outcomes)]
        if rows[:1] == [RUN_SUCCEEDED]:
            rows = rows[1:]
        return ["raised" if outcome == RUN_FAILED else "resolved" for outcome in rows]

    def check_killed(self):
        """Whatever the moment: each alert is one, and what is open is what was told last."""
        told = alerts(self.house)
        assert len({alert["id"] for alert in told}) == len(told), "an alert twice"
        is_open = open_problems(self.house)
        for kind, task_id in ((FAILURE, self.failing), (FAILURE, self.late), (LATE, self.late)):
            events = self.told(kind, task_id)
            assert events == (["raised", "resolved"] * len(events))[:len(events)], events
            assert ((kind, task_id) in is_open) == (events[-1:] == ["raised"])
        for task_id in (self.failing, self.late):
            events, truth = self.told(FAILURE, task_id), self.failures(task_id)
            # The row of an end is closed behind the task's own state, and told by what is first.
            assert abs(len(events) - len(truth)) <= 1, (events, truth)

    def check_the_end(self):
        wait_until(self.has_settled, "the last run's end")
        self.note_success_of_late()
        for _ in range(2):  # what was told is not told again by another life
            wait_until(lambda: self.told(FAILURE, self.failing) == self.failures(self.failing),
                       "the alerts of the task that fails")
            wait_until(lambda: self.told(LATE, self.late) == self.expected_late,
                       "the alerts of the task that is late")
            assert self.failures(self.late) == self.told(FAILURE, self.late) == []
            self.check_killed()
            end(self.daemon, signal.SIGKILL)
            self.daemon = self.house.recorder.start_service("recording-backupd")
        assert self.has_seen_all()
        assert all(alert["event"] != "reminder" for alert in alerts(self.house))
