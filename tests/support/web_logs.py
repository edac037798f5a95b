"""The recorder's logs as a reader finds them: they are made, and renewed, while it runs."""
from places import LOGS


def log_lines(name):
    """Those of `logs/NAME`; none while there is no such file."""
    try:
        return (LOGS / name).read_text().splitlines()
    except FileNotFoundError:
        return []


def line_with(text, name):
    """The first line with this text, or None."""
    return next((line for line in log_lines(name) if text in line), None)
