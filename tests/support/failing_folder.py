"""Folders whose listing fails, as on a disk that breaks, or hangs, as of a server that is gone."""
import ctypes
import errno
import os
import stat
import struct
import threading
from contextlib import contextmanager, suppress

LIBRARY = ctypes.CDLL(None, use_errno=True)
MNT_DETACH = 2
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


def mount(path):
    """Gives the device by which the folder's file system is to be served."""
    device = os.open(DEVICE, os.O_RDWR)
    options = f"fd={device},rootmode=40000,user_id=0,group_id=0".encode()
    system(LIBRARY.mount(b"failing", os.fsencode(path), b"fuse", 0, options), "mount")
    return device


def unmount(path):
    """Whoever has something of it open keeps that."""
    system(LIBRARY.umount2(os.fsencode(path), MNT_DETACH), "umount")


@contextmanager
def failing_folder(path):
    """For as long as the context lasts the folder is one that cannot be listed: EIO."""
    device = mount(path)
    server = threading.Thread(target=answer, args=(device,))
    server.start()
    try:
        yield
    finally:
        unmount(path)
        server.join()
        os.close(device)


@contextmanager
def hanging_folder(path):
    """For as long as the context lasts whoever looks into the folder waits."""
    device = mount(path)
    try:
        yield
    finally:
        unmount(path)
        os.close(device)
