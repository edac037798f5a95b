"""What the newest 100 events of the backup cost, in logs of up to a million events."""
import sqlite3
import statistics
import sys
import time
from contextlib import closing
from pathlib import Path

from benchmarks.report import Column
from loopback import request
from service_process import running
from state_folder import StateFolder

LOGS = Path("/tmp/bench-log")
PORT = 10150
QUERY = "sub_type=8981,8983,25092&max_results=100"
SIZES = (1_000, 10_000, 100_000, 1_000_000)
JSON, CSV = "/logs/logs", "/logs/logs/file"
TURNS, QUICK_TURNS = 20, 2  # of one log after the other, so that what else befalls the machine
IN_A_TURN = 10              # befalls them alike

# Nine in ten events are of another feature; one in a thousand is of the rarest of the three.
FILL = """
WITH RECURSIVE n(i) AS (SELECT 1 UNION ALL SELECT i + 1 FROM n WHERE i < ?)
INSERT INTO event (time_ms, event_id, channel, user, ip, arguments)
SELECT ? + i, CASE WHEN i % 1000 = 0 THEN 0x23170001 WHEN i % 20 = 0 THEN 0x23150001
                   WHEN i % 10 = 0 THEN 0x62040001 ELSE 0x11110001 END,
       -1, 'System', '127.0.0.1', '["Recording Backup","Bench"]' FROM n"""


class Log:
    """A log of so many events, and what the requests to it have taken, by their path."""

    def __init__(self, events):
        self.events = events
        self.state = StateFolder(LOGS / str(events)).init()
        self.times = {JSON: [], CSV: []}
        self.fill()

    def fill(self):
        """Past the program, which syncs each event."""
        with closing(sqlite3.connect(self.state.path / "events.db")) as database:
            database.execute("PRAGMA synchronous = OFF")
            with database:
                database.execute(FILL, (self.events, int(time.time() * 1000) - 10**7))
            database.execute("PRAGMA wal_checkpoint(TRUNCATE)")

    def ask(self, requests):
        """Its service, which is asked once before: it reads the log for the first time then."""
        with running("recorder-logd", self.state):
            for path, times in self.times.items():
                milliseconds(path)
                times += [milliseconds(path) for _ in range(requests)]

    def median(self, path):
        return statistics.median(self.times[path])


def milliseconds(path):
    """Time of one request on a connection of its own."""
    begin = time.perf_counter()
    reply = request(PORT, "GET", f"{path}?{QUERY}")
    taken = (time.perf_counter() - begin) * 1000
    if reply.status != 200 or len(reply.body) < 5_000:
        sys.exit(f"bench: the log service answered {reply.status}")
    return taken


def measure(report, turns):
    report.table("log service, the newest 100 events of 3 sub-types, median of "
                 f"{turns * IN_A_TURN} requests",
                 Column("json_ms", "JSON ms", ".2f"), Column("json_growth", "growth", ".2f"),
                 Column("csv_ms", "CSV ms", ".2f"), Column("csv_growth", "growth", ".2f"))
    logs = [Log(events) for events in SIZES]
    for _ in range(turns):
        for log in logs:
            log.ask(IN_A_TURN)
    for log in logs:
        json_ms, csv_ms = log.median(JSON), log.median(CSV)
        report.row(f"{log.events:,} events", json_ms=json_ms, csv_ms=csv_ms,
                   json_growth=json_ms / logs[0].median(JSON),
                   csv_growth=csv_ms / logs[0].median(CSV))


def main(report, asked):
    if report.wants("events"):
        measure(report, QUICK_TURNS if asked.quick else TURNS)
