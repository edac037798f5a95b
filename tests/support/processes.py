"""Every process that there is, seen through /proc."""
import os
import signal
from pathlib import Path

from waiting import wait_until


def processes():
    """(pid, command line) of every process, arguments joined by blanks."""
    for folder in Path("/proc").glob("[0-9]*"):
        try:
            command = (folder / "cmdline").read_bytes()
        except OSError:
            continue  # it has ended meanwhile
        yield int(folder.name), command.rstrip(b"\0").replace(b"\0", b" ")


def stat_fields(pid):
    """State, parent and what follows in /proc/PID/stat; none of a process that is gone."""
    try:
        return Path(f"/proc/{pid}/stat").read_text().rpartition(")")[2].split()
    except OSError:
        return []


def is_running(pid):
    """What has ended counts as ended before anybody has waited for it. Its first thread may have
    ended before others, which have its files open."""
    try:
        threads = os.listdir(f"/proc/{pid}/task")
    except OSError:
        return False
    return any(fields and fields[0] not in "ZX" for fields in map(stat_fields, threads))


def parent_of(pid):
    fields = stat_fields(pid)
    return int(fields[1]) if fields else 0


def descendants(pid):
    """`pid` and every process below it, parents first."""
    parents = {child: parent_of(child) for child, _ in processes()}
    found = [pid]
    for ancestor in found:
        found += [child for child, parent in parents.items() if parent == ancestor]
    return found


# System calls, two with their first argument, as is_in_call() takes them.
READ_INPUT = ["0", "0x0"]
WRITE_OUTPUT = ["1", "0x1"]
SLEEP = ["230"]  # clock_nanosleep(2)


def is_in_call(pid, call):
    """Whether a process waits in this call: the beginning of /proc/PID/syscall, word by word."""
    try:
        return Path(f"/proc/{pid}/syscall").read_text().split()[:len(call)] == call
    except OSError:
        return False


def freeze(pid):
    """Stops a process of one thread; it does nothing more when this returns."""
    os.kill(pid, signal.SIGSTOP)
    wait_until(lambda: stat_fields(pid)[:1] == ["T"], f"process {pid} to stand still")


def signal_all(pids, number):
    for pid in pids:
        try:
            os.kill(pid, number)
        except ProcessLookupError:
            pass  # it has ended meanwhile
