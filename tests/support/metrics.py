"""The figures that recording-backupd has for monitoring systems, read as these read them."""
import re
import subprocess

from loopback import request
from waiting import SECONDS

PORT = 10206
SAMPLE = re.compile(r'(\w+)(?:\{((?:\w+="(?:[^"\\\n]|\\.)*",?)*)\})? (\S+)')
LABEL = re.compile(r'(\w+)="((?:[^"\\\n]|\\.)*)"')
ESCAPED = {"\\n": "\n", '\\"': '"', "\\\\": "\\"}


def unescaped(text):
    return re.sub(r"\\.", lambda found: ESCAPED[found[0]], text)


class Metrics:
    """One answer; `samples` has each value by its name and labels."""

    def __init__(self, text):
        self.text = text
        self.samples = {}
        for line in text.split("\n")[:-1]:
            if not line.startswith("#"):
                self.add(*SAMPLE.fullmatch(line).groups())

    def add(self, name, labels, value):
        key = (name, frozenset((one, unescaped(two)) for one, two in LABEL.findall(labels or "")))
        assert key not in self.samples, key
        self.samples[key] = float(value)

    def get(self, name, **labels):
        """The only sample of recorder_backup_`name` that has these labels, perhaps among others;
        None when there is none."""
        found = [value for (other, has), value in self.samples.items()
                 if other == "recorder_backup_" + name and has >= frozenset(labels.items())]
        assert len(found) < 2, (name, labels)
        return found[0] if found else None

    def names(self):
        return {name for name, _ in self.samples}


def scrape():
    reply = request(PORT, "GET", "/metrics")
    assert reply.status == 200, reply.body
    assert reply.headers["Content-Type"] == "text/plain; version=0.0.4; charset=utf-8"
    return Metrics(reply.body.decode())


def promtool(*words, given=""):
    """What Debian's promtool says that finds nothing wrong."""
    done = subprocess.run(["/usr/bin/promtool", *words], input=given, text=True,
                          capture_output=True, timeout=SECONDS, check=False)
    assert done.returncode == 0, done
    return done.stdout + done.stderr
