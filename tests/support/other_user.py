"""Does things as another user, in a process of its own, for tests that run as root."""
import os
import pickle
import signal
from contextlib import contextmanager

NOBODY = 65534


def become(user):
    os.setgroups([])
    os.setresgid(user, user, user)
    os.setresuid(user, user, user)


def start_as(user, function):
    """The process that calls the function as that user, and a pipe with what it returns."""
    ours, theirs = os.pipe()
    child = os.fork()
    if child:
        os.close(theirs)
        return child, ours
    try:
        become(user)
        os.write(theirs, pickle.dumps(function()))
    finally:
        os._exit(0)


def as_user(user, function):
    """What the function returns when that user calls it; it must be small."""
    child, pipe = start_as(user, function)
    with open(pipe, "rb") as result:
        data = result.read()
    os.waitpid(child, 0)
    return pickle.loads(data)


@contextmanager
def meanwhile_as(user, function):
    """While that user's process calls the function."""
    child, pipe = start_as(user, function)
    try:
        yield child
    finally:
        os.close(pipe)
        os.kill(child, signal.SIGKILL)
        os.waitpid(child, 0)
