"""The demo's recordings are well-formed MP4 files of their name's time, and what is there stays."""
import struct
import subprocess
from datetime import datetime

import pytest

from places import SOURCE
from waiting import SECONDS

CONTAINERS = {b"moov", b"trak", b"mdia", b"minf", b"dinf", b"stbl"}


def make(name, *files):
    subprocess.run([SOURCE / "scripts/demo_video", name, *files], check=True, timeout=SECONDS)


def boxes(data, start=0, end=None, path=""):
    """(path, offset and size of the content) of each box; they fill their surroundings exactly."""
    end = len(data) if end is None else end
    while start < end:
        size, kind = struct.unpack_from(">I4s", data, start)
        assert 8 <= size <= end - start, (path, kind)
        name = f"{path}/{kind.decode()}"
        yield name, start + 8, size - 8
        if kind in CONTAINERS:
            yield from boxes(data, start + 8, start + size, name)
        start += size
    assert start == end


@pytest.fixture(name="video")
def one_video(tmp_path):
    file = tmp_path / "2026-11-20/alarm/12-31-07.mp4"
    make("Front door", file)
    return file


def contents(data):
    found = list(boxes(data))
    assert len({name for name, _, _ in found}) == len(found)
    return {name: (start, size) for name, start, size in found}


def numbers(data, place):
    start, size = place
    return struct.unpack(f">{size // 4}I", data[start:start + size // 4 * 4])


def test_the_boxes_are_those_of_a_movie_with_one_track(video):
    data = video.read_bytes()
    table = "/moov/trak/mdia/minf/stbl"
    assert [name for name, _, _ in boxes(data)] == [
        "/ftyp", "/moov", "/moov/mvhd", "/moov/trak", "/moov/trak/tkhd", "/moov/trak/mdia",
        "/moov/trak/mdia/mdhd", "/moov/trak/mdia/hdlr", "/moov/trak/mdia/minf",
        "/moov/trak/mdia/minf/vmhd", "/moov/trak/mdia/minf/dinf",
        "/moov/trak/mdia/minf/dinf/dref", table, f"{table}/stsd", f"{table}/stts",
        f"{table}/stss", f"{table}/stsc", f"{table}/stsz", f"{table}/stco", "/mdat"]
    found = contents(data)
    sizes = {name.rpartition("/")[2]: size for name, (_, size) in found.items()}
    assert {name: sizes[name] for name in ("mvhd", "tkhd", "mdhd", "hdlr", "vmhd")} == {
        "mvhd": 100, "tkhd": 84, "mdhd": 24, "hdlr": 25, "vmhd": 12}


def test_the_samples_fill_the_data_and_each_is_one_unit(video):
    data = video.read_bytes()
    found = contents(data)
    table = "/moov/trak/mdia/minf/stbl"
    sizes = numbers(data, found[f"{table}/stsz"])[3:]
    assert numbers(data, found[f"{table}/stsz"])[2] == len(sizes) == 10
    start, length = found["/mdat"]
    assert numbers(data, found[f"{table}/stco"])[2] == start
    assert sum(sizes) == length
    for index, size in enumerate(sizes):
        unit, = struct.unpack_from(">I", data, start)
        assert unit == size - 4
        assert data[start + 4] == (0x65 if index == 0 else 0x41)
        body = data[start + 5:start + size]
        assert all(b"\0\0" + bytes([low]) not in body for low in (0, 1, 2))
        start += size


def test_the_time_is_that_of_the_name(video):
    assert video.stat().st_mtime == datetime(2026, 11, 20, 12, 31, 7).timestamp()


def test_what_is_there_stays(video, tmp_path):
    video.write_text("somebody's")
    later = tmp_path / "2026-11-20/13-00-00.mp4"
    make("Front door", video, later)
    assert video.read_text() == "somebody's"
    assert later.stat().st_size > 100_000
    assert sorted(file.name for file in tmp_path.rglob("*.*")) == [video.name, later.name]
