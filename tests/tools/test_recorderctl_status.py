"""recorderctl status and run on states that are made up: what can be told is, and nothing is called
safe that is not."""
import fcntl
import itertools
import os
import pty
import re
import select
import signal
import sqlite3
import struct
import subprocess
import termios
import threading
import time
from contextlib import closing
from http.server import BaseHTTPRequestHandler, ThreadingHTTPServer

import pytest

from failures import refused
from places import PROGRAMS, SOURCE
from recorder_clock import local
from waiting import SECONDS

MEMORY_SCHEMAS = sorted((SOURCE / "services/backup_daemon/memory").glob("memory_schema_*.sql"))
SILENT = "the backup daemon does not answer: nothing is copied, and no schedule is kept"
NOW = int(time.time())


class Answer(BaseHTTPRequestHandler):
    """What a daemon says is of no weight here: that it does is."""

    def do_GET(self):  # pylint: disable=invalid-name
        self.send_response(200)
        self.end_headers()

    def log_message(self, *unused):
        """Not on standard error."""


@pytest.fixture(name="daemon")
def with_daemon():
    """One that answers, and does nothing else."""
    with ThreadingHTTPServer(("127.0.0.1", 10205), Answer) as server:
        thread = threading.Thread(target=server.serve_forever)
        thread.start()
        yield
        server.shutdown()
        thread.join()


def write(state, sql):
    with closing(sqlite3.connect(state.path / "backupd.db")) as database:
        database.executescript(sql)


@pytest.fixture(name="memory")
def with_memory(state):
    """The state with the daemon's own database, in which no task has run."""
    write(state, "PRAGMA journal_mode = WAL;" + "".join(map(lambda sql: sql.read_text(),
                                                            MEMORY_SCHEMAS))
          + f"PRAGMA user_version = {len(MEMORY_SCHEMAS)}")
    return state


def add_run(state, task, number, outcome, *, name="Doors", reason="", started=NOW - 100):
    ended = "NULL" if outcome == "NULL" else started + 10
    write(state, f"""INSERT INTO run (taskID, number, task_name, cause, started, ended, outcome,
        reason)
        VALUES ({task}, {number}, '{name}', 0, {started}, {ended}, {outcome}, '{reason}')""")


def add_health(state, task, **members):
    """What the daemon has reckoned of a task."""
    names = ", ".join(["taskID", *members])
    with closing(sqlite3.connect(state.path / "backupd.db")) as database, database:
        database.execute(f"INSERT INTO task_health ({names}) VALUES (?{', ?' * len(members)})",
                         [task, *members.values()])


def goal_of(state, task):
    return state.output("service_state", "goal", str(task))


def add_success(state, task, started=NOW - 100, **members):
    """Of the task as it is stored now."""
    add_run(state, task, 1, 0, started=started)
    add_health(state, task, **{"last_number": 1, "last_success": 1, "success_time": started + 10,
                               "success_goal": goal_of(state, task), **members})


def add_next_run(state, task, due=NOW + 3600):
    write(state, f"INSERT INTO next_run (taskID, rule, due) VALUES ({task}, '0 0 25 0 0 ', {due})")


def add_fine_tasks(state, count=1, **members):
    """They have succeeded, and come due in an hour."""
    state.add_tasks(count, **{"status": 0, **members})
    for task in range(1, count + 1):
        state.ctl("task", "set", str(task), "chIdxList=0")
        add_success(state, task)
        add_next_run(state, task)


def problems(state):
    """Of each task."""
    return [task["problems"] for task in status(state)["tasks"]]


def queue(state, task):
    with closing(sqlite3.connect(state.path / "config.db")) as database, database:
        database.execute("INSERT INTO queue (taskID, place, parallel) VALUES (?, 1, 0)", [task])


def minute(seconds):
    return local(seconds, "%Y-%m-%d %H:%M %z")


def zone_at_noon():
    """Where it is noon just now, and the day does not change before the test ends."""
    return f"<noon>{time.gmtime(NOW).tm_hour - 12:+}"


def status(state):
    code, told = state.backup_status()
    assert code == (1 if told["needs_attention"] else 0)
    return told


