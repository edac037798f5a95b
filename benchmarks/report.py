"""Prints figures as tables, each aim beside them, and keeps them for the file of all figures."""
from dataclasses import asdict, dataclass

from benchmarks.aims import in_words, judge, read_aims

NAME_WIDTH = 38


@dataclass
class Column:
    """One figure of each row, or a word."""
    figure: str
    heading: str
    format: str = ".0f"
    width: int = 10

    def cell(self, figures):
        value = figures.get(self.figure)
        return format("" if value is None else format(value, self.format), f">{self.width}")


class Report:
    """What one measurement finds; `only` is a word that a row's name must have."""

    def __init__(self, measurement, only=""):
        self.measurement = measurement
        self.only = only
        self.aims = read_aims(measurement)
        self.rows = []
        self.columns = []
        self.title = None
        self.width = NAME_WIDTH

    def wants(self, name):
        return self.only in name

    def bound(self, name, figure, bound):
        """Of an aim; 0 where there is none."""
        return self.aims.get(name, {}).get(figure, {}).get(bound, 0)

    def table(self, title, *columns, width=NAME_WIDTH):
        """The rows that follow are its; without any it is not printed."""
        self.title, self.columns, self.width = title, columns, width

    def row(self, name, **figures):
        if self.title:
            self.tell("", [f"{column.heading:>{column.width}}" for column in self.columns], "aim",
                      before=f"\n{self.title}\n")
            self.title = None
        judged = judge(self.aims.get(name, {}), figures)
        self.tell(name, [column.cell(figures) for column in self.columns], in_words(judged))
        self.rows.append({"measurement": self.measurement, "name": name, **figures,
                          "aims": [asdict(one) for one in judged]})

    def tell(self, name, cells, aim, before=""):
        """One line; of aims only where a measurement has any."""
        line = f"{name:<{self.width}}" + "".join(cells) + (f"  {aim}" if self.aims else "")
        print(before + line, flush=True)

    def aims_without_figures(self):
        return sorted(set(self.aims) - {row["name"] for row in self.rows})
