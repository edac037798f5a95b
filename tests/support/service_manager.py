"""Stands in for systemd where a service tells it how it is (sd_notify(3))."""
import socket

from waiting import SECONDS

READY, ALIVE, STOPPING = b"READY=1", b"WATCHDOG=1", b"STOPPING=1"


class ServiceManager:
    """`environment` is what a service is given: the socket, and how long it may be silent."""

    def __init__(self, folder, microseconds=None):
        path = folder / "notify"
        self.socket = socket.socket(socket.AF_UNIX, socket.SOCK_DGRAM)
        self.socket.bind(str(path))
        self.socket.settimeout(SECONDS)
        self.environment = {"NOTIFY_SOCKET": str(path)}
        if microseconds:
            self.environment["WATCHDOG_USEC"] = str(microseconds)

    def __enter__(self):
        return self

    def __exit__(self, *unused):
        self.socket.close()

    def hear(self):
        """What is told next."""
        return self.socket.recv(4096)

    def is_silent_for(self, seconds):
        """Whether nothing is told for so long; what has come before is not of weight."""
        self.socket.settimeout(0)
        try:
            while self.hear():
                continue
        except BlockingIOError:
            pass
        self.socket.settimeout(seconds)
        try:
            return not self.hear()
        except TimeoutError:
            return True
        finally:
            self.socket.settimeout(SECONDS)
