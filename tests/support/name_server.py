"""A name service on 127.0.0.1 that knows one name, for as long as it is told to."""
import socket
import threading
from contextlib import contextmanager
from pathlib import Path

RESOLVER = Path("/etc/resolv.conf")
NAME = "nas.example"
NO_ERROR, NO_SUCH_NAME = 0, 3
ADDRESS_QUESTION = b"\x00\x01"


class NameServer:
    """Answers that NAME is 127.0.0.1 while `knows_it`, and that there is no other."""

    def __init__(self):
        self.knows_it = True
        self.socket = socket.socket(socket.AF_INET, socket.SOCK_DGRAM)
        self.socket.bind(("127.0.0.1", 53))
        self.socket.settimeout(0.1)
        self.ended = False
        self.thread = threading.Thread(target=self.serve, daemon=True)
        self.thread.start()

    def serve(self):
        while not self.ended:
            try:
                question, sender = self.socket.recvfrom(4096)
            except TimeoutError:
                continue
            self.socket.sendto(self.answer(question), sender)

    def stop(self):
        self.ended = True
        self.thread.join()
        self.socket.close()

    def answer(self, question):
        end = question.index(b"\0", 12) + 5
        name = "".join(f"{chr(len(part))}{part}" for part in NAME.split(".")).encode()
        known = self.knows_it and question[12:end - 5] == name
        address = known and question[end - 4:end - 2] == ADDRESS_QUESTION
        status = NO_ERROR if known else NO_SUCH_NAME
        head = question[:2] + bytes([0x81, 0x80 | status, 0, 1, 0, address, 0, 0, 0, 0])
        record = b"\xc0\x0c\0\1\0\1\0\0\0\0\0\4\x7f\0\0\1" if address else b""
        return head + question[12:end] + record


@contextmanager
def resolver(text):
    """What the resolver is told meanwhile. Its file may be mounted where it is, so it is written;
    or be a link into /run, which leads nowhere in a sandbox."""
    before = RESOLVER.read_text() if RESOLVER.exists() else None
    link = RESOLVER.readlink() if before is None and RESOLVER.is_symlink() else None
    if link:
        RESOLVER.unlink()
    RESOLVER.write_text(text)
    try:
        yield
    finally:
        RESOLVER.write_text(before or "")
        if before is None:
            RESOLVER.unlink()
        if link:
            RESOLVER.symlink_to(link)


@contextmanager
def name_server():
    """The machine's only one."""
    # It answers always, and late where it gets no processor: as long as the resolver waits at most.
    with resolver("nameserver 127.0.0.1\noptions timeout:30 attempts:5\n"):
        server = NameServer()
        try:
            yield server
        finally:
            server.stop()
