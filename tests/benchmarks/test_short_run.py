"""A very short run tells all that a long one does; how long anything took is not looked at."""
import json
import os
import subprocess

import pytest

from benchmarks import recorder as recorders
from places import BUILD, SOURCE
from waiting import SECONDS


def bench(folder, *words):
    """What is printed, and the file of figures."""
    done = subprocess.run(
        ["/usr/bin/python3", "-BP", "-m", "benchmarks", *words, "--quick",
         "--figures", folder / "figures.json"],
        text=True, capture_output=True, timeout=SECONDS, check=False,
        env={**os.environ, "PYTHONPATH": f"{SOURCE}:{SOURCE}/tests/support"})
    assert (done.returncode, done.stderr) == (0, ""), done
    return done.stdout, json.loads((folder / "figures.json").read_text())


@pytest.mark.skipif(os.environ.get("RECORDER_IN_PLACE") == "1",
                    reason="each build has a network of its own")
def test_a_build_is_compared_with_itself(tmp_path):
    said, told = bench(tmp_path, "compare", "--builds", BUILD, BUILD, "--only", "PUT /task")
    assert f"A: {BUILD}" in said and f"B: {BUILD}" in said
    assert told["builds"]["A"] == told["builds"]["B"]
    row, = told["figures"]
    assert (row["measurement"], row["name"]) == ("compare", "PUT /task")
    assert row["verdict"] in ("faster", "slower", "no difference seen")
    assert row["verdict"] in said
    assert 0 < row["low"] <= row["ratio"] <= row["high"]
    assert row["a_us"] > 0 and row["b_us"] > 0
    assert row["a_peak_kb"] > 0 and row["b_peak_kb"] > 0


def test_a_request_is_told_with_its_flushes_its_aims_and_the_machine(tmp_path):
    said, told = bench(tmp_path, "requests", "--only", "POST /task")
    assert told["version"].startswith("recorderctl ")
    assert told["machine"]["processors"] == os.cpu_count()
    assert told["machine"]["kernel"] == os.uname().release
    row, = told["figures"]
    assert row["name"] == "POST /task/<id>"
    assert row["flushes"] >= 2, "the task and the event"
    assert [aim["figure"] for aim in row["aims"]] == ["ratio", "flushes"]
    for aim in row["aims"]:
        assert aim["met"] == (row[aim["figure"]] <= aim["value"])
        judged = f"{aim['figure']} at most {aim['value']}: {'met' if aim['met'] else 'not met'}"
        assert judged in said


def test_what_is_unchanged_is_measured_while_nothing_changes(tmp_path, monkeypatch):
    monkeypatch.setattr(recorders, "STEADY_SECONDS", 5)
    recorder = recorders.AskedRecorder(tmp_path / "state")
    with recorder.without_change():
        assert "Status: 304" in recorder.tasks_reply(recorder.tag())
    with pytest.raises(SystemExit, match="the state has changed"), recorder.without_change():
        recorder.add_channel(0, "Front door", tmp_path)
