"""Starts the real services and waits for the line with which each announces itself."""
import os
import signal
import subprocess
from contextlib import contextmanager

from places import BUILD, PROGRAMS, SOURCE
from waiting import SECONDS


def start(command, announcement, **options):
    """The process of a program whose first line begins with the announcement."""
    process = subprocess.Popen(command, stdout=subprocess.PIPE, text=True, **options)
    line = process.stdout.readline()
    assert line.startswith(announcement), line + process.communicate(timeout=SECONDS)[0]
    return process


def end(process, number=signal.SIGTERM):
    """Sends the signal; gives the exit status."""
    process.send_signal(number)
    process.communicate(timeout=SECONDS)
    return process.returncode


def start_service(program, state, **options):
    return start([PROGRAMS / program], program + ": listening", env=state.environment, **options)


def with_sockets(program, sockets):
    """The command and the options that start a service with these as descriptors 3, 4 ... as
    systemd passes them."""
    def arrange():
        copies = [os.dup(one.fileno()) for one in sockets]
        for at, copy in enumerate(copies):
            os.dup2(copy, 3 + at)

    script = f'LISTEN_PID=$$ LISTEN_FDS={len(sockets)} exec "$0"'
    return (["sh", "-c", script, PROGRAMS / program],
            {"preexec_fn": arrange, "close_fds": False})


def start_recorder(port, *words, source=SOURCE, **options):
    """All services and the web server on this port, by scripts/serve of a source tree."""
    command = [source / "scripts/serve", "--port", str(port), "--build", BUILD, *words]
    return start(command, f"ready on http://127.0.0.1:{port}\n", stderr=subprocess.STDOUT,
                 **options)


@contextmanager
def ended_afterwards(process):
    try:
        yield process
    finally:
        if process.poll() is None:
            end(process)


@contextmanager
def running(program, state, **options):
    """A service that must outlive the context and end when it is asked to."""
    with ended_afterwards(start_service(program, state, **options)) as process:
        yield process
        assert process.poll() is None, "the service ended by itself"
        assert end(process) == 0
