"""Five hundred runs of one task: nothing of the daemon grows with their number."""
import os
from pathlib import Path

from backup_house import House, noise
from memory_watch import memory_of
from processes import descendants
from waiting import wait_until

# The recorder's own, opened when there is first something to say: here, that a minute has had its
# hundred events of a kind.
LOG = "/Zdbglog/.cgi_log/.cgi.log"

RUNS = 500
WARM = 50  # by then everything has been done once, and buffers have their sizes
FILES = 20
EVERY = 10  # runs; then one recording more

# What may come together in 450 runs with 45 copies: kB of memory, pages of 4 KiB of backupd.db.
MORE_MEMORY = 1024
MORE_PAGES = 8


class Size:
    """What the daemon has of everything when nothing runs."""

    def __init__(self, house):
        pid = house.recorder.service("recording-backupd")
        wait_until(lambda: descendants(pid) == [pid], "the end of the copying processes")
        folder = Path(f"/proc/{pid}")
        self.memory = memory_of(pid, "Rss")
        links = map(os.readlink, (folder / "fd").iterdir())
        self.descriptors = len([link for link in links if link != LOG])
        self.threads = len(list((folder / "task").iterdir()))
        self.pages = house.database("PRAGMA page_count")[0]["page_count"]

    def __str__(self):
        return (f"{self.memory} kB, {self.descriptors} descriptors, {self.threads} threads, "
                f"{self.pages} pages")


def record(house, chance, number):
    minute, second = divmod(number, 60)
    house.record(0, chance.randrange(2), f"01-{minute:02}-{second:02}.mp4",
                 noise(chance.randrange(100_000), number))


def test_five_hundred_runs_leave_the_daemon_as_it_was(tmp_path, chance):
    with House(tmp_path) as house:
        for number in range(FILES):
            record(house, chance, number)
        task_id = house.create()
        for number in range(1, RUNS + 1):
            if number % EVERY == 0:
                record(house, chance, FILES + number)
            house.run(task_id)
            if number == WARM:
                warm = Size(house)
        end = Size(house)
        print(f"after {WARM} runs {warm}; after {RUNS} {end}")
        assert end.memory < warm.memory + MORE_MEMORY
        assert (end.descriptors, end.threads) == (warm.descriptors, warm.threads)
        assert end.pages <= warm.pages + MORE_PAGES
        assert house.shared() == house.sources()
        house.check_records()
        assert house.database("SELECT * FROM checkpoint") == []
