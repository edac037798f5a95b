"""Much to copy: a thousand small files, and one of 4 GiB; the daemon's memory stays small."""
import os
import shutil
import tempfile
from pathlib import Path

import pytest

from backup_house import MIB, SUCCESS, House, noise
from memory_watch import MemoryWatch
from places import BUILD
from recorder_clock import day_name

MOST_MEMORY = 64 * 1024  # kB, of the daemon and its processes together
GIB = 1024 * MIB


def run_watched(house, task_id):
    with MemoryWatch(house.recorder.service("recording-backupd")) as watch:
        house.run(task_id, SUCCESS)
    assert 0 < watch.most < MOST_MEMORY
    print(f"{watch.most} kB")


def test_a_thousand_small_files(house):
    for number in range(1000):
        minute, second = divmod(number, 60)
        house.record(number % 3, number % 2, f"01-{minute:02}-{second:02}.mp4",
                     noise(number * 37, number))
    run_watched(house, house.create())
    assert house.shared() == house.sources()
    assert len(house.copied()) == 1000
    house.check_records()


@pytest.fixture
def roomy(tmp_path):
    """The share lies in the build folder, on a disk: everything else here is in memory."""
    folder = Path(tempfile.mkdtemp(prefix="share-", dir=BUILD))
    try:
        with House(tmp_path, share=folder) as house:
            yield house
    finally:
        shutil.rmtree(folder)


def test_one_file_of_four_gibibytes(roomy):
    house = roomy
    path = house.record(0, 0, "01-00-00.mp4", b"")
    with open(path, "r+b") as file:
        file.truncate(4 * GIB + 12345)
        for place in (0, 2 * GIB - 3, 4 * GIB - 3):  # both sides of what 31 and 32 bits hold
            os.pwrite(file.fileno(), b"marked", place)
    run_watched(house, house.create())
    copy = house.share / "recorder/Camera 0" / day_name(0) / "01-00-00.mp4"
    assert copy.stat().st_size == 4 * GIB + 12345
    row, = house.copied().values()
    with open(path, "rb") as ours, open(copy, "rb") as theirs:
        while block := ours.read(16 * MIB):
            assert theirs.read(16 * MIB) == block
    assert row["size"] == 4 * GIB + 12345 and len(row["sha256"]) == 64