def test_a_recorder_without_a_task_is_not_safe(state):
    told = status(state)
    assert told["headline"].startswith("ATTENTION: ") and told["tasks"] == []
    assert SILENT in told["problems"] and "there is no task: nothing is copied" in told["problems"]
    assert any("backupd.db; the backup daemon makes it when it starts" in problem
               for problem in told["problems"])


def test_a_daemon_that_is_not_there_is_a_problem_whatever_the_tasks_say(memory):
    add_fine_tasks(memory)
    told = status(memory)
    assert told["problems"] == [SILENT]
    assert told["tasks"][0]["problems"] == []
    assert not told["daemon_answers"] and told["needs_attention"]


@pytest.mark.parametrize("code", [6, 2])
def test_the_last_whole_run_counts_also_while_the_next_one_waits(memory, code):
    """6 is "failed", 2 is "wait"."""
    memory.add_tasks(1, status=code)
    add_run(memory, 1, 1, 1, reason="no route")
    add_run(memory, 1, 2, 2)
    problem, = [text for text in problems(memory)[0] if "failed" in text]
    assert problem.startswith("its run 1 failed at ") and problem.endswith(": no route")


def test_a_success_stands_for_the_task_as_it_was_then(memory):
    """An edit makes a task "new" (1), "task set" leaves its "success" (0)."""
    memory.add_tasks(4, status=0)
    for task in (1, 2, 3, 4):
        memory.ctl("task", "set", str(task), "chIdxList=0")
    for task in (1, 2):
        add_success(memory, task)
    for task in (3, 4):
        add_health(memory, task, success_time=NOW)
    for task in (1, 2, 3, 4):
        add_next_run(memory, task)
    memory.ctl("task", "set", "2", "destPath=/elsewhere")
    memory.ctl("task", "set", "4", "status=1")
    told = status(memory)
    assert [task["notes"] for task in told["tasks"]] == [
        [], [f"it was changed since its last success (due {minute(NOW + 3600)})"], [],
        [f"it may have been changed since its last success (due {minute(NOW + 3600)})"]]
    assert [task["problems"] for task in told["tasks"]] == [[]] * 4


@pytest.mark.usefixtures("daemon")
def test_the_headline_tells_what_waits_for_its_first_run(memory):
    add_fine_tasks(memory, 3)
    write(memory, "UPDATE task_health SET success_time = NULL; DELETE FROM run")
    for task in (2, 3):
        memory.ctl("task", "set", str(task), "enable=false")
    due = minute(NOW + 3600)
    assert status(memory)["headline"] == (
        f"NOT YET SAFE: task 1 waits for its first run (due {due}); 2 tasks are disabled")
    memory.ctl("task", "set", "2", "enable=true")
    assert status(memory)["headline"] == (
        "NOT YET SAFE: 2 of 2 tasks have yet to succeed; 1 task is disabled")
    add_run(memory, 1, 1, 2)
    memory.ctl("task", "set", "1", "status=2")
    queue(memory, 1)
    assert [task["notes"] for task in status(memory)["tasks"]] == [
        ["it has never succeeded (in the queue)"], [f"it waits for its first run (due {due})"], []]


@pytest.mark.usefixtures("daemon")
def test_the_headline_tells_what_nobody_copies(memory):
    """Somebody may want it so: that is to be known, and is no problem."""
    add_fine_tasks(memory, 3)
    for index, name in enumerate(("Door", "Yard", "Gate\x1b[2J")):
        memory.add_channel(index, name, memory.path)
    zone = zone_at_noon()
    memory.environment["TZ"] = zone
    today = local(NOW, "%Y-%m-%d", zone)
    for task, end in (("2", today), ("3", "2024-03-01")):
        memory.ctl("task", "set", task, "backupType=1", f"backupEndDay={end}")
        write(memory, f"UPDATE task_health SET success_goal = '{goal_of(memory, task)}' "
              f"WHERE taskID = {task}")
    memory.ctl("task", "set", "1", "chIdxList=0,10", "enable=false")
    notes = ["2 cameras are in no enabled task: Yard, Gate\x1b[2J",
             "the time range of task 3 has ended", "1 task is disabled"]
    told = status(memory)
    assert told["notes"] == notes and not told["needs_attention"]
    assert told["headline"].startswith("SAFE: ")
    assert told["headline"].endswith("; " + "; ".join(notes))
    assert told["tasks"][2]["notes"] == ["its time range has ended"]
    said = memory.run("recorderctl", "status").stdout
    assert "Yard, Gate\\x1B[2J; the time range" in said.splitlines()[0]
    for index in range(3, 9):
        memory.add_channel(index, f"Barn {index}", memory.path)
    assert status(memory)["notes"][0] == ("8 cameras are in no enabled task: Yard, "
                                          "Gate\x1b[2J, Barn 3, Barn 4, Barn 5 and 3 more")


