"""./bench growth: its scenes, its table, and the page that tells what it has found."""
import os
import re
import subprocess
from dataclasses import replace

import pytest

from benchmarks.growth import table
from benchmarks.growth.scenes import SCENES, chosen
from places import SOURCE


def scene_of(name, sizes):
    return replace(next(scene for scene in SCENES if scene.name == name), sizes=sizes)


def test_each_scene_has_three_sizes_and_its_own_name():
    assert len({scene.name for scene in SCENES}) == len(SCENES)
    assert all(len(set(scene.sizes)) >= 3 for scene in SCENES)
    assert all(scene.sizes == sorted(scene.sizes) for scene in SCENES)


def test_scenes_are_chosen_by_a_word_of_their_names():
    assert [scene.name for scene in chosen("a")] == ["tasks", "alerts", "cameras", "days"]
    assert chosen("") == SCENES


def test_a_word_that_no_scene_has_is_refused():
    done = subprocess.run(
        ["/usr/bin/python3", "-BP", "-m", "benchmarks.growth", "--only", "nothing"],
        env={**os.environ, "PYTHONPATH": f"{SOURCE}:{SOURCE / 'tests/support'}"},
        capture_output=True, text=True, check=False)
    assert (done.returncode, done.stdout) == (1, "")
    assert done.stderr.startswith('bench: no scene has "nothing" in its name; there are tasks, ')


@pytest.mark.parametrize("name, sizes", [("events", [10, 1_000, 5_000]), ("cameras", [1, 2, 4])])
def test_a_scene_gives_each_figure_at_each_size(name, sizes):
    scene = scene_of(name, sizes)
    measured = list(scene.measure(sizes))
    rows = table.rows(scene, measured)
    assert [row[:table.NAME].rstrip() for row in rows] == scene.figures
    assert all(len(row[table.NAME:].split()) == len(sizes) + 4 for row in rows), rows
    on_disk = [values[0] for values in measured]
    assert on_disk == sorted(set(on_disk)), "the first figure is of bytes that grow"


def test_the_table_names_sizes_and_columns():
    scene = scene_of("events", [1, 20, 3_000])
    assert table.head(scene).split()[:8] == ["events", "1", "20", "3,000", "each", "fixed", "R2",
                                             "bend"]
    row = table.row("bytes", scene.sizes, [10, 200, 30_000])
    assert row.split() == ["bytes", "10.00", "200", "30,000", "10", *row.split()[5:]]
    assert float(row.split()[6]) == 1


@pytest.mark.parametrize("values", [[0.6, 1.0, 1.001], [0.6, 0.6001, 90], [5, 4, 3]])
def test_columns_stay_apart_whatever_the_bend(values):
    """As of times of which two happen to be almost the same."""
    assert len(table.row("ms", [10, 1_000, 5_000], values).split()) == 1 + 3 + 4


def test_the_page_has_a_row_for_each_figure():
    page = (SOURCE / "docs/growth.md").read_text()
    rows = re.findall(r"^\| `(\w+)` \| ([^|]+?) \|", page, re.M)
    assert rows == [(scene.name, figure) for scene in SCENES for figure in scene.figures]
