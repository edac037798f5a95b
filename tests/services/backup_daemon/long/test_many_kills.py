"""Hundreds of kill -9 of the daemon and of copying processes, over many runs: nothing is lost."""
import re
import signal
import time

from backup_house import FAILED, MIB, PREPARE_START, RUNNING, SUCCESS, WAIT, House, noise, tree
from event_ids import (CONNECTION_LOST, FILE_NOT_COPIED, RUN_FAILED, RUN_RESUMED, RUN_STARTED,
                       RUN_SUCCEEDED, is_of_a_run)
from fault_proxy import FaultProxy
from processes import descendants, signal_all
from recorder_clock import day_name
from repeating import Repeating
from service_process import end
from waiting import wait_until

KILLS = 300
CHANNELS = 2
DAYS = 3
RATE = 12 * MIB  # bytes a second, so that kills fall into the sending of files, too

# How runs tell of themselves. Told twice rather than not at all: an end that was told and not
# stored is told once more by the run that is taken up after it. (Of one kind the log takes a
# hundred a minute, so it may lack a resumption.)
LETTERS = {RUN_STARTED: "S", RUN_RESUMED: "R", RUN_SUCCEEDED: "E", RUN_FAILED: "E",
           CONNECTION_LOST: "l", FILE_NOT_COPIED: "f"}
TOLD = re.compile(r"(S+[lf]*(R[lf]*)*E(R?[lf]*E)*)+")

# On the average of all kills. One piece of each of three lanes may be on its way at a kill.
RESENT = MIB


class StatusWatch(Repeating):
    """The statuses of a task, each with the one that came next."""

    pause = 0.01

    def __init__(self, house, task_id):
        self.house = house
        self.task_id = task_id
        self.status = None
        self.steps = set()

    def look(self):
        status = self.house.status(self.task_id)
        self.steps.add((self.status, status))
        self.status = status


class Scene:
    """One task, and rounds of new recordings for it."""

    def __init__(self, house, proxy, chance):
        self.house = house
        self.proxy = proxy
        self.chance = chance
        self.task_id = house.create(port=proxy.port)
        self.daemon = None
        self.rounds = 0
        self.planned = 0
        self.in_the_way = None
        self.foreign = self.record_foreign_files()

    def record_foreign_files(self):
        """Beside the copies, with names that are like theirs."""
        camera = self.house.share / "recorder/Camera 0"
        for path in (camera.parent / "read me", camera / "notes",
                     camera / day_name(0) / "00-00-00.mp4",
                     camera / day_name(1) / ".01-00-00.mp4.00000000-1.part",
                     camera.parent / "Recorder 00000000/Camera 0" / day_name(0) / "01-00-00.mp4"):
            path.parent.mkdir(parents=True, exist_ok=True)
            path.write_bytes(noise(5000, path))
        return tree(self.house.share)

    def size(self):
        """Many small recordings, some large ones."""
        if self.chance.random() < 0.8:
            return self.chance.randrange(200_000)
        return self.chance.randrange(MIB, 20 * MIB)

    def begin_round(self):
        self.rounds += 1
        for number in range(30):
            size = self.size()
            self.planned += size
            name = f"{self.rounds % 24:02}-{number:02}-{self.rounds // 24:02}.mp4"
            path = self.house.record(self.chance.randrange(CHANNELS), self.chance.randrange(DAYS),
                                     name, noise(size, f"{self.rounds} {number}"))
        if self.rounds % 3 == 0:
            self.in_the_way = self.copy_of(path)
            self.in_the_way.parent.mkdir(parents=True, exist_ok=True)
            self.in_the_way.write_bytes(b"somebody else's")
        self.house.force(self.task_id)

    def copy_of(self, path):
        return (self.house.share / "recorder" / f"Camera {path.parents[1].name}"
                / path.parent.name / path.name)

    def end_round(self):
        """What stood in the way has failed the run, and is taken away by whoever put it there."""
        assert self.house.status(self.task_id) == (FAILED if self.in_the_way else SUCCESS)
        if self.in_the_way:
            assert self.in_the_way.read_bytes() == b"somebody else's"
            self.in_the_way.unlink()
        self.in_the_way = None
        self.house.check_records()

    def start_daemon(self):
        self.daemon = self.house.recorder.start_service("recording-backupd")

    def ended(self):
        return self.house.status(self.task_id) in (SUCCESS, FAILED)

    def kill(self):
        """The daemon, or one of its copying processes."""
        workers = descendants(self.daemon.pid)[1:]
        if workers and self.chance.random() < 0.4:
            signal_all([self.chance.choice(workers)], signal.SIGKILL)
            return "worker"
        end(self.daemon, signal.SIGKILL)
        self.start_daemon()
        return "daemon"


def check_steps(steps):
    """A run goes on through whatever happens to it, and has one end."""
    anew = {(WAIT, status) for status in (PREPARE_START, RUNNING)}
    before_its_end = (WAIT, PREPARE_START, RUNNING)
    for old, new in steps:
        if new in (SUCCESS, FAILED):
            assert old in (*before_its_end, new), (old, new)
        else:
            assert new in before_its_end or old in (None, new), (old, new)
    assert anew & steps


def test_hundreds_of_kills_over_many_runs_lose_nothing(tmp_path, chance):
    kills = {"daemon": 0, "worker": 0}
    with House(tmp_path, CHANNELS) as house, FaultProxy(house.samba.port) as proxy:
        proxy.rate = RATE
        scene = Scene(house, proxy, chance)
        house.recorder.kill_service("recording-backupd")
        scene.start_daemon()
        scene.begin_round()
        with StatusWatch(house, scene.task_id) as watch:
            while sum(kills.values()) < KILLS:
                time.sleep(chance.uniform(0.0, 0.6))
                if scene.ended():
                    scene.end_round()
                    scene.begin_round()
                else:
                    kills[scene.kill()] += 1
            wait_until(scene.ended, "the last run's end")
            scene.end_round()
            scene.begin_round()
            wait_until(scene.ended, "one more run's end")
            scene.end_round()
            proxy.rate = None
            house.run(scene.task_id)
        shared = tree(house.share)
        assert {path: shared[path] for path in scene.foreign} == scene.foreign
        wanted = {f"recorder/{path}": digest for path, digest in house.sources().items()}
        assert {path: digest for path, digest in shared.items()
                if path not in scene.foreign and ".recording-backup" not in path} == wanted
        assert house.database("SELECT * FROM checkpoint") == []
        check_steps(watch.steps)
        told = [event["id"] for event in reversed(house.recorder.events("--limit", "100000"))
                if is_of_a_run(event["id"])]
        letters = "".join(LETTERS[event] for event in told)
        assert TOLD.fullmatch(letters), letters
    resent = proxy.sent - scene.planned
    print(f"kills {kills}, {scene.rounds} runs, planned {scene.planned / MIB:.0f} MiB, "
          f"sent {proxy.sent / scene.planned:.3f} times, {resent / KILLS / MIB:.2f} MiB a kill")
    assert resent < KILLS * RESENT
