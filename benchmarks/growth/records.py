"""What grows with the years: events, runs, copies, and the days of the cameras."""
import shutil
import statistics
import sys
import tempfile
import time
from contextlib import contextmanager
from datetime import date, timedelta

from benchmarks.growth.measures import (command_cpu_ms, cpu_ms, database_bytes, instructions,
                                        look_up, peak_kb, run_sql, table_bytes)
from benchmarks.growth.tasks import first_task, multiply
from cgi_program import CgiProgram
from loopback import request
from metrics import PORT as METRICS_PORT
from places import PROGRAMS, STATE, STORAGE
from samba_server import USER, SambaServer
from sample_task import NEVER, task_body
from service_process import running
from state_folder import StateFolder
from waiting import wait_until

LOG_PORT = 10150
LOG_QUERY = "/logs/logs?sub_type=8981,8983,25092&max_results=100"
LOG_QUERIES = 50
TASKS = 100
SETTLED_SECONDS = 2.1  # what has changed more recently is read by each request
RUN_ROUNDS = 4  # the first copies, the second reads a sample of that
NEEDS_ATTENTION = 1  # exit status of recorderctl status
SUCCESS, CANCELLED, FAILED = 0, 5, 6  # status, as it is stored

COUNT = "WITH RECURSIVE n(i) AS (SELECT ?1 UNION ALL SELECT i + 1 FROM n WHERE i + 1 < ?2) "

EVENTS = COUNT + """INSERT INTO event (time_ms, event_id, channel, user, ip, arguments)
SELECT unixepoch() * 1000 - 10000000 + i, CASE i % 3 WHEN 0 THEN 0x23150010 WHEN 1 THEN 0x23150012
                                         ELSE 0x62040001 END,
       -1, 'System', '127.0.0.1',
       '["Recording Backup","Floor 12, south","12 files, 1073741824 bytes"]' FROM n"""

RUNS = COUNT + """INSERT INTO run (taskID, number, task_name, cause, started, seen, ended, outcome,
    files_planned, bytes_planned, files_sent, bytes_sent, files_kept, bytes_kept, rate, goal)
SELECT i % ?3 + 1, i / ?3 + 1, 'Floor 12, south', 0, unixepoch() - 30000000 + i,
       unixepoch() - 30000000 + i, unixepoch() - 29999000 + i, 0,
       192, 206158430208, 192, 206158430208, 1152, 1236950581248, 114532461.2,
       char(48,10,55,10,48,10,48,10) || '8,9,10,11,12,13,14,15' || char(10) || '445' || char(10)
       || '192.0.2.10' || char(10) || '/backup/site-12/south' FROM n"""
FAILURES = COUNT + """INSERT INTO run_failure (taskID, number, place, file, reason)
SELECT i % ?3 + 1, i / ?3 + 1, 0, 'Floor 12, south 8/2024-03-01/12-00-00.mp4',
       'another file, not of this recorder, has this name' FROM n"""
HEALTH = """INSERT OR REPLACE INTO task_health
    (taskID, last_number, last_success, success_time, overdue_from, late_from, first_due, rule)
SELECT taskID, max(number), max(number), max(ended), max(ended), max(ended), 1, ''
FROM run GROUP BY taskID"""

# In the order in which they are made: day by day, of each day camera by camera, a file each five
# minutes.
COPIES = COUNT + """INSERT INTO copied_file (destination, path, taskID, day, size, modified_ns,
    sha256, side_file, removed, share_modified_ns, sampled)
SELECT ?3, printf('Floor 12, south %d/%s/%02d-%02d-00.mp4', camera, day, i % 288 / 12,
                  i % 12 * 5), 1, day, 268435456 + i,
       1700000000000000000 + i, lower(hex(randomblob(32))), 0, 0, 1700000000000000000 + i, 1
FROM (SELECT i, i / 288 % 128 AS camera,
             date('now', '-90 days', (i / (288 * 128)) || ' days') AS day FROM n)"""

EVENT_FIGURES = ["events.db, bytes", "the newest 100, ms", "recorder-logd, peak kB"]


def measure_events(sizes):
    log = StateFolder(STATE / "events").init()
    database = log.path / "events.db"
    already = 0
    for size in sizes:
        run_sql(database, EVENTS, already, size)
        already = size
        with running("recorder-logd", log) as service:
            yield database_bytes(database), log_query_ms(), peak_kb(service.pid)


def log_query_ms():
    times = []
    for _ in range(LOG_QUERIES):
        begin = time.perf_counter()
        assert request(LOG_PORT, "GET", LOG_QUERY).status == 200
        times.append((time.perf_counter() - begin) * 1000)
    return statistics.median(times)


RUN_FIGURES = ["the history, bytes", "a file not copied of each, bytes",
               "run list, ms of CPU", "status, ms of CPU",
               "daemon's start, ms of CPU", "daemon, a scrape's ms of CPU", "daemon, peak kB"]


def measure_runs(sizes):
    """Of a hundred tasks, however many runs."""
    program = CgiProgram(STATE / "runs")
    first_task(program)
    multiply(program, TASKS)
    memory = program.path / "backupd.db"
    already = 0
    for size in sizes:
        run_sql(memory, RUNS, already, size, TASKS)
        run_sql(memory, FAILURES, already, size, TASKS)
        run_sql(memory, HEALTH)
        already = size
        with running("recording-backupd", program) as daemon:
            started = cpu_ms(daemon.pid)
            assert request(METRICS_PORT, "GET", "/metrics").status == 200
            before = cpu_ms(daemon.pid)
            assert request(METRICS_PORT, "GET", "/metrics").status == 200
            scraped = cpu_ms(daemon.pid) - before
            yield (table_bytes(memory, "run"), table_bytes(memory, "run_failure"),
                   recorderctl_ms(program, "run", "list"),
                   recorderctl_ms(program, "status", right=(0, NEEDS_ATTENTION)),
                   started, scraped, peak_kb(daemon.pid))


