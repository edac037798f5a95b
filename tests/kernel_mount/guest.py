"""Runs inside the guest, as root: server tests against real shares; reports each as a JSON line."""
import json
import os
import socket
import subprocess
import termios
import threading
from pathlib import Path

from cgi_program import CgiProgram
from places import CREDENTIALS, DEBUG_FILE, STATE, STORAGE
from samba_server import PASSWORD, USER, SambaServer
from waiting import SECONDS

SHARES = Path("/run/shares")
CLOSED_PORT = 1445
HANGING_UP_PORT = 2445


def run(*command):
    done = subprocess.run(command, capture_output=True, timeout=SECONDS, check=False)
    assert done.returncode == 0, (command, done.stdout, done.stderr)


def make_shares():
    """One that can be written, one that cannot, and one without a free byte."""
    for name in ("public", "readonly", "full"):
        (SHARES / name).mkdir(parents=True)
    run("mount", "-t", "tmpfs", "-o", "size=1m", "full", SHARES / "full")
    with open(SHARES / "full/ballast", "wb", buffering=0) as ballast:
        try:
            while ballast.write(bytes(65536)):
                pass
        except OSError:
            pass  # no space is left on the device, as wanted
    settings = {"force user": "root", "valid users": USER}
    return {"public": {"path": SHARES / "public", "read only": "no", **settings},
            "readonly": {"path": SHARES / "readonly", "read only": "yes", **settings},
            "full": {"path": SHARES / "full", "read only": "no", **settings}}


def hang_up():
    """A server that ends every connection at once."""
    listener = socket.create_server(("127.0.0.1", HANGING_UP_PORT))
    while True:
        listener.accept()[0].close()


def mounts():
    """What is mounted below /mnt: file system type by mount point, one entry per layer."""
    lines = Path("/proc/self/mounts").read_text().splitlines()
    return [[line.split()[1], line.split()[2]] for line in lines
            if line.split()[1].startswith("/mnt/")]


def tree(folder):
    return sorted(str(path.relative_to(folder)) for path in folder.rglob("*"))


def credentials():
    found = CREDENTIALS.lstat()
    return {"text": CREDENTIALS.read_text(), "mode": oct(found.st_mode), "owner": found.st_uid}


def tool_words():
    """The first line of each attempt's output, from the debug file."""
    return [line.split("strCommandResult: ")[1]
            for line in DEBUG_FILE.read_text().splitlines() if "strCommandResult: " in line]


def remains():
    """Everything that a test can leave behind."""
    mounted = mounts()
    return {"mounts": mounted,
            "mount_points": sorted(path.name for path in Path("/mnt").iterdir()),
            "storage": tree(STORAGE),
            "tmp": sorted(path.name for path in Path("/tmp").iterdir()),
            "credentials": credentials() if CREDENTIALS.exists() else None,
            "tool_words": tool_words(),
            "password_in_debug_file": PASSWORD in DEBUG_FILE.read_text(),
            "shares": {name: tree(SHARES / name) for name in ("public", "readonly", "full")}}


def clean_up():
    for point, _ in mounts():
        run("umount", point)
    for folder in (*Path("/mnt").iterdir(), *SHARES.glob("public/*")):
        run("rm", "-r", "--one-file-system", folder)
    for file in (*Path("/tmp").iterdir(), *STORAGE.iterdir(), DEBUG_FILE):
        file.unlink()


def test_server(program, **changes):
    body = {"serverIP": "127.0.0.1", "port": 445, "username": USER, "password": PASSWORD,
            "destPath": "/public", **changes}
    return program.serve("PUT", "/server/testing", json.dumps(body))


CASES = {
    "share": {},
    "folders": {"destPath": "/public/a//b/"},
    "existing folders": {"destPath": "public/a/b"},
    "wrong password": {"password": "wrong"},
    "empty password": {"password": ""},
    "unknown user": {"username": "nobody-here"},
    "unknown share": {"destPath": "/nowhere"},
    "port closed": {"port": CLOSED_PORT},
    "port closed at an address with 13": {"serverIP": "127.0.0.13", "port": CLOSED_PORT},
    "unknown host": {"serverIP": "no-such-host.invalid"},
    "server hangs up": {"port": HANGING_UP_PORT},
    "server unreachable": {"serverIP": "192.0.2.1"},
    "network unreachable": {"serverIP": "198.51.100.1"},
    "read-only share": {"destPath": "/readonly"},
    "read-only share, folder": {"destPath": "/readonly/a"},
    "full share": {"destPath": "/full"},
    "folder name is a file's": {"destPath": "/full/ballast"},
}


def report(console, **line):
    console.write(json.dumps(line) + "\n")
    console.flush()
    termios.tcdrain(console.fileno())


def main():
    console = open("/dev/ttyS1", "w", encoding="ascii")
    # There is no name server to wait for.
    Path("/etc/nsswitch.conf").write_text("passwd: files\ngroup: files\nhosts: files\n")
    run("ip", "link", "set", "lo", "up")
    run("ip", "route", "add", "unreachable", "192.0.2.1")
    program = CgiProgram(STATE)
    SambaServer("/run/samba", make_shares(), port=445).start()
    threading.Thread(target=hang_up, daemon=True).start()
    for name, changes in CASES.items():
        result = test_server(program, **changes)
        report(console, case=name, status=result.status, output=result.output.decode(),
               errors=result.errors.decode(), **remains())
        if name != "folders":
            clean_up()
    report(console, case="end", kernel=os.uname().release)


main()
