"""Whether recordings are safe: the console says what `recorderctl status` says, in each state."""
import itertools
import threading
import time
from http.server import BaseHTTPRequestHandler, ThreadingHTTPServer

import pytest

from console_program import ConsoleProgram
from service_process import running
from waiting import wait_until

BEGINNINGS = {"SAFE: ": "safe", "NOT YET SAFE: ": "not_yet_safe", "ATTENTION: ": "attention"}
NOW = int(time.time())
AGO, SOON = NOW - 600, NOW + 36000

# What a task may be like, one of each line at a time.
STATES = {
    "enabled": (1, 0),
    "success": ("of the task", "of another", "too old", None),
    "overdue": (False, True),
    "run": (None, "success", "failed", "interrupted", "running"),
    "due": (True, False)}


class Answer(BaseHTTPRequestHandler):
    """What a daemon says is of no weight here: that it does is."""

    def do_GET(self):  # pylint: disable=invalid-name
        self.send_response(200)
        self.end_headers()

    def log_message(self, *unused):
        """Not on standard error."""


@pytest.fixture
def console(tmp_path):
    """With the daemon's database, which only the daemon makes."""
    made = ConsoleProgram(tmp_path / "state")
    with running("recording-backupd", made):
        pass
    return made


@pytest.fixture(name="daemon")
def with_daemon(console):  # pylint: disable=unused-argument,redefined-outer-name
    """One that answers, and does nothing else; the real one, which made the database, has ended."""
    with ThreadingHTTPServer(("127.0.0.1", 10205), Answer) as server:
        thread = threading.Thread(target=server.serve_forever)
        thread.start()
        yield
        server.shutdown()
        thread.join()


def add_tasks(console, count):
    console.add_tasks(count, status=0)
    console.sql("config", "UPDATE task SET chIdxList = '0'")
    for task in range(1, count + 1):
        put(console, task)


def put(console, task, *, enabled=1, success="of the task", overdue=False, run=None, due=True):
    """Has a task be so; without more words it is well."""
    console.sql("config", "UPDATE task SET enable = ?, status = ? WHERE taskID = ?", enabled,
                {"failed": 6, "running": 4}.get(run, 0), task)
    for table in ("task_health", "run", "next_run"):
        console.sql("backupd", f"DELETE FROM {table} WHERE taskID = ?", task)
    goal = "another" if success == "of another" else console.output("service_state", "goal",
                                                                     str(task))
    console.sql("backupd", "INSERT INTO task_health (taskID, last_number, last_success, "
                "success_time, success_goal, overdue_from, late_from) VALUES (?, 2, 1, ?, ?, ?, ?)",
                task, success and AGO, goal, AGO if overdue else SOON,
                AGO if success == "too old" else SOON)
    if run:
        outcome = {"success": 0, "failed": 1, "interrupted": 3}.get(run)
        console.sql("backupd", "INSERT INTO run (taskID, number, task_name, cause, started, ended, "
                    "outcome, reason) VALUES (?, 2, 'x', 0, ?, ?, ?, 'no room')", task, AGO,
                    None if outcome is None else AGO + 10, outcome)
    if due:
        console.sql("backupd", "INSERT INTO next_run (taskID, rule, due) VALUES (?, '', ?)", task,
                    SOON)


def asked(console, hears=True, **how):
    """The reply of a console that hears the daemon, or does not: it gives it a second, the command
    more. A 304 is of one that hears whom it has heard before."""
    reply = None

    def is_so():
        nonlocal reply
        reply = console.get("/tasks", **how)
        return reply.status == 304 or reply.json["services"]["backup"] == hears

    wait_until(is_so, "a daemon that answers in time")
    return reply


