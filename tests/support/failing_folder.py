"""A folder that can be opened and whose listing fails, as on a disk that breaks."""
import ctypes
import errno
import os
import stat
import struct
import threading
from contextlib import contextmanager, suppress

DEVICE = "/dev/fuse"
REQUEST = struct.Struct("=IIQQIIII")  # length, operation, number, node, user, group, process, -
REPLY = struct.Struct("=IiQ")  # length, error, number
FORGET, GETATTR, INIT, OPENDIR, READDIR, RELEASEDIR = 2, 3, 26, 27, 28, 29
MOST = 1024 * 1024

# The protocol's version 7.22, whose reply to INIT is short; and the attributes of a folder.
VERSION = struct.pack("=IIIIHHI", 7, 22, 0, 0, 1, 1, 4096)
ATTRIBUTES = struct.pack("=QII6Q10I", 0, 0, 0, 1, 0, 0, 0, 0, 0, 0, 0, 0,
                         stat.S_IFDIR | 0o755, 2, 0, 0, 0, 4096, 0)
ANSWERS = {INIT: VERSION, GETATTR: ATTRIBUTES, OPENDIR: bytes(16), RELEASEDIR: b""}


def answer(device):
    """Serves the folder until it is unmounted."""
    with suppress(OSError):
        while True:
            _, operation, number, *_ = REQUEST.unpack_from(os.read(device, MOST))
            if operation == FORGET:
                continue
            body = ANSWERS.get(operation, b"")
            error = {READDIR: -errno.EIO}.get(operation,
                                              0 if operation in ANSWERS else -errno.ENOSYS)
            os.write(device, REPLY.pack(REPLY.size + len(body), error, number) + body)


def system(result, what):
    assert result == 0, f"{what}: {os.strerror(ctypes.get_errno())}"


@contextmanager
def failing_folder(path):
    """For as long as the context lasts the folder is one that cannot be listed: EIO."""
    library = ctypes.CDLL(None, use_errno=True)
    device = os.open(DEVICE, os.O_RDWR)
    options = f"fd={device},rootmode=40000,user_id=0,group_id=0".encode()
    place = os.fsencode(path)
    system(library.mount(b"failing", place, b"fuse", 0, options), "mount")
    server = threading.Thread(target=answer, args=(device,))
    server.start()
    try:
        yield
    finally:
        system(library.umount2(place, 2), "umount")  # MNT_DETACH: whoever has it open keeps it
        server.join()
        os.close(device)
