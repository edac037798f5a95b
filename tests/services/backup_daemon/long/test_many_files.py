"""A hundred thousand small files in one run: all arrive, and the daemon's memory stays small."""
from backup_house import MIB, SUCCESS, House, noise
from fault_proxy import FaultProxy
from memory_watch import MemoryWatch, memory_of

CAMERAS = 5
DAYS = 4
FEW = 1000
MANY = 100_000
PATIENCE = 3000  # seconds

# What a run remembers of a file until its end, in bytes; and what it may take on the whole.
FOR_A_FILE = 250
MOST_MEMORY = 64 * 1024  # kB, of the daemon and its processes together

# Bytes that a run of nothing new sends: its days are listed, no file is asked for alone.
LISTING = MIB // 10


def record(house, chance, count, hour):
    """So many recordings, evenly over cameras and days."""
    for number in range(count):
        minute, second = divmod(number // (CAMERAS * DAYS), 60)
        house.record(number % CAMERAS, number // CAMERAS % DAYS,
                     f"{hour + minute // 60:02}-{minute % 60:02}-{second:02}.mp4",
                     noise(chance.randrange(200), number))


class Figures:
    """What the daemon holds at the end of a run, and together with its processes at the most."""

    def __init__(self, house, task_id):
        daemon = house.recorder.service("recording-backupd")
        with MemoryWatch(daemon) as watch:
            watch.pause = 1
            house.run(task_id, SUCCESS, PATIENCE)
        self.most = watch.most
        self.after = memory_of(daemon, "Rss")
        print(f"daemon {self.after} kB, with its processes {self.most} kB at the most")


def test_a_hundred_thousand_files(tmp_path, chance):
    with House(tmp_path, CAMERAS) as house:
        record(house, chance, FEW, hour=0)
        task_id = house.create()
        few = Figures(house, task_id)
        record(house, chance, MANY - FEW, hour=1)
        many = Figures(house, task_id)
        assert len(house.copied()) == MANY
        assert house.shared() == house.sources()
        house.check_records()
        assert many.after - few.after < MANY * FOR_A_FILE // 1024
        assert many.most < MOST_MEMORY
        with FaultProxy(house.samba.port) as proxy:
            house.recorder.ctl("task", "set", task_id, f"port={proxy.port}")
            house.run(task_id, SUCCESS, PATIENCE)
            print(f"the second run sent {proxy.sent} bytes")
            assert proxy.sent < LISTING
        assert house.progress(task_id)[0]["files_done"] == 0