def both(console):
    """What the console and the command tell, which have to agree."""
    code, printed = console.backup_status()
    told = asked(console, printed["daemon_answers"]).json
    headline = printed["headline"]
    [verdict] = [word for words, word in BEGINNINGS.items() if headline.startswith(words)]
    assert told["verdict"] == verdict, headline
    assert told["needs_attention"] == (verdict == "attention") == (code == 1)
    assert (told["problems"], told["notes"]) == (printed["problems"], printed["notes"])
    assert [(task["problems"], task["notes"]) for task in told["tasks"]] == \
        [(task["problems"], task["notes"]) for task in printed["tasks"]]
    return told


@pytest.mark.usefixtures("daemon")
def test_the_console_and_the_command_judge_alike_whatever_a_task_is_like(console):
    add_tasks(console, 2)
    verdicts = set()
    for values in itertools.product(*STATES.values()):
        put(console, 1, **dict(zip(STATES, values)))
        told = both(console)
        verdicts.add(told["verdict"])
        for task in told["tasks"]:
            assert (task["missing"] is None) or told["verdict"] != "safe"
            assert task["enabled"] or task["missing"] is None
    assert verdicts == set(BEGINNINGS.values())


def test_they_judge_alike_without_a_daemon_or_its_database(console):
    add_tasks(console, 1)
    assert both(console)["verdict"] == "attention"
    for name in ("backupd.db", "backupd.db-wal", "backupd.db-shm"):
        (console.path / name).unlink(missing_ok=True)
    assert any("backupd.db" in text for text in both(console)["problems"])
    console.sql("config", "DELETE FROM task")
    assert both(console)["tasks"] == []


@pytest.mark.usefixtures("daemon")
def test_why_no_success_counts_is_told_and_what_to_do_about_problems(console):
    add_tasks(console, 3)
    put(console, 1, success=None)
    put(console, 2, success="of another")
    tasks = both(console)["tasks"]
    assert [(task["missing"] or "").split(" (due ")[0] for task in tasks] == [
        "waits for its first run", "was changed since its last success", ""]
    assert [task["remedies"] for task in tasks] == [[], [], []]
    put(console, 1, run="failed", overdue=True)
    remedies = both(console)["tasks"][0]["remedies"]
    assert [text.split(" ")[0] for text in remedies] == ["`recorderctl"] * 2
    assert "run show" in remedies[0] and "run list" in remedies[1]


@pytest.mark.usefixtures("daemon")
@pytest.mark.parametrize("column", ["late_from", "overdue_from"])
def test_what_the_clock_alone_brings_is_told_to_whoever_has_the_tag_of_before(console, column):
    """The tag's mark is another one a minute later (state_mark_test): what is told is judged."""
    add_tasks(console, 1)
    before = asked(console)
    assert before.json["verdict"] == "safe"
    digest, mark = before.headers["ETag"].split("-")
    later = f"{digest}-{mark[::-1]}"
    assert asked(console, HTTP_IF_NONE_MATCH=later).status == 304
    console.sql("backupd", f"UPDATE task_health SET {column} = ?", AGO)
    after = asked(console, HTTP_IF_NONE_MATCH=later)
    assert after.status == 200 and after.json["verdict"] != "safe"


@pytest.mark.usefixtures("daemon")
def test_alerts_that_do_not_arrive_are_told_and_are_no_problem(console):
    add_tasks(console, 1)
    assert both(console)["notes"] == []
    console.sql("backupd", "INSERT INTO alert (way, recipient, id, made, subject, text, object, "
                "attempts, last_failure) VALUES (0, 'a@b', 'x', ?, '', '', '{}', 4, 'no route')",
                NOW - 1800)
    assert both(console)["notes"] == []
    console.sql("backupd", "UPDATE alert SET made = made - 3600")
    told = both(console)
    assert told["verdict"] == "safe"
    assert "alerts by mail to a@b have not arrived since " in told["notes"][0]
    console.sql("backupd", "DELETE FROM alert")
    console.sql("backupd", "INSERT INTO alert_given_up VALUES (1, '', ?, 'refused')", NOW)
    assert both(console)["notes"][0].startswith("alerts by web hook have not arrived since ")
