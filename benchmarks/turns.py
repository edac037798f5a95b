"""Has programs run in turn, so that whatever else the machine does befalls them alike."""
import os
import subprocess
import sys
from dataclasses import dataclass
from pathlib import Path

from places import PROGRAMS


@dataclass
class Runner:
    """A program with what it is given, one of the inputs after the other; `inside` are the words
    before a command, as nsenter's."""
    program: Path
    environment: dict
    inputs: tuple = (Path("/dev/null"),)
    inside: tuple = ()

    def start(self, runs, source, target):
        return subprocess.Popen(
            [*self.inside, PROGRAMS / "bench_turns", str(runs), str(source), str(target),
             self.program, *self.inputs],
            env=self.environment, pass_fds=(source, target), stdout=subprocess.PIPE, text=True)


@dataclass
class Runs:
    """Of one program: the time of each, in microseconds, and the most memory of all, in kB."""
    us: list
    peak_kb: int


def read_runs(text):
    rows = [line.split() for line in text.splitlines()]
    return Runs([float(us) for us, _ in rows], max(int(kb) for _, kb in rows))


def take_turns(runs, *runners):
    """The Runs of each of them."""
    pipes = [os.pipe() for _ in runners]
    processes = [runner.start(runs, pipes[at][0], pipes[(at + 1) % len(pipes)][1])
                 for at, runner in enumerate(runners)]
    os.write(pipes[0][1], b".")
    # The first pipe's end stays open: the last turn is handed on when the first runner has gone.
    for descriptor in [end for pipe in pipes for end in pipe if end != pipes[0][0]]:
        os.close(descriptor)
    said = [process.communicate()[0] for process in processes]
    os.close(pipes[0][0])
    if any(process.returncode for process in processes):
        sys.exit("bench: a program failed; which one stands above")
    return [read_runs(text) for text in said]