@pytest.mark.usefixtures("daemon")
def test_a_success_that_is_too_old_makes_nothing_safe_though_the_schedule_is_new(memory):
    add_fine_tasks(memory, 2)
    assert status(memory)["headline"].startswith("SAFE: ")
    write(memory, f"""UPDATE task_health SET late_from = {NOW - 60}, overdue_from = {NOW + 3600};
        UPDATE task_health SET overdue_from = {NOW - 60} WHERE taskID = 2""")
    told = status(memory)
    assert told["tasks"][0]["notes"] == [
        f"it has not succeeded since {minute(NOW - 90)} (due {minute(NOW + 3600)})"]
    assert told["tasks"][0]["problems"] == [] and told["tasks"][1]["notes"] == []
    memory.ctl("task", "set", "2", "enable=false")
    assert status(memory)["headline"].startswith("NOT YET SAFE: ")


def test_a_task_that_nothing_starts_is_a_problem_however_well_it_was(memory):
    add_fine_tasks(memory, 3)
    write(memory, "DELETE FROM next_run WHERE taskID IN (2, 3)")
    memory.ctl("task", "set", "3", "enable=false")
    assert problems(memory) == [[], ["no schedule ever starts it"], []]


def test_a_task_that_the_daemon_has_not_looked_at_is_a_problem(memory):
    add_fine_tasks(memory)
    write(memory, "DELETE FROM task_health; DELETE FROM next_run")
    assert problems(memory) == [["the backup daemon has not looked at its schedule"]]


@pytest.mark.usefixtures("daemon")
def test_of_a_task_that_was_not_started_in_its_time_that_is_a_problem(memory):
    due = NOW - 600
    add_fine_tasks(memory, 4)
    memory.ctl("task", "set", "2", "status=4")
    queue(memory, 3)
    # Two minutes are its time; those that have passed since NOW do not count.
    write(memory, f"UPDATE next_run SET due = {due}; "
          f"UPDATE next_run SET due = {int(time.time())} WHERE taskID = 4")
    late = f"it came due at {minute(due)} and was not started"
    assert [[text for text in texts if "due" in text] for texts in problems(memory)] == [
        [late], [], [], []]


def test_without_a_daemon_nobody_wonders_that_a_task_was_not_started(memory):
    add_fine_tasks(memory)
    write(memory, f"UPDATE next_run SET due = {NOW - 600}")
    assert problems(memory) == [[]]


def test_a_moment_that_has_come_makes_a_task_overdue_without_a_daemon(memory):
    memory.add_tasks(3)
    write(memory, f"""INSERT INTO task_health (taskID, overdue_from) VALUES
        (1, {NOW - 60}), (2, {NOW + 3600}), (3, {NOW - 60})""")
    memory.ctl("task", "set", "3", "enable=false")
    assert [task["overdue"] for task in status(memory)["tasks"]] == [True, False, False]


def test_runs_of_a_task_that_had_the_identifier_are_not_told_as_this_ones(memory):
    memory.add_tasks(1)
    add_health(memory, 1, last_number=2, first_run=3)
    add_next_run(memory, 1)
    add_run(memory, 1, 1, 1)
    add_run(memory, 1, 2, 3)
    task, = status(memory)["tasks"]
    assert "last_run" not in task and not any("failed" in text for text in task["problems"])


def failures_told(state):
    return [[text for text in texts if "failed" in text] for texts in problems(state)]


