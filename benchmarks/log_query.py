"""What the newest 100 events of the backup cost, as the log grows to a million events."""
import sqlite3
import statistics
import sys
import time
from contextlib import closing

from loopback import request
from places import STATE
from service_process import running
from state_folder import StateFolder

LOG = STATE / "bench-log"
PORT = 10150
QUERY = "sub_type=8981,8983,25092&max_results=100"
SIZES = (1_000, 10_000, 100_000, 1_000_000)
RUNS = 200

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


def milliseconds(path):
    """Median time of one request on a connection of its own."""
    times = []
    for _ in range(RUNS):
        begin = time.perf_counter()
        reply = request(PORT, "GET", f"{path}?{QUERY}")
        times.append((time.perf_counter() - begin) * 1000)
        if reply.status != 200 or len(reply.body) < 5_000:
            sys.exit(f"bench: the log service answered {reply.status}")
    return statistics.median(times)


def print_sizes():
    print(f"\nlog service, the newest 100 events of three sub-types, median of {RUNS} requests")
    print(f"{'events stored':<34}{'JSON ms':>10}{'growth':>10}{'CSV ms':>10}{'growth':>10}")
    already, first = 0, None
    for size in SIZES:
        fill(already, size)
        already = size
        measured = milliseconds("/logs/logs"), milliseconds("/logs/logs/file")
        first = first or measured
        print(f"{size:<34,}" + "".join(f"{now:>10.2f}{now / then:>9.2f}x"
                                       for now, then in zip(measured, first)), flush=True)


def main():
    with running("recorder-logd", StateFolder(LOG).init()):
        print_sizes()


main()
