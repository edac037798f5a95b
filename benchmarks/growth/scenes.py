"""What is measured as it grows: each scene at three sizes, with the figures that it gives."""
from collections.abc import Callable
from dataclasses import dataclass

from benchmarks.growth import records, tasks


@dataclass
class Scene:
    """`measure` is given the sizes, smallest first, and yields the figures' values of each."""
    name: str
    one: str
    sizes: list
    figures: list
    measure: Callable


TASKS = [100, 1_000, 10_000]
RECORDS = [10_000, 100_000, 1_000_000]

SCENES = [
    Scene("tasks", "task", TASKS, tasks.TASK_FIGURES, tasks.measure_tasks),
    Scene("rush", "task due at once", TASKS, tasks.RUSH_FIGURES, tasks.measure_rush),
    Scene("alerts", "waiting alert", TASKS, tasks.ALERT_FIGURES, tasks.measure_alerts),
    Scene("events", "event", RECORDS, records.EVENT_FIGURES, records.measure_events),
    Scene("runs", "run in the history", RECORDS, records.RUN_FIGURES, records.measure_runs),
    Scene("copies", "copied file", RECORDS, records.COPY_FIGURES, records.measure_copies),
    Scene("cameras", "camera", [8, 32, 128], records.CAMERA_FIGURES, records.measure_cameras),
    Scene("days", "recorded day of four cameras", [30, 100, 365], records.DAY_FIGURES,
          records.measure_days),
]


def chosen(word):
    """Those with the word in their name; ValueError, in words for the user, when none has it."""
    found = [scene for scene in SCENES if word in scene.name]
    if not found:
        raise ValueError(f'no scene has "{word}" in its name; there are '
                         + ", ".join(scene.name for scene in SCENES))
    return found