@pytest.mark.parametrize("stored, row, failed", [(0, 1, True), (6, 0, False)])
def test_the_row_of_a_run_that_began_after_the_stored_end_wins(memory, stored, row, failed):
    """Somebody has asked while it ended: the tasks are read first, and the history then. 0 is
    "success", 6 is "failed"; of rows they are 0 and 1."""
    add_fine_tasks(memory)
    memory.ctl("task", "set", "1", f"status={stored}", f"endTime={NOW - 50}")
    add_run(memory, 1, 2, row, started=NOW - 200)
    assert bool(failures_told(memory)[0]) == (not failed), "of a run before that end"
    add_run(memory, 1, 3, row, started=NOW - 40)
    assert bool(failures_told(memory)[0]) == failed
    add_run(memory, 1, 4, row, started=NOW - 50)
    assert failures_told(memory)[0], "who cannot tell which is newer believes the worse"


def test_a_run_that_was_cut_off_is_a_problem_until_another_goes_on_with_it(memory):
    add_fine_tasks(memory, 2)
    for task in (1, 2):
        add_run(memory, task, 2, 3, reason="no space")
    memory.ctl("task", "set", "2", "status=5")
    assert problems(memory) == [["its run 2 was cut off: no space"], []], "5 is stopped by hand"
    add_run(memory, 1, 3, "NULL")
    assert problems(memory)[0] == []


def test_a_task_without_a_camera_copies_nothing(memory):
    add_fine_tasks(memory, 2)
    memory.ctl("task", "set", "2", "chIdxList=")
    write(memory, "UPDATE task_health SET success_goal = '' WHERE taskID = 2")
    assert problems(memory) == [[], ["no camera is chosen"]]


def test_a_success_that_found_nothing_where_there_were_recordings_is_a_problem(memory):
    add_fine_tasks(memory, 3)
    memory.ctl("task", "set", "2", "recordingType=1")
    memory.ctl("task", "set", "3", "backupType=1", "backupEndDay=2024-03-01")
    for task in (1, 2, 3):
        add_run(memory, task, 2, 0)
    write(memory, """UPDATE run SET goal = 'g'; UPDATE task_health SET last_success = 2;
        UPDATE run SET files_kept = 1 WHERE number = 1""")
    found = [[text for text in texts if "found" in text] for texts in problems(memory)]
    assert found == [["its last success found no recordings, unlike those before"], [], []], (
        "a day without alarms is nothing strange, nor a range of days whose recordings are gone")


def test_names_and_reasons_that_others_wrote_are_harmless(memory):
    evil = "\x1b[2J\x9b\x07\\n"
    memory.add_tasks(1, status=6)
    memory.ctl("task", "set", "1", f"taskName={evil}")
    add_run(memory, 1, 1, 1, name=evil, reason=evil)
    for words in (["status"], ["run", "list"], ["run", "show", "1"]):
        said = memory.run("recorderctl", *words).stdout
        assert "\\x1B[2J" in said, words
        assert not re.search("[\x00-\x08\x0b-\x1f\x7f\x80-\x9f]", said), words


def test_runs_that_are_not_kept_are_refused(memory):
    add_run(memory, 1, 3, 0)
    assert refused(memory, "run", "show", "1", "2") == "no run 2 of a task 1 is kept"
    assert refused(memory, "run", "show", "2") == "no run of a task 2 is kept"
    assert memory.ctl("run", "list", "2") == ""
    assert memory.runs("1")[0]["number"] == 3


def test_the_newest_hundred_runs_are_listed_unless_all_are_wanted(memory):
    for number in range(1, 103):
        add_run(memory, 1 + number % 2, number, number % 2, started=NOW - 1000 + number)
    everything = list(range(102, 0, -1))
    assert [run["number"] for run in memory.ctl_json("run", "list")] == everything[:100]
    assert len(memory.ctl("run", "list").splitlines()) == 100
    assert [run["number"] for run in memory.ctl_json("run", "list", "--all")] == everything
    assert [run["number"] for run in memory.ctl_json("run", "list", "--all", "--failed", "2")] == [
        number for number in everything if number % 2]


def test_a_run_that_goes_on_has_no_end(memory):
    add_run(memory, 1, 1, "NULL")
    run, = memory.runs()
    assert run["outcome"] == "running" and "ended" not in run


def test_a_database_of_another_schema_is_not_read(memory):
    write(memory, "PRAGMA user_version = 3")
    assert "backupd.db has schema 3" in refused(memory, "run", "list")
    assert any("has schema 3" in problem for problem in status(memory)["problems"])


@pytest.mark.parametrize("words", [["status"], ["status", "--watch"], ["task", "list"], ["--help"],
                                   ["config", "list"], ["run", "list"]])
