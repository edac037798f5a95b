"""A recorder that is asked: it has the tasks, channels and days that a route is to find."""
import re
import sqlite3
import subprocess
import sys
import time
from contextlib import closing, contextmanager, nullcontext
from datetime import date, timedelta

from benchmarks.routes import BODY, CHANNELS
from benchmarks.turns import Runner
from cgi_program import CgiProgram, cgi_variables
from places import PROGRAMS, STORAGE
from replies import SUCCESS

RECORDINGS = STORAGE / "bench"
DAYS_WITH_FOUR = 365  # recordings; days before have one
SETTLED_SECONDS = 2.1  # what has changed more recently is read by each request
SESSION_MINUTES = 600
STEADY_SECONDS = 50  # for all turns of a route whose state may not change, on a busy machine, too

# As requests store them, but for the thousands of flushes. The daemon finds them by itself.
COPY_FIRST_TASK = """
WITH RECURSIVE n(i) AS (SELECT 1 UNION ALL SELECT i + 1 FROM n WHERE i < {count})
INSERT INTO task ({columns}) SELECT {columns} FROM n, (SELECT * FROM task LIMIT 1)"""


def record_days(days):
    """Has every channel have recordings of so many days, today the last."""
    today = date.today()  # another one may begin meanwhile
    new = [back for back in range(days) if not day_folder(0, today, back).exists()]
    for back in new:
        for channel in range(CHANNELS):
            folder = day_folder(channel, today, back)
            folder.mkdir(parents=True)
            for hour in (0, 6, 12, 18) if back < DAYS_WITH_FOUR else (12,):
                (folder / f"{hour:02}-00-00.mp4").touch()
    if new:
        time.sleep(SETTLED_SECONDS)


def day_folder(channel, today, back):
    return RECORDINGS / str(channel) / str(today - timedelta(back))


class AskedRecorder(CgiProgram):
    """Of the build with these programs; `network` is the one that its services have, if not ours.
    Whoever asks starts them."""

    def __init__(self, path, programs=PROGRAMS, network=None):
        super().__init__(path, programs)
        self.inside = network.inside() if network else []
        self.command = [*self.inside, *self.command]
        self.sid = self.ctl("session", "open", "admin", "--minutes", str(SESSION_MINUTES)).strip()
        self.has_channels = False

    def prepare(self, route):
        if self.tasks()[0] < route.tasks:
            self.fill(route.tasks)
        if route.days:
            record_days(route.days)
            self.add_channels()

    def tasks(self):
        """How many there are, and the newest."""
        with closing(sqlite3.connect(self.path / "config.db")) as store:
            return store.execute("SELECT count(*), max(taskID) FROM task").fetchone()

    def fill(self, wanted):
        if self.tasks()[0] == 0:
            self.create_task()
        if more := wanted - self.tasks()[0]:
            self.copy_first_task(more)
        self.settle()

    def create_task(self):
        said = self.create(BODY).text
        if said != SUCCESS:
            sys.exit(f"bench: a task was refused: {said}")

    def copy_first_task(self, count):
        with closing(sqlite3.connect(self.path / "config.db", timeout=60)) as store, store:
            names = [row[1] for row in store.execute("PRAGMA table_info(task)")]
            columns = ", ".join(name for name in names if name != "taskID")
            store.execute(COPY_FIRST_TASK.format(count=count, columns=columns))

    def settle(self):
        """Waits until the daemon has noted of new tasks what it notes."""
        tag = None
        while tag != (tag := self.tag()):
            time.sleep(2)  # it looks at them once a second

    def tag(self):
        return re.search("(?m)^ETag: (.*)$", self.tasks_reply())[1]

    def tasks_reply(self, tag=""):
        """The console's, to a client that has the one with the tag."""
        variables = {"REQUEST_METHOD": "GET", "PATH_INFO": "/tasks", "QUERY_STRING": "poll=1",
                     "HTTP_COOKIE": "sid=" + self.sid, "HTTP_IF_NONE_MATCH": tag}
        return subprocess.run([*self.inside, self.programs / "console.cgi"], text=True, check=True,
                              stdout=subprocess.PIPE, env={**self.environment, **variables}).stdout

    @contextmanager
    def without_change(self):
        """Of a state that nobody writes to the tag changes with the minute. Ends the measurement if
        it has changed meanwhile: for another tag the console reads everything."""
        while time.time() % 60 > 60 - STEADY_SECONDS:
            time.sleep(0.1)  # a sleep until the next minute may end before it does
        tag = self.tag()
        yield
        reply = self.tasks_reply(tag)
        if "Status: 304" not in reply or f"ETag: {tag}\n" not in reply:
            sys.exit("bench: the state has changed while it was asked for what is unchanged: "
                     f"{tag} was its tag, and now {self.tag()}")

    def add_channels(self):
        if not self.has_channels:
            for index in range(CHANNELS):
                self.add_channel(index, f"Camera {index}", RECORDINGS / str(index), streams=2)
        self.has_channels = True

    def runner(self, route, folder):
        """Of the route's program, asked for it; the bodies lie in the folder."""
        inputs = [folder / str(number) for number in range(len(route.bodies))]
        for file, body in zip(inputs, route.bodies):
            file.write_text(body)
        path = route.path.replace("<last>", str(self.tasks()[1]))
        sid = "sid=" + self.sid
        variables = cgi_variables(route.method, path, sid, len(route.bodies[0]))
        variables |= {"HTTP_COOKIE": sid,
                      "HTTP_IF_NONE_MATCH": self.tag() if route.unchanged else ""}
        environment = {name: value for name, value in self.environment.items() if name != "TZ"}
        return Runner(self.programs / route.program, {**environment, **variables}, inputs,
                      self.inside)

    @contextmanager
    def without_index(self):
        """Nothing can be kept of what requests find in the recordings' folders."""
        index = self.path / "recordings.index"
        index.unlink(missing_ok=True)
        index.mkdir()
        yield
        index.rmdir()

    def surroundings(self, route):
        if route.unchanged:
            return self.without_change()
        return self.without_index() if route.full_look else nullcontext()
