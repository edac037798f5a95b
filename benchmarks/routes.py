"""The requests that are measured, and what the recorder has when they come."""
from dataclasses import dataclass

from sample_task import NEVER, task_body

# As in earlier versions of this program, whose figures are compared with these.
BODY = task_body(taskName="Bench", serverIP="127.0.0.1", username="u", password="p",
                 destPath="/share/folder", chIdxList=[0, 1, 2, 3], recordingType="recording",
                 recordingFormat="mp4", remoteKeepRec=False, remoteKeepRecDays=0,
                 remoteOverwriteType="stop_overwrite", scheduleWeekly=0, scheduleMin=0,
                 scheduleEveryHours=0, **NEVER)
OTHER_BODY = BODY.replace("/share/folder", "/share/others")

CHANNELS = 128
CONSOLE_TASKS = 100  # a page polls, so what it asks for has a bound of its own


@dataclass(frozen=True)
class Route:
    """`<last>` in a path is the newest task. Bodies are sent in turn, and are equally long."""
    name: str
    method: str
    path: str
    bodies: tuple = ("",)
    program: str = "recording_backup.cgi"
    tasks: int = 0
    days: int = 0             # that each channel has recordings of; 0: there are no channels
    unchanged: bool = False   # the client has the reply already
    full_look: bool = False   # where nothing can be kept of what earlier requests have found
    runs: int = 300

    @property
    def writes(self):
        return self.method != "GET"

    def runs_of(self, quick):
        return max(5, self.runs // 15) if quick else self.runs


def console(name, path, **options):
    return Route("console: " + name, "GET", path, program="console.cgi", tasks=CONSOLE_TASKS,
                 **options)


def channels(days):
    name = f"GET /channel, {days:,} days"
    return [Route(name, "GET", "/channel", days=days, runs=75),
            Route(name + ", all read", "GET", "/channel", days=days, full_look=True, runs=5)]


# Each finds what the ones before have left, so tasks and days grow: PUT leaves a task each time.
TASK_ROUTES = [
    Route("GET /fuse", "GET", "/fuse"),
    Route("GET /task, no tasks", "GET", "/task"),
    console("GET /session", "/session"),
    console(f"GET /tasks, {CONSOLE_TASKS} tasks", "/tasks"),
    console("the same, unchanged (304)", "/tasks", unchanged=True),
    Route("POST /task/<id>", "POST", "/task/1", (OTHER_BODY, BODY), tasks=CONSOLE_TASKS),
    Route("PUT /task", "PUT", "/task", (BODY,), tasks=CONSOLE_TASKS),
    Route("GET /task/status/<id>, 1,000 tasks", "GET", "/task/status/<last>", tasks=1000),
    Route("GET /task, 1,000 tasks", "GET", "/task", tasks=1000),
    Route("GET /task, 10,000 tasks", "GET", "/task", tasks=10000, runs=75)]
CHANNEL_ROUTES = [route for days in (30, 365, 3650) for route in channels(days)]


def chosen(routes, report, quick):
    """Those that are asked for; ten years of days take long to make."""
    return [route for route in routes
            if report.wants(route.name) and not (quick and route.days > 365)]
