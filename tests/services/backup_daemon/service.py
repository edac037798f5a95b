"""The daemon of a running recorder, taken over so that it can be killed and started again."""


class Daemon:
    """For the time of the context the recorder's own supervisor does not notice."""

    def __init__(self, recorder):
        self.recorder = recorder
        self.process = None

    def __enter__(self):
        self.recorder.kill_service("recording-backupd")
        self.start()
        return self

    def __exit__(self, *unused):
        self.kill()

    def start(self):
        self.recorder.start_service("recording-backupd")
        self.process = self.recorder.strays.pop()

    def kill(self):
        self.process.kill()
        self.process.communicate()
