"""Whether figures reach their aims, which stand in aims.toml."""
import tomllib
from dataclasses import dataclass
from pathlib import Path

FILE = Path(__file__).with_name("aims.toml")
REACHED = {"at_most": lambda figure, bound: figure <= bound,
           "at_least": lambda figure, bound: figure >= bound}


def read_aims(measurement):
    """By the name of a row, its aims."""
    return tomllib.loads(FILE.read_text()).get(measurement, {})


@dataclass
class Judged:
    """One aim of a row: of which figure, which bound ("at_most", "at_least"), and how it went."""
    figure: str
    bound: str
    value: float
    met: bool

    def __str__(self):
        words = f"{self.figure} {self.bound.replace('_', ' ')} {self.value:g}"
        return f"{words}: {'met' if self.met else 'not met'}"


def judge(aims, figures):
    """Every aim of a row, judged by its figures as they are, not as they are printed."""
    return [Judged(name, bound, value, REACHED[bound](figures[name], value))
            for name, bounds in aims.items() for bound, value in bounds.items()]


def in_words(judged):
    return "; ".join(map(str, judged)) or "no aim"
