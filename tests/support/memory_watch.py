"""What the daemon and its copying processes hold of the machine's memory."""
from processes import descendants
from repeating import Repeating


class MemoryWatch(Repeating):
    """The highest sum of what a process and those below it hold for themselves."""

    def __init__(self, pid):
        self.pid = pid
        self.most = 0

    def look(self):
        self.most = max(self.most, sum(map(memory_of, descendants(self.pid))))


def memory_of(pid, kind="Pss"):
    """In kB. "Pss": pages that several share count once; "Rss": all of them."""
    try:
        with open(f"/proc/{pid}/smaps_rollup") as rollup:
            return next(int(line.split()[1]) for line in rollup if line.startswith(kind + ":"))
    except (OSError, StopIteration):
        return 0
