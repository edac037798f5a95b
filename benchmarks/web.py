"""The rate behind Apache: requests in a row and all at once, in turn with the empty program."""
import re
import statistics
import subprocess
import sys

from benchmarks.report import Column
from places import CGI, PROGRAMS

TURNS = 20
REQUESTS = 500  # in a turn
REPLY_SECONDS = 120
# Name, clients.
ROWS = [("behind Apache, in a row", 4), ("behind Apache, all at once", REQUESTS)]


def install(program):
    """The web server starts nothing but the one program, so the empty one takes its place."""
    subprocess.run(["install", "-m", "4750", "-g", "www-data", program, CGI], check=True)


def number(pattern, printed):
    found = re.search(pattern, printed, re.M)
    return float(found[1]) if found else 0


def read_printed(printed, requests):
    """Requests a second, and how many were not answered as they should be."""
    bad = (requests - number(r"^Complete requests: +(\d+)", printed)
           + number(r"^Failed requests: +(\d+)", printed)
           + number(r"^Non-2xx responses: +(\d+)", printed))
    return number(r"^Requests per second: +([\d.]+)", printed), int(bad)


def ask(url, clients):
    done = subprocess.run(
        ["/usr/bin/ab", "-q", "-r", "-s", str(REPLY_SECONDS), "-n", str(REQUESTS),
         "-c", str(clients), url], text=True, stdout=subprocess.PIPE, check=False)
    if done.returncode != 0:
        sys.exit("bench: the web server was given up; what ab says stands above")
    return read_printed(done.stdout, REQUESTS)


def in_turn(url, empty, clients):
    """Of the program and of the empty one, what ask() gives in each turn."""
    asked = {PROGRAMS / "recording_backup.cgi": [], empty: []}
    for _ in range(TURNS):
        for program, told in asked.items():
            install(program)
            told.append(ask(url, clients))
    return [list(zip(*told)) for told in asked.values()]


def measure(port, sid, empty, report, quick):
    report.table(f"GET /fuse behind Apache, {TURNS} turns with the empty program",
                 Column("requests", "requests"), Column("clients", "clients"),
                 Column("per_second", "a second"), Column("empty_per_second", "empty"),
                 Column("ratio", "ratio", ".2f"), Column("failures", "failures"))
    url = f"http://127.0.0.1:{port}/cgi-bin/{CGI.name}/fuse?sid={sid}"
    for name, clients in ROWS:
        if not report.wants(name):
            continue
        (rates, bad), (empty_rates, empty_bad) = in_turn(url, empty, clients)
        if any(empty_bad):
            sys.exit(f"bench: of the empty program's requests {sum(empty_bad)} have failed")
        rate, empty_rate = statistics.median(rates), statistics.median(empty_rates)
        report.row(name, requests=TURNS * REQUESTS, clients=clients, per_second=rate,
                   empty_per_second=empty_rate, ratio=rate / empty_rate, failures=sum(bad))
