"""Figures are reckoned as the page about them says."""
import pytest

from benchmarks.flushes import FLUSH
from benchmarks.requests import figures
from benchmarks.turns import read_runs
from benchmarks.web import read_printed

AB = """
Complete requests:      {complete}
Failed requests:        {failed}
   (Connect: 0, Receive: 0, Length: 3, Exceptions: 0)
{more}Requests per second:    612.34 [#/sec] (mean)
"""
TRACE = """SYSCALL[7,1](75) sys_fdatasync ( 6 )[sync] --> Success(0x0)
SYSCALL[7,1](1) sys_write ( 1, 0x4, 12 ) --> [async] ...
SYSCALL[7,1](74) sys_fsync ( 6 )[sync] --> Success(0x0)
SYSCALL[7,1](277) sys_sync_file_range ( 6 )[sync] --> Success(0x0)
"""


def test_flushes_that_are_granted_are_taken_off_before_the_ratio():
    found = figures(3000, 500, 1500, flushes=2, granted=2)
    assert found == {"us": 3000, "empty_us": 500, "flushes": 2, "flush_us": 1000, "ratio": 2}


@pytest.mark.parametrize("flushes, ratio", [(4, 2), (1, 4), (0, 6)])
def test_neither_more_than_granted_nor_more_than_made_is_taken_off(flushes, ratio):
    assert figures(3000, 500, 1500, flushes=flushes, granted=2)["ratio"] == ratio


def test_a_request_without_flushes_has_its_whole_time_to_the_empty_programs():
    found = figures(1000, 500, flushes=0, granted=0)
    assert (found["ratio"], found["flush_us"]) == (2, None)


def test_flushes_are_counted_and_nothing_else():
    assert len(FLUSH.findall(TRACE)) == 2


def test_runs_are_read_with_the_most_memory_of_all():
    runs = read_runs("100.5 2000\n90.0 2100\n")
    assert (runs.us, runs.peak_kb) == ([100.5, 90.0], 2100)


@pytest.mark.parametrize("complete, failed, more, bad", [
    (100, 0, "", 0), (100, 3, "", 3), (98, 0, "", 2),
    (100, 0, "Non-2xx responses:      7\n", 7)])
def test_whatever_is_not_answered_as_it_should_be_is_a_failure(complete, failed, more, bad):
    printed = AB.format(complete=complete, failed=failed, more=more)
    assert read_printed(printed, 100) == (612.34, bad)
