"""A line that cuts, stalls, delays, refuses and spoils by chance: runs get through."""
import re
import time
from contextlib import contextmanager

from backup_house import FAILED, MIB, RUNNING, SUCCESS, House, noise
from delay_proxy import DelayProxy
from fault_proxy import FaultProxy
from repeating import Repeating

CHANNELS = 3
CUTS = 40
STORM = 180  # seconds
PATIENCE = 400  # seconds; after a bad time a run tries again once a minute only


def spoilable(size, name):
    """A recording that has its name in it again and again, where bytes may be spoilt."""
    content = bytearray(noise(size, name))
    for place in range(0, size - 200, 256 * 1024):
        content[place:place + 200] = MARK % name
    return bytes(content)


MARK = b"(%016d)" + b"S" * 182
MARKED = re.compile(rb"\((\d{16})\)S{182}")


class Spoiler:
    """Turns bytes of recordings that pass, some of those that it may: a recording that came over
    wrong twice is a failed one, so each is spoilt once."""

    def __init__(self, chance):
        self.chance = chance
        self.spoilt = set()

    def __call__(self, piece):
        found = MARKED.search(piece)
        if not found or found[1] in self.spoilt or self.chance.random() < 0.8:
            return piece
        self.spoilt.add(found[1])
        place = found.end() - 1
        return piece[:place] + b"s" + piece[place + 1:]


class Storm(Repeating):
    """Does something else to the line every few moments."""

    pause = 0.3

    def __init__(self, proxy, chance):
        self.proxy = proxy
        self.chance = chance
        self.spoiler = Spoiler(chance)
        self.counts = {}

    def __enter__(self):
        self.proxy.spoil_up = self.proxy.spoil_down = self.spoiler
        return super().__enter__()

    def __exit__(self, *unused):
        try:
            super().__exit__(*unused)
        finally:
            self.clear()
            self.proxy.spoil_up = self.proxy.spoil_down = bytes

    def clear(self):
        self.proxy.refusing = self.proxy.stalled = False
        self.proxy.rate = None

    def look(self):
        kind = self.chance.choices([self.calm, self.slow, self.cut, self.stall, self.refuse],
                                   [4, 4, 2, 2, 1])[0]
        self.counts[kind.__name__] = self.counts.get(kind.__name__, 0) + 1
        self.clear()
        kind()
        self.ended.wait(self.chance.uniform(0.1, 3))

    def calm(self):
        self.proxy.rate = 16 * MIB

    def slow(self):
        self.proxy.rate = self.chance.uniform(0.1, 4) * MIB

    def cut(self):
        self.proxy.cut_after(0)

    def stall(self):
        self.proxy.stalled = True

    def refuse(self):
        self.proxy.refusing = True
        self.proxy.cut_after(0)


class Scene:
    """Rounds of recordings, small and large, and what a line has to carry for them."""

    def __init__(self, house, proxy, chance):
        self.house = house
        self.chance = chance
        self.task_id = house.create(port=proxy.port)
        self.rounds = self.planned = 0

    def record(self, small, large):
        for number in range(small + large):
            size = (self.chance.randrange(100_000) if number < small
                    else self.chance.randrange(4 * MIB, 24 * MIB))
            minute, second = divmod(number, 60)
            self.house.record(self.chance.randrange(CHANNELS), self.chance.randrange(3),
                              f"{self.rounds:02}-{minute:02}-{second:02}.mp4",
                              spoilable(size, self.rounds * 1000 + number))
            self.planned += size
        self.rounds += 1

    def ended(self):
        return self.house.status(self.task_id) in (SUCCESS, FAILED)

    def check_complete(self):
        assert self.house.status(self.task_id) == SUCCESS, self.house.progress(self.task_id)
        assert self.house.shared() == self.house.sources()
        assert self.house.database("SELECT * FROM checkpoint") == []
        self.house.check_records()


@contextmanager
def far_away(port):
    """A line to a server that is some milliseconds away."""
    with DelayProxy(port, 0.004) as line, FaultProxy(line.port) as proxy:
        yield proxy


def test_cuts_cost_a_tenth_more_bytes_at_most(tmp_path, chance):
    """What is recorded as sent is not sent again: at a cut pieces of three lanes are on their way,
    and there are at least 16 MiB between two cuts."""
    with House(tmp_path, CHANNELS) as house, FaultProxy(house.samba.port) as proxy:
        scene = Scene(house, proxy, chance)
        scene.record(60, 120)
        assert scene.planned > CUTS * 24 * MIB
        proxy.rate = 30 * MIB
        house.force(scene.task_id)
        for _ in range(CUTS):
            proxy.cut_after(chance.randrange(16 * MIB, 24 * MIB))
            while proxy.cut_at is not None and not scene.ended():
                time.sleep(0.05)
            assert not scene.ended(), "all cuts fall into the run"
        house.wait_for_end(scene.task_id)
        scene.check_complete()
        print(f"{CUTS} cuts, planned {scene.planned / MIB:.0f} MiB, "
              f"sent {proxy.sent / scene.planned:.3f} times")
        assert proxy.sent < 1.1 * scene.planned


def test_runs_get_through_storms_bit_by_bit(tmp_path, chance):
    with House(tmp_path, CHANNELS) as house, far_away(house.samba.port) as proxy:
        scene = Scene(house, proxy, chance)
        scene.record(150, 15)
        house.force(scene.task_id)
        house.wait_for(scene.task_id, RUNNING)
        with Storm(proxy, chance) as storm:
            over = time.monotonic() + STORM
            while time.monotonic() < over:
                if scene.ended():
                    scene.check_complete()
                    scene.record(150, 15)
                    house.force(scene.task_id)
                time.sleep(0.2)
        house.wait_for_end(scene.task_id, PATIENCE)
        scene.check_complete()
        print(f"{storm.counts}, {len(storm.spoiler.spoilt)} recordings spoilt, "
              f"{scene.rounds} runs, {proxy.connections} connections, "
              f"planned {scene.planned / MIB:.0f} MiB, "
              f"sent {proxy.sent / scene.planned:.3f} times")
        assert storm.spoiler.spoilt and proxy.connections > 10
