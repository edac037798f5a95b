"""Aims are judged by their bounds, and each names a figure that there is."""
import tomllib

import pytest

from benchmarks.aims import FILE, REACHED, in_words, judge, read_aims
from benchmarks.look import SCENES
from benchmarks.report import Column, Report
from benchmarks.routes import CHANNEL_ROUTES, TASK_ROUTES

RATIO = {"ratio": {"at_most": 1.6}}


@pytest.mark.parametrize("aims, figure, met", [
    (RATIO, 1.59, True), (RATIO, 1.6, True), (RATIO, 1.601, False),
    ({"ratio": {"at_least": 0.85}}, 0.85, True), ({"ratio": {"at_least": 0.85}}, 0.8499, False)])
def test_a_bound_itself_is_met_and_what_is_beyond_is_not(aims, figure, met):
    assert [one.met for one in judge(aims, {"ratio": figure})] == [met]


def test_each_aim_of_a_row_is_judged_by_itself():
    aims = {"ratio": {"at_most": 8}, "peak_kb": {"at_most": 4096}}
    said = in_words(judge(aims, {"ratio": 7, "peak_kb": 4097, "us": 1}))
    assert said == "ratio at most 8: met; peak_kb at most 4096: not met"


def test_a_row_without_an_aim_says_so():
    assert in_words(judge({}, {"us": 1})) == "no aim"


def test_an_aim_whose_figure_is_missing_is_an_error():
    with pytest.raises(KeyError):
        judge(RATIO, {"us": 1})


@pytest.mark.parametrize("name, rows", [
    ("requests", [route.name for route in TASK_ROUTES + CHANNEL_ROUTES]
     + ["GET /task, 10,000 tasks beside 1,000", "behind Apache, in a row",
        "behind Apache, all at once"]),
    ("log_query", ["1,000,000 events"]),
    ("look", [scene.name for scene in SCENES])])
def test_every_aim_is_for_a_row_that_there_is(name, rows):
    assert read_aims(name)
    assert set(read_aims(name)) <= set(rows)


def test_every_aim_is_one_that_can_be_judged():
    for rows in tomllib.loads(FILE.read_text()).values():
        for row, aims in rows.items():
            for bounds in aims.values():
                assert bounds.keys() <= REACHED.keys() and bounds, row


def test_a_report_prints_each_row_with_its_aim_and_keeps_it(capsys):
    report = Report("requests", "fuse")
    report.table("a title", Column("ratio", "ratio", ".2f"), Column("flush_us", "flush us"))
    report.row("GET /fuse", ratio=1.604, flush_us=None)
    report.row("another", ratio=2)
    title, heading, fuse, another = capsys.readouterr().out.strip("\n").splitlines()
    assert (title, heading.split()) == ("a title", ["ratio", "flush", "us", "aim"])
    assert fuse.split("  ")[-1] == "ratio at most 1.6: not met"
    assert " 1.60 " in fuse
    assert another.endswith("  no aim")
    assert [row["name"] for row in report.rows] == ["GET /fuse", "another"]
    assert report.rows[0]["aims"] == [
        {"figure": "ratio", "bound": "at_most", "value": 1.6, "met": False}]
    assert "GET /fuse" not in report.aims_without_figures()
    assert "PUT /task" in report.aims_without_figures()
    assert report.wants("GET /fuse") and not report.wants("GET /task")
