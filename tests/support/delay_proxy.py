"""A TCP proxy that makes a line longer: whatever passes arrives half a round trip later."""
import contextlib
import queue
import socket
import threading
import time

PIECE = 1024 * 1024
MOST_ON_THE_WAY = 64  # pieces, so that a fast sender does not fill the memory


class DelayProxy:
    """Forwards 127.0.0.1:`port` to a port, `round_trip` seconds away."""

    def __init__(self, target_port, round_trip):
        self.target = target_port
        self.delay = round_trip / 2
        self.connections = 0
        self.listener = socket.create_server(("127.0.0.1", 0))
        self.port = self.listener.getsockname()[1]

    def __enter__(self):
        threading.Thread(target=self.accept, daemon=True).start()
        return self

    def __exit__(self, *unused):
        self.listener.shutdown(socket.SHUT_RDWR)
        self.listener.close()

    def accept(self):
        with contextlib.suppress(OSError):
            while True:
                client, _ = self.listener.accept()
                self.connections += 1
                server = socket.create_connection(("127.0.0.1", self.target))
                for one, other in ((client, server), (server, client)):
                    one.setsockopt(socket.IPPROTO_TCP, socket.TCP_NODELAY, 1)
                    way = queue.Queue(MOST_ON_THE_WAY)
                    for step, end in ((self.take, one), (self.give, other)):
                        threading.Thread(target=step, args=(end, way), daemon=True).start()

    def take(self, source, way):
        data = b"something"
        while data:
            try:
                data = source.recv(PIECE)
            except OSError:
                data = b""
            way.put((time.monotonic() + self.delay, data))

    def give(self, target, way):
        data = b"something"
        while data:
            due, data = way.get()
            time.sleep(max(0.0, due - time.monotonic()))
            with contextlib.suppress(OSError):
                if data:
                    target.sendall(data)
                else:
                    target.shutdown(socket.SHUT_WR)
