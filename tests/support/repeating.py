"""Does something again and again, in a thread of its own, while a test does something else."""
import threading


class Repeating:
    """Calls look() every so many seconds until the context is left; to be derived from. What look()
    raises ends the looking, and comes out where the context is left."""

    pause = 0.05

    def __enter__(self):
        self.ended = threading.Event()
        self.failure = None
        self.thread = threading.Thread(target=self.repeat)
        self.thread.start()
        return self

    def __exit__(self, *unused):
        self.ended.set()
        self.thread.join()
        if self.failure:
            raise self.failure

    def repeat(self):
        try:
            while not self.ended.wait(self.pause):
                self.look()
        except Exception as failure:
            self.failure = failure
