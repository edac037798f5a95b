"""A proxy between daemon and share that knows SMB2 requests: counts them, and stops at one."""
from collections import Counter

from fault_proxy import FaultProxy

COMMANDS = ("negotiate", "session setup", "logoff", "tree connect", "tree disconnect", "create",
            "close", "flush", "read", "write", "lock", "ioctl", "cancel", "echo",
            "query directory", "change notify", "query info", "set info", "oplock break")
HEADER = 64
RENAME = bytes((33, 0, 1, 10))  # how the body of a request to set a file's name begins


def requests_of(message):
    """Name of the command and body of each request in a message; a sealed one tells nothing."""
    if message[:4] != b"\xfeSMB":
        yield "sealed", b""
        return
    while message:
        following = int.from_bytes(message[20:24], "little")
        yield COMMANDS[int.from_bytes(message[12:14], "little")], message[HEADER:HEADER + 32]
        message = message[following:] if following else b""


class RequestProxy(FaultProxy):
    """`requests` counts by command. When a client asks for the first renaming, `at_rename` is
    called, and all connections are cut before the server hears of it."""

    def __init__(self, target_port):
        super().__init__(target_port)
        self.requests = Counter()
        self.at_rename = None
        self.pending = {}

    def watch(self, source, data):
        pending = self.pending.pop(source, b"") + data
        while len(pending) >= 4 and len(pending) >= (end := 4 + int.from_bytes(pending[1:4])):
            for command, body in requests_of(pending[4:end]):
                self.requests[command] += 1
                if self.at_rename and body.startswith(RENAME):
                    self.stop_at_rename()
                    return
            pending = pending[end:]
        self.pending[source] = pending

    def stop_at_rename(self):
        action, self.at_rename = self.at_rename, None
        action()
        self.cut()
