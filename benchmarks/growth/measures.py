"""What a process, a request or a table of a database takes."""
import re
import resource
import sqlite3
import statistics
import subprocess
import sys
import time
from contextlib import closing
from pathlib import Path

from cgi_program import cgi_variables
from places import PROGRAMS

EMPTY = PROGRAMS / "bench_empty"
REQUEST_RUNS = 15


def environment_of(program, path):
    """A GET request of the CGI programs', by an administrator."""
    session = "sid=" + program.sid
    return {**program.environment, **cgi_variables("GET", path, session, None),
            "HTTP_COOKIE": session}


def instructions(program, path, built):
    """Of one request, in thousands; and the bytes of its reply."""
    log = program.path / "counted"
    done = subprocess.run(
        ["valgrind", "--tool=callgrind", f"--log-file={log}", "--callgrind-out-file=/dev/null",
         PROGRAMS / built], capture_output=True, check=True,
        env=environment_of(program, path))
    if b"Status: 200" not in done.stdout:
        sys.exit(f"bench: {path} was not answered: {done.stdout[:200]}")
    counted = re.search(r"refs: +([\d,]+)", log.read_text(errors="replace"))[1]
    return int(counted.replace(",", "")) / 1000, len(done.stdout)


def one_run(built, environment):
    """Microseconds, and kB at the most."""
    done = subprocess.run([PROGRAMS / "bench_one_run", built], env=environment, check=False,
                          stdout=subprocess.PIPE, text=True)
    if done.returncode != 0:
        sys.exit(f"bench: {environment['PATH_INFO']} was not answered")
    return [float(number) for number in done.stdout.split()]


def times_of_empty(program, path, built):
    """Median time of a request in that of an empty program, run in turn; and its kB at the most."""
    environment = environment_of(program, path)
    runs, empty = zip(*[(one_run(PROGRAMS / built, environment), one_run(EMPTY, environment))
                        for _ in range(REQUEST_RUNS)])
    times, peaks = zip(*runs)
    return statistics.median(times) / statistics.median(us for us, _ in empty), max(peaks)


def cpu_ms(pid):
    """What all threads of a process have had of the processors so far."""
    return sum(int((thread / "schedstat").read_text().split()[0])
               for thread in Path(f"/proc/{pid}/task").iterdir()) / 1e6


def cpu_each_second(pid, seconds):
    """Milliseconds of each second, while nobody asks for anything."""
    before, begin = cpu_ms(pid), time.monotonic()
    time.sleep(seconds)
    return (cpu_ms(pid) - before) / (time.monotonic() - begin)


def peak_kb(pid):
    return int(re.search(r"VmHWM:\s+(\d+)", Path(f"/proc/{pid}/status").read_text())[1])


def children_cpu_ms():
    used = resource.getrusage(resource.RUSAGE_CHILDREN)
    return (used.ru_utime + used.ru_stime) * 1000


def command_cpu_ms(environment, *words, right=(0,)):
    """What a program takes of the processors, with all that it starts. `right` are the exit
    statuses of one that has done its work."""
    before = children_cpu_ms()
    done = subprocess.run(words, env=environment, check=False, capture_output=True, text=True)
    if done.returncode not in right:
        sys.exit(f"bench: {words} has failed: {done.stderr}")
    return children_cpu_ms() - before


def open_database(path):
    return closing(sqlite3.connect(path, timeout=30, isolation_level=None))


def database_bytes(path):
    """As the file will be when its write-ahead log is taken in."""
    with open_database(path) as database:
        return (database.execute("PRAGMA page_count").fetchone()[0]
                * database.execute("PRAGMA page_size").fetchone()[0])


def table_bytes(path, table):
    """Pages of a table and of its indexes."""
    with open_database(path) as database:
        return database.execute(
            "SELECT sum(pgsize) FROM dbstat WHERE name IN "
            "(SELECT name FROM sqlite_schema WHERE tbl_name = ?)", [table]).fetchone()[0]


def run_sql(path, sql, *values):
    """Past the program, which has each change on disk before the next one."""
    with open_database(path) as database:
        database.execute("PRAGMA synchronous = OFF")
        database.execute(sql, values)


def look_up(path, sql, *values):
    with open_database(path) as database:
        return database.execute(sql, values).fetchone()[0]
