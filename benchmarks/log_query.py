"""What the newest 100 events of the backup cost, as the log grows to a million events."""
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

LOG = Path("/tmp/bench-log")
PORT = 10150
QUERY = "sub_type=8981,8983,25092&max_results=100"
SIZES = (1_000, 10_000, 100_000, 1_000_000)
RUNS = 200
QUICK_RUNS = 20

# Nine in ten events are of another feature; one in a thousand is of the rarest of the three.
FILL = """
WITH RECURSIVE n(i) AS (SELECT ? UNION ALL SELECT i + 1 FROM n WHERE i < ?)
INSERT INTO event (time_ms, event_id, channel, user, ip, arguments)
SELECT ? + i, CASE WHEN i % 1000 = 0 THEN 0x23170001 WHEN i % 20 = 0 THEN 0x23150001
                   WHEN i % 10 = 0 THEN 0x62040001 ELSE 0x11110001 END,
       -1, 'System', '127.0.0.1', '["Recording Backup","Bench"]' FROM n"""


def fill(already, wanted):
    """Takes the log from `already` events to `wanted`, past the program, which syncs each one."""
    with closing(sqlite3.connect(LOG / "events.db")) as database:
        database.execute("PRAGMA synchronous = OFF")
        with database:
            database.execute(FILL, (already + 1, wanted, int(time.time() * 1000) - 10**7))
        database.execute("PRAGMA wal_checkpoint(TRUNCATE)")


def milliseconds(path, runs):
    """Median time of one request on a connection of its own."""
    times = []
    for _ in range(runs):
        begin = time.perf_counter()
        reply = request(PORT, "GET", f"{path}?{QUERY}")
        times.append((time.perf_counter() - begin) * 1000)
        if reply.status != 200 or len(reply.body) < 5_000:
            sys.exit(f"bench: the log service answered {reply.status}")
    return statistics.median(times)


def measure(report, runs):
    report.table(f"log service, the newest 100 events of 3 sub-types, median of {runs} requests",
                 Column("json_ms", "JSON ms", ".2f"), Column("json_growth", "growth", ".2f"),
                 Column("csv_ms", "CSV ms", ".2f"), Column("csv_growth", "growth", ".2f"))
    already, first = 0, None
    for size in SIZES:
        fill(already, size)
        already = size
        json_ms, csv_ms = milliseconds("/logs/logs", runs), milliseconds("/logs/logs/file", runs)
        first = first or (json_ms, csv_ms)
        report.row(f"{size:,} events", json_ms=json_ms, json_growth=json_ms / first[0],
                   csv_ms=csv_ms, csv_growth=csv_ms / first[1])


def main(report, asked):
    if report.wants("events"):
        with running("recorder-logd", StateFolder(LOG).init()):
            measure(report, QUICK_RUNS if asked.quick else RUNS)
