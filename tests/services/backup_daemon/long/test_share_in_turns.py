"""A share that is full, read-only and roomy in turns: every run says what is true of it."""
from backup_house import FAILED, MIB, SUCCESS, noise
from recorder_clock import day_name
from small_share import SmallShare

TURNS = 80
CAMERAS = 2
DAYS = 5
ROOMY = 400  # MiB, more than all turns may come to
STORED = {"stop_overwrite": 0, "overwrite": 1}
FOREIGN = b"somebody else's" * 1000


class Scene:
    """One task, and a share whose state changes from turn to turn."""

    def __init__(self, house, chance):
        self.house = house
        self.chance = chance
        self.task_id = house.create()
        self.number = 0
        self.read_only = False
        self.ends = {}
        self.foreign = [house.share / "foreign",
                        house.share / "recorder/Camera 0" / day_name(DAYS - 1) / "theirs.mp4"]
        for path in self.foreign:
            path.parent.mkdir(parents=True, exist_ok=True)
            path.write_bytes(FOREIGN)

    def record(self):
        """Some recordings of one day; all turns together have more than the small share."""
        days_ago = self.chance.randrange(DAYS)
        for _ in range(self.chance.randrange(4)):
            minute, second = divmod(self.number, 60)
            size = self.chance.choice([self.chance.randrange(50_000),
                                       self.chance.randrange(MIB, 4 * MIB)])
            self.house.record(self.chance.randrange(CAMERAS), days_ago,
                              f"01-{minute:02}-{second:02}.mp4", noise(size, self.number))
            self.number += 1

    def set_read_only(self, read_only):
        if read_only != self.read_only:
            self.read_only = read_only
            self.house.samba.shares["backup"]["read only"] = "yes" if read_only else "no"
            self.house.samba.reload()

    def turn(self):
        self.record()
        self.set_read_only(self.chance.random() < 0.25)
        self.house.resize(self.chance.choice([SmallShare.size, SmallShare.size, 80]))
        overwrite = self.chance.choice(["overwrite", "stop_overwrite"])
        self.house.recorder.ctl("task", "set", self.task_id,
                                f"remoteOverwriteType={STORED[overwrite]}")
        before = self.house.shared()
        self.house.force(self.task_id)
        self.house.wait_for_end(self.task_id)
        self.check(before, overwrite)

    def check(self, before, overwrite):
        """A success has copied everything but what has made room; a failure names its reason."""
        after = self.house.shared()
        status = self.house.status(self.task_id)
        message = self.house.progress(self.task_id)[0]["message"]
        kind = self.kind_of(status, message)
        self.ends[kind] = self.ends.get(kind, 0) + 1
        assert all(path.read_bytes() == FOREIGN for path in self.foreign)
        self.house.check_records()
        if status == SUCCESS:
            assert self.missing(after) == self.removed()
        if self.read_only:
            assert after == before
        else:
            assert not any(".part" in path for path in after)
            assert self.house.database("SELECT * FROM checkpoint") == []
        if overwrite == "stop_overwrite":
            assert before.items() <= after.items(), "nothing may be removed"
        sources = self.house.sources()
        assert {path: sources.get(path, digest) for path, digest in after.items()} == after

    def kind_of(self, status, message):
        if status == SUCCESS:
            return "success"
        assert status == FAILED
        if self.read_only:
            assert "Permission denied" in message, message
            return "read-only"
        assert "the share is full" in message or "could not be copied" in message, message
        return "full"

    def missing(self, after):
        return {path for path in self.house.sources() if path not in after}

    def removed(self):
        return {row["path"] for row in
                self.house.database("SELECT path FROM copied_file WHERE removed <> 0")}

    def make_good(self):
        """What made room is not sent again; everything else has arrived in the end."""
        self.set_read_only(False)
        self.house.resize(ROOMY)
        self.house.run(self.task_id)
        after = self.house.shared()
        assert self.missing(after) == self.removed()
        assert after.items() - {(path, digest) for path, digest in after.items()
                                if path.endswith("theirs.mp4")} <= self.house.sources().items()


def test_full_read_only_and_roomy_share_in_turns(tmp_path, chance):
    with SmallShare(tmp_path, CAMERAS) as house:
        scene = Scene(house, chance)
        for _ in range(TURNS):
            scene.turn()
        scene.make_good()
        print(f"{scene.ends}, {scene.number} recordings, {len(scene.removed())} made room")
        assert min(scene.ends[kind] for kind in ("success", "read-only", "full")) > 3
