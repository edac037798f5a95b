"""What grows with the number of tasks: their list, the daemon's looks, a rush, alerts."""
import time
from contextlib import contextmanager
from datetime import date, timedelta

from benchmarks.growth.measures import (cpu_each_second, cpu_ms, database_bytes, instructions,
                                        look_up, open_database, peak_kb, run_sql, table_bytes,
                                        times_of_empty)
from cgi_program import CgiProgram
from loopback import request
from metrics import PORT as METRICS_PORT
from places import STATE
from sample_task import task_body
from service_process import running
from waiting import wait_until

NEW, FAILED = 1, 6  # status, as it is stored
QUIET_SECONDS = 10.5  # one look at the problems is among it
CAMERAS = range(8, 16)
NOBODY = 9  # a port without a server: a run tries again and again
ALL_TASKS_ARE_NOTED = ("SELECT (SELECT count(*) FROM task_health) = ?1 "
                       "AND (SELECT count(*) FROM next_run) = ?1")


def first_task(program):
    """Of the size of an everyday one; it comes due in three days."""
    body = task_body(taskName="Floor 12, south", serverIP="127.0.0.1", port=NOBODY,
                     destPath="/backup/site-12/south", chIdxList=list(CAMERAS),
                     scheduleType="weekly",
                     scheduleWeekly=(date.today() + timedelta(3)).isoweekday(),
                     backupImmediately=False)
    with running("recording-backupd", program):
        assert program.create(body).status == 0


def multiply(program, tasks, status=NEW):
    """As many as are wanted, all like the first one."""
    config = program.path / "config.db"
    with open_database(config) as database:
        columns = [row[1] for row in database.execute("PRAGMA table_info(task)")]
    columns = ",".join(column for column in columns if column != "taskID")
    run_sql(config, "WITH RECURSIVE n(i) AS "
            "(SELECT count(*) FROM task UNION ALL SELECT i + 1 FROM n WHERE i + 1 < ?) "
            f"INSERT INTO task ({columns}) SELECT {columns} FROM task, n WHERE taskID = 1", tasks)
    run_sql(config, "UPDATE task SET status = ?", status)
    assert look_up(config, "SELECT count(*) FROM task") == tasks


@contextmanager
def daemon_with(program):
    """A daemon that has noted of each task what it notes."""
    with running("recording-backupd", program) as daemon:
        tasks = look_up(program.path / "config.db", "SELECT count(*) FROM task")
        wait_until(lambda: look_up(program.path / "backupd.db", ALL_TASKS_ARE_NOTED, tasks),
                   "the daemon's first looks")
        yield daemon


def measure_tasks(sizes):
    program = CgiProgram(STATE / "tasks")
    first_task(program)
    for size in sizes:
        multiply(program, size)
        with daemon_with(program) as daemon:
            yield (database_bytes(program.path / "config.db"),
                   database_bytes(program.path / "backupd.db"),
                   *request_figures(program, size), *daemon_figures(daemon))


TASK_FIGURES = [
    "config.db, bytes", "backupd.db, bytes",
    "GET /task, reply bytes", "GET /task, thousand instructions",
    "GET /task, peak kB", "GET /task, times of an empty program",
    "GET /task/status/<id>, thousand instructions", "GET /task/status/<id>, peak kB",
    "console: GET tasks, reply bytes", "console: GET tasks, thousand instructions",
    "console: GET tasks, peak kB",
    "daemon at rest, ms of CPU each second", "daemon, a scrape's bytes",
    "daemon, a scrape's ms of CPU", "daemon, peak kB"]


def request_figures(program, tasks):
    cgi, console = "recording_backup.cgi", "console.cgi"
    one = f"/task/status/{tasks}"
    counted, reply = instructions(program, "/task", cgi)
    ratio, peak = times_of_empty(program, "/task", cgi)
    console_counted, console_reply = instructions(program, "/tasks", console)
    return (reply, counted, peak, ratio,
            instructions(program, one, cgi)[0], times_of_empty(program, one, cgi)[1],
            console_reply, console_counted, times_of_empty(program, "/tasks", console)[1])


def daemon_figures(daemon):
    at_rest = cpu_each_second(daemon.pid, QUIET_SECONDS)
    before, begin = cpu_ms(daemon.pid), time.monotonic()
    scraped = request(METRICS_PORT, "GET", "/metrics")
    beside = at_rest * (time.monotonic() - begin)
    assert scraped.status == 200
    return (at_rest, len(scraped.body), max(cpu_ms(daemon.pid) - before - beside, 0),
            peak_kb(daemon.pid))


RUSH_FIGURES = ["until all wait, ms of CPU", "while they wait, ms of CPU each second"]


def measure_rush(sizes):
    """All come due in one second. Their server does not answer, so two run and the rest waits."""
    for size in sizes:
        program = CgiProgram(STATE / f"rush-{size}")
        add_cameras(program)
        first_task(program)
        multiply(program, size)
        with daemon_with(program):
            pass
        run_sql(program.path / "backupd.db", "UPDATE next_run SET due = unixepoch() - 1")
        with running("recording-backupd", program) as daemon:
            wait_until(lambda: all_are_queued(program, size), "the queue of all tasks")
            taken = cpu_ms(daemon.pid)
            yield taken, cpu_each_second(daemon.pid, QUIET_SECONDS)


def add_cameras(program):
    """Those of the tasks, each with a recording of today."""
    for camera in CAMERAS:
        day = program.path / f"camera-{camera}" / str(date.today())
        day.mkdir(parents=True)
        (day / "00-00-00.mp4").write_bytes(b"recorded")
        program.add_channel(camera, f"Camera {camera}", day.parent)


def all_are_queued(program, tasks):
    """But for the two that run."""
    return look_up(program.path / "config.db", "SELECT count(*) FROM queue") == tasks - 2


ALERT_FIGURES = ["the outbox, bytes", "while they wait, ms of CPU each second"]


def measure_alerts(sizes):
    """Each task has failed, and the web hook that is to be told does not answer."""
    program = CgiProgram(STATE / "alerts")
    first_task(program)
    program.ctl("config", "set", "alert", "web_hook", f"http://127.0.0.1:{NOBODY}/")
    memory = program.path / "backupd.db"
    for size in sizes:
        multiply(program, size, FAILED)
        with daemon_with(program) as daemon:
            wait_until(lambda: look_up(memory, "SELECT count(*) FROM alert") == size, "the alerts")
            yield table_bytes(memory, "alert"), cpu_each_second(daemon.pid, QUIET_SECONDS)
