"""A TCP proxy between daemon and share that cuts, stalls, slows or refuses, and counts bytes."""
import selectors
import socket
import threading
import time

PIECE = 64 * 1024

# Bytes a second that get nowhere: none of what tests copy is whole before they lift the limit.
CRAWL = 8 * PIECE


class FaultProxy:
    """Forwards 127.0.0.1:`port` to a port. Attributes may be changed at any time:

    refusing     new connections are closed at once
    stalled      nothing is forwarded any more, connections stay open
    rate         bytes a second towards the server, of all connections together; None: no limit
    spoil_up     piece -> piece, of what goes towards the server
    spoil_down   the same, of what comes from it
    """

    def __init__(self, target_port, listener=None):
        self.target = target_port
        self.listener = listener or socket.create_server(("127.0.0.1", 0))
        self.port = self.listener.getsockname()[1]
        self.sent = 0  # bytes towards the server
        self.connections = 0
        self.refusing = self.stalled = False
        self.rate = None
        self.cut_at = self.stall_at = self.crawl_at = None
        self.cut_distance = self.cuts_left = 0
        self.spoil_up = self.spoil_down = bytes
        self.pairs = {}
        self.closing = threading.Lock()  # a test may cut while the proxy closes
        self.ended = False
        self.thread = threading.Thread(target=self.forward, daemon=True)

    def __enter__(self):
        self.thread.start()
        return self

    def __exit__(self, *unused):
        self.ended = True
        self.thread.join()

    def cut_after(self, count):
        """Cuts all connections when so many more bytes have gone towards the server."""
        self.cut_at = self.sent + count

    def cut_every(self, count, cuts):
        """Cuts all connections whenever so many more bytes have gone, so many times."""
        self.cut_distance, self.cuts_left = count, cuts - 1
        self.cut_after(count)

    def stall_after(self, count):
        """Stalls when so many more bytes have gone towards the server."""
        self.stall_at = self.sent + count

    def crawl_after(self, count):
        """Goes on at CRAWL when so many more bytes have gone towards the server."""
        self.crawl_at = self.sent + count

    def crawls(self):
        return self.rate == CRAWL

    def forward(self):
        with selectors.DefaultSelector() as selector:
            self.selector = selector
            selector.register(self.listener, selectors.EVENT_READ)
            while not self.ended:
                if self.stalled:
                    time.sleep(0.02)
                    continue
                for key, _ in selector.select(0.05):
                    if not self.stalled:
                        self.handle(key.fileobj)
            for one in list(self.pairs):
                self.close(one)
            self.listener.close()

    def handle(self, ready):
        if ready is self.listener:
            self.accept()
        elif pair := self.pairs.get(ready):
            self.pass_on(ready, *pair)

    def accept(self):
        client, _ = self.listener.accept()
        if self.refusing:
            client.close()
            return
        self.connections += 1
        try:
            server = socket.create_connection(("127.0.0.1", self.target))
        except OSError:
            client.close()
            return
        for one, other, up in ((client, server, True), (server, client, False)):
            self.pairs[one] = (other, up)
            self.selector.register(one, selectors.EVENT_READ)

    def pass_on(self, source, other, up):
        try:
            data = source.recv(PIECE)
            if up:
                self.watch(source, data)
            if data:
                other.sendall(self.spoil_up(data) if up else self.spoil_down(data))
        except OSError:
            data = b""
        if not data:
            self.close(source)
        elif up:
            self.count(len(data))

    def watch(self, source, data):
        """Sees what a client sends before it goes on; for those who derive from this."""

    def count(self, size):
        self.sent += size
        if self.rate:
            time.sleep(size / self.rate)
        if self.cut_at is not None and self.sent >= self.cut_at:
            self.cut_at = self.sent + self.cut_distance if self.cuts_left > 0 else None
            self.cuts_left -= 1
            self.cut()
        if self.crawl_at is not None and self.sent >= self.crawl_at:
            self.crawl_at = None
            self.rate = CRAWL
        if self.stall_at is not None and self.sent >= self.stall_at:
            self.stall_at = None
            self.stalled = True

    def cut(self):
        for one in list(self.pairs):
            self.close(one)

    def close(self, one):
        """Ends a connection, both halves."""
        with self.closing:
            if one not in self.pairs:
                return
            other, _ = self.pairs.pop(one)
            self.pairs.pop(other, None)
            for end in (one, other):
                self.selector.unregister(end)
                end.close()