def test_what_cannot_be_written_is_not_told_as_done(memory, words):
    add_fine_tasks(memory)
    with open("/dev/full", "w", encoding="utf-8") as full:
        done = subprocess.run([PROGRAMS / "recorderctl", *words], env=memory.environment,
                              stdout=full, stderr=subprocess.PIPE, text=True, timeout=SECONDS,
                              check=False)
    assert (done.returncode, done.stderr) == (
        1, "recorderctl: what there is to tell cannot be written\n")


def test_watching_tells_it_again_until_it_is_stopped(memory):
    with subprocess.Popen([PROGRAMS / "recorderctl", "status", "--watch"], text=True,
                          env=memory.environment, stdout=subprocess.PIPE) as process:
        lines = [process.stdout.readline() for _ in range(20)]
        process.send_signal(signal.SIGINT)
        process.communicate(timeout=SECONDS)
    assert process.returncode == -signal.SIGINT
    assert sum(line.startswith("ATTENTION: ") for line in lines) >= 2


def screen_with(terminal, wanted):
    """The lines of the first whole screen that a terminal shows with these words."""
    shown = b""
    while True:
        assert select.select([terminal], [], [], SECONDS)[0], shown
        shown += os.read(terminal, 65536)
        for screen in shown.split(b"\x1b[H\x1b[2J")[1:-1]:
            if wanted in screen.decode():
                return screen.decode().splitlines()


@pytest.fixture(name="window")
def small_window():
    """Both ends of a terminal of 16 lines and 60 columns."""
    ends = pty.openpty()
    fcntl.ioctl(ends[1], termios.TIOCSWINSZ, struct.pack("HHHH", 16, 60, 0, 0))
    yield ends
    for end in ends:
        os.close(end)


@pytest.mark.usefixtures("daemon")
def test_a_window_shows_what_is_wrong_and_what_is_at_work_first(memory, window):
    add_fine_tasks(memory, 12)
    memory.ctl("task", "set", "8", "status=2")
    queue(memory, 8)
    memory.ctl("task", "set", "11", "chIdxList=", "taskName=" + "ü" * 80)
    with subprocess.Popen([PROGRAMS / "recorderctl", "status", "--watch"],
                          env=memory.environment, stdout=window[1]) as process:
        lines = screen_with(window[0], "ATTENTION: ")
        memory.ctl("task", "set", "11", "enable=false")
        quiet = screen_with(window[0], "SAFE: ")
        process.send_signal(signal.SIGINT)
    assert len(lines) == 15 and max(map(len, lines)) == 60
    assert any("no camera is chosen" in line for line in lines) is False, "cut at the window's edge"
    assert lines[1].startswith('  task 11 "üü')
    rows = [line.split()[0] for line in lines[5:-2]]
    assert rows == ["11", "8", "1", "2", "3", "4", "5", "and"], lines
    assert lines[-3] == "and 5 more, all well"
    assert quiet[3].startswith("8 ") and quiet[4].startswith("1 "), quiet


def test_watching_goes_on_when_nothing_can_be_read_for_a_while(memory):
    add_fine_tasks(memory)
    config, away = memory.path / "config.db", memory.path / "away.db"
    with subprocess.Popen([PROGRAMS / "recorderctl", "status", "--watch"], text=True,
                          env=memory.environment, stdout=subprocess.PIPE) as process:
        first = process.stdout.readline()
        config.rename(away)
        lines = iter(process.stdout.readline, "")
        assert any("no recorder state" in line and line.startswith("ATTENTION: ")
                   for line in lines)
        away.rename(config)
        assert first in lines
        process.send_signal(signal.SIGINT)
        process.communicate(timeout=SECONDS)
    assert process.returncode == -signal.SIGINT


def test_times_that_are_told_one_after_the_other_have_a_line_between_them(memory):
    with subprocess.Popen([PROGRAMS / "recorderctl", "status", "--watch"], text=True,
                          env=memory.environment, stdout=subprocess.PIPE) as process:
        lines = list(itertools.takewhile(lambda line: not line.startswith("Now: "),
                                         process.stdout))
        between = [process.stdout.readline(), process.stdout.readline()]
        process.send_signal(signal.SIGINT)
        process.communicate(timeout=SECONDS)
    assert between == ["\n", lines[0]]
