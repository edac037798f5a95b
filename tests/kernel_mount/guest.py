"""Runs inside the guest, as root: server tests against real shares; reports each as a JSON line."""
import hashlib
import json
import os
import signal
import socket
import subprocess
import termios
import threading
from concurrent.futures import ThreadPoolExecutor
from contextlib import contextmanager
from pathlib import Path

from cgi_program import CgiProgram
from fault_proxy import FaultProxy
from places import CREDENTIALS, DEBUG_FILE, STATE, STORAGE
from processes import processes
from repeating import Repeating
from samba_server import PASSWORD, USER, SambaServer
from waiting import SECONDS, wait_until

SHARES = Path("/run/shares")
SMB_PORT = 445
CLOSED_PORT = 1445
HANGING_UP_PORT = 2445
OTHER_USER, OTHER_PASSWORD = "games", "another password"
ROUNDS_AT_ONCE = 3
MEBIBYTE = 1024 * 1024
MOUNT_OPTIONS = {"nosuid", "nodev", "noexec"}

# What an account's name or password can make of the mount's own options.
SET_USER_ID = ",file_mode=04755,uid=0"
LINKS = ",mfsymlinks"


def run(*command):
    done = subprocess.run(command, capture_output=True, timeout=SECONDS, check=False)
    assert done.returncode == 0, (command, done.stdout, done.stderr)


def make_shares():
    """One that can be written, one that cannot, and one without a free byte."""
    for name in ("public", "readonly", "full", "tricks", "other"):
        (SHARES / name).mkdir(parents=True)
    (SHARES / "tricks/tool").write_bytes(Path("/bin/true").read_bytes())
    (SHARES / "tricks/way").write_bytes(link_file("/storage"))
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
            "full": {"path": SHARES / "full", "read only": "no", **settings},
            "tricks": {"path": SHARES / "tricks", "read only": "no", **settings},
            "other": {"path": SHARES / "other", "read only": "no", "force user": "root",
                      "valid users": OTHER_USER}}


def link_file(target):
    """A regular file that the mount option "mfsymlinks" makes a symbolic link."""
    digest = hashlib.md5(target.encode(), usedforsecurity=False).hexdigest()
    return f"XSym\n{len(target):04}\n{digest}\n{target}\n".encode().ljust(1067)


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


def sessions():
    """How many sessions with servers the kernel has."""
    return Path("/proc/fs/cifs/DebugData").read_text().count("SessionId")


class Watch(Repeating):
    """Sees what is mounted while a request is served: in the program's view, and in others'."""

    pause = 0.01

    def __init__(self, command):
        self.command, self.seen, self.others = command, set(), []

    def look(self):
        self.others += mounts()
        for pid, command in processes():
            if command == self.command:
                self.look_at(pid)

    def look_at(self, pid):
        # From the first file of the test on; just before, the mount is made harmless.
        if not any(name.isdigit() for name in os.listdir(SHARES / "tricks")):
            return
        try:
            lines = Path(f"/proc/{pid}/mounts").read_text().splitlines()
        except OSError:
            return  # it has ended meanwhile
        self.seen |= {line.split()[3] for line in lines if line.split()[1].startswith("/mnt/")}


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
    for path in (*Path("/mnt").iterdir(), *SHARES.glob("public/*"), *Path("/tmp").iterdir(),
                 *STORAGE.iterdir(), DEBUG_FILE):
        run("rm", "-r", "--one-file-system", path)


def test_server(program, **changes):
    body = {"serverIP": "127.0.0.1", "port": SMB_PORT, "username": USER, "password": PASSWORD,
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
    "folder outside": {"destPath": "/public/../../x"},
    "folder beside": {"destPath": "/public/a/../b"},
    "folder through a link": {"destPath": "/tricks/way/x",
                              "username": USER + LINKS},
    "set-user-ID by name": {"destPath": "/readonly/a", "username": USER + SET_USER_ID},
    "set-user-ID by password": {"destPath": "/readonly/a",
                                "password": f"{PASSWORD}\nusername={USER}{SET_USER_ID}"},
}


@contextmanager
def held(program, **changes):
    """While a test cannot go on, amid writing its file to the share; gives its result to come."""
    with FaultProxy(SMB_PORT) as proxy, ThreadPoolExecutor() as threads:
        proxy.stall_after(MEBIBYTE)
        result = threads.submit(test_server, program, port=proxy.port, **changes)
        wait_until(lambda: proxy.stalled, "the file on the share")
        try:
            yield result
        finally:
            proxy.stalled = False


def watched(program):
    """What a test of a share with a set-user-ID file looks like from outside."""
    with Watch(str(program.command[0]).encode()) as watch:
        with held(program, destPath="/tricks", username=USER + SET_USER_ID) as result:
            wait_until(lambda: watch.seen, "a look at the mount")
    return {"output": result.result().output.decode(), "others": watch.others, "mounts": mounts(),
            "options": [sorted(MOUNT_OPTIONS & set(seen.split(","))) for seen in watch.seen],
            "modes": [option for seen in watch.seen for option in seen.split(",")
                      if option.startswith("file_mode=")]}


def killed(program):
    """What is left of a test that was killed while it wrote to the share."""
    with held(program):
        before = sessions()
        (pid,) = [pid for pid, command in processes() if command == bytes(program.command[0])]
        os.kill(pid, signal.SIGKILL)
    after = mounts()
    if not after:
        wait_until(lambda: sessions() == 0, "the end of the session with the server")
    return {"sessions": before, "mounts": after}


def credentials_file():
    """Which one it is: each test writes it anew."""
    return CREDENTIALS.stat().st_ino if CREDENTIALS.exists() else None


def at_once(program):
    """Two tests with accounts of their own, each of a share that is the account's alone."""
    accounts = [{"username": USER, "password": PASSWORD, "destPath": "/public"},
                {"username": OTHER_USER, "password": OTHER_PASSWORD, "destPath": "/other"}]
    with ThreadPoolExecutor() as threads:
        for _ in range(ROUNDS_AT_ONCE):
            tests = []
            for changes in accounts:
                before = credentials_file()
                tests.append(threads.submit(test_server, program, **changes))
                # Two of the same millisecond would share a mount point.
                wait_until(lambda old=before: credentials_file() != old, "the test's credentials")
            yield from (test.result() for test in tests)


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
    samba = SambaServer("/run/samba", make_shares(), port=SMB_PORT).start()
    samba.add_user(OTHER_USER, OTHER_PASSWORD)
    threading.Thread(target=hang_up, daemon=True).start()
    for name, changes in CASES.items():
        result = test_server(program, **changes)
        report(console, case=name, status=result.status, output=result.output.decode(),
               errors=result.errors.decode(), **remains())
        if name != "folders":
            clean_up()
    report(console, case="watched", **watched(program))
    clean_up()
    report(console, case="killed", **killed(program))
    clean_up()
    report(console, case="at once",
           outputs=[result.output.decode() for result in at_once(program)])
    report(console, case="end", kernel=os.uname().release)


main()