def recorderctl_ms(state, *words, **how):
    return command_cpu_ms(state.environment, PROGRAMS / "recorderctl", *words, **how)


@contextmanager
def share_for(program, **settings):
    """A share, and what of a task for it is the same for all."""
    folder = program.path / "share"
    folder.mkdir()
    shares = {"backup": {"path": folder, "read only": "no", "force user": "root"}}
    with SambaServer(tempfile.mkdtemp(prefix="samba"), shares) as server:
        yield {"serverIP": "127.0.0.1", "port": server.port, "username": USER,
               "password": server.password, "destPath": "/backup/site", "backupImmediately": True,
               "recordingType": "recording_and_alarm", "recordingFormat": "mp4",
               "remoteOverwriteType": "stop_overwrite", **NEVER, **settings}


def run_task(program, task):
    """Runs a new one to its successful end."""
    assert program.create(task_body(**task)).status == 0
    wait_until(lambda: newest_status(program) in (SUCCESS, CANCELLED, FAILED), "the run's end")
    if newest_status(program) != SUCCESS:
        sys.exit(f"bench: the run failed: {program.runs()[0]['reason']}")


def newest_status(program):
    return look_up(program.path / "config.db",
                   "SELECT status FROM task ORDER BY taskID DESC LIMIT 1")


COPY_FIGURES = ["the copies' records, bytes", "a plan with retention, ms of CPU",
                "a copy of the state, bytes", "a copy of the state, ms of CPU",
                "the check of a state, ms of CPU"]


def measure_copies(sizes):
    """Of a task for the last day, with the longest retention."""
    program = CgiProgram(STATE / "copies")
    add_cameras(program, 1)
    record_days(program, 1, range(1))
    memory = program.path / "backupd.db"
    with share_for(program, chIdxList=[0], backupType="BackupByLastDay", backupDays=1,
                   remoteKeepRec=True, remoteKeepRecDays=99) as task:
        with running("recording-backupd", program):
            run_task(program, task)
        destination = look_up(memory, "SELECT id FROM destination")
        already = 0
        for size in sizes:
            run_sql(memory, COPIES, already, size, destination)
            already = size
            yield table_bytes(memory, "copied_file"), plan_ms(program), *backup_figures(program)


def plan_ms(program):
    return recorderctl_ms(program, "backup", "plan", "1", "--json")


def backup_figures(program):
    to = program.path / "copied"
    copied = recorderctl_ms(program, "state", "backup", str(to))
    size = sum(file.stat().st_size for file in to.iterdir())
    shutil.rmtree(to)
    return size, copied, recorderctl_ms(program, "state", "check")


def folder_of(program, camera):
    return STORAGE / program.path.name / str(camera)


def add_cameras(program, count, first=0):
    for camera in range(first, count):
        folder_of(program, camera).mkdir(parents=True)
        program.add_channel(camera, f"Floor 12, south {camera}", folder_of(program, camera))


def record_days(program, cameras, days):
    """A recording of each camera on each of the days, which are told by how long ago they were."""
    for camera in range(cameras):
        for back in days:
            day = folder_of(program, camera) / str(date.today() - timedelta(back))
            day.mkdir(exist_ok=True)
            (day / "12-00-00.mp4").write_bytes(b"recorded")


CAMERA_FIGURES = ["recordings.index, bytes", "GET /channel, reply bytes",
                  "GET /channel, thousand instructions"]


def measure_cameras(sizes):
    program = CgiProgram(STATE / "cameras")
    already = 0
    for size in sizes:
        add_cameras(program, size, already)
        already = size
        record_days(program, size, range(30))
        yield channel_figures(program)


def channel_figures(program):
    time.sleep(SETTLED_SECONDS)
    program.request("GET", "/channel")
    counted, reply = instructions(program, "/channel", "recording_backup.cgi")
    return (program.path / "recordings.index").stat().st_size, reply, counted


DAY_FIGURES = [*CAMERA_FIGURES, "a run, ms", "a run, daemon's ms of CPU"]


def measure_days(sizes):
    """Of four cameras: what the list of channels costs, and a run that finds all copied."""
    program = CgiProgram(STATE / "days")
    add_cameras(program, 4)
    already = 0
    with share_for(program, chIdxList=[0, 1, 2, 3], backupType="BackupByTimeRange",
                   backupStartDay=0, remoteKeepRec=False) as task:
        for size in sizes:
            record_days(program, 4, range(already, size))
            already = size
            yield *channel_figures(program), *run_figures(program, task)


def run_figures(program, task):
    """Medians of the runs behind the first two."""
    figures = []
    with running("recording-backupd", program) as daemon:
        for _ in range(RUN_ROUNDS):
            before, begin = cpu_ms(daemon.pid), time.monotonic()
            run_task(program, task)
            figures.append(((time.monotonic() - begin) * 1000, cpu_ms(daemon.pid) - before))
    return [statistics.median(column) for column in zip(*figures[2:])]
