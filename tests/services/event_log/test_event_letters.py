"""Changes of tasks whose events go to recorder-logd, while it is killed, stopped, and busy: each
change that was answered as done has its event once."""
import array
import json
import os
import random
import signal
import socket
import sqlite3
import subprocess
import time
from collections import Counter
from concurrent.futures import ThreadPoolExecutor
from contextlib import closing, contextmanager
from threading import Event

import pytest

from cgi_program import CgiProgram
from event_ids import TASK_CREATED, TASK_DELETED
from loopback import request_json
from other_user import NOBODY, as_user
from sample_task import NEVER, task_body
from service_process import end, ended_afterwards, running, start_service

PORT = 10150
AT_ONCE = 8


@pytest.fixture
def program(tmp_path):
    """Each change is told the daemon, too."""
    made = CgiProgram(tmp_path / "state")
    with running("recording-backupd", made):
        yield made


@pytest.fixture
def address(program):
    return str(program.path / "events.socket")


def created(program, name):
    """Whether the task was created, as the client is told."""
    return json.loads(program.create(task_body(**NEVER | {"taskName": name})).text)["ret_code"] == 0


def create_all(program, names):
    """All of them can be: whatever the log service does."""
    with ThreadPoolExecutor(AT_ONCE) as pool:
        assert all(pool.map(lambda name: created(program, name), names))


def delete(program, task_id):
    program.request("DELETE", f"/task/{task_id}", query=f"isStop=1&sid={program.sid}")


def stored(program, event_id):
    """How many events of this identifier each task has."""
    with closing(sqlite3.connect(program.path / "events.db", timeout=60)) as log:
        rows = log.execute("SELECT arguments FROM event WHERE event_id = ?", (event_id,)).fetchall()
    return Counter(json.loads(arguments)[1] for arguments, in rows)


def expect_one_event_each(program, names):
    assert stored(program, TASK_CREATED) == Counter(names)
    assert Counter(task["taskName"] for task in program.stored_tasks()) == Counter(names)


def names_from(first, count):
    return [f"task {number}" for number in range(first, first + count)]


def can_be_asked():
    return request_json(PORT, "GET", "/logs/logs")[0] == 200


def test_hundreds_of_changes_at_once_have_their_events(program):
    names = names_from(0, 400)
    with running("recorder-logd", program):
        create_all(program, names)
        expect_one_event_each(program, names)
        with ThreadPoolExecutor(AT_ONCE) as pool:
            list(pool.map(lambda task: delete(program, task), range(1, 401)))
        assert stored(program, TASK_DELETED) == Counter(names)


def test_an_event_goes_to_the_service_and_not_to_the_database(program):
    """Else the tests of this file would show nothing."""
    with running("recorder-logd", program) as service:
        assert created(program, "before")
        before = written(service)
        assert created(program, "a")
        assert written(service) > before
        expect_one_event_each(program, ["before", "a"])


def written(process):
    """How many bytes, to whatever files."""
    with open(f"/proc/{process.pid}/io") as counters:
        return next(int(line.split()[1]) for line in counters if line.startswith("wchar"))


def test_changes_while_the_service_is_killed_again_and_again(program):
    """At whatever moment: with letters in its queue, in its transaction, before its answers."""
    chance = random.Random(1)
    over = Event()

    def kill_again_and_again():
        kills = 0
        while not over.is_set():
            service = start_service("recorder-logd", program)
            time.sleep(chance.uniform(0, 0.06))
            end(service, signal.SIGKILL)
            kills += 1
        return kills

    names = names_from(0, 600)
    with ThreadPoolExecutor(1) as killer:
        kills = killer.submit(kill_again_and_again)
        try:
            create_all(program, names)
        finally:
            over.set()
    print(f"killed {kills.result()} times")
    assert kills.result() > 5
    expect_one_event_each(program, names)
    with running("recorder-logd", program):  # over what the last one has left
        create_all(program, ["behind"])
    expect_one_event_each(program, [*names, "behind"])


@contextmanager
def stopped(process):
    os.kill(process.pid, signal.SIGSTOP)
    try:
        yield
    finally:
        os.kill(process.pid, signal.SIGCONT)


def test_changes_while_the_service_is_stopped(program):
    names = names_from(0, 2 * AT_ONCE)
    with running("recorder-logd", program) as service:
        with stopped(service):
            create_all(program, names)
            expect_one_event_each(program, names)
        create_all(program, ["behind"])  # behind all that has waited in its queue
        assert can_be_asked()
        expect_one_event_each(program, [*names, "behind"])


def test_changes_while_the_service_is_stopped_now_and_then(program):
    chance = random.Random(2)
    over = Event()

    def stop_now_and_then(service):
        while not over.is_set():
            with stopped(service):
                time.sleep(chance.uniform(0, 0.1))
            time.sleep(chance.uniform(0, 0.03))

    names = names_from(0, 200)
    with running("recorder-logd", program) as service, ThreadPoolExecutor(1) as stopper:
        stopping = stopper.submit(stop_now_and_then, service)
        try:
            create_all(program, names)
        finally:
            over.set()
        stopping.result()
        expect_one_event_each(program, names)


def test_changes_while_somebody_holds_the_event_database_now_and_then(program):
    over = Event()

    def hold_now_and_then():
        with closing(sqlite3.connect(program.path / "events.db", timeout=60,
                                     isolation_level=None)) as log:
            while not over.is_set():
                log.execute("BEGIN IMMEDIATE")
                time.sleep(0.6)  # longer than the service waits
                log.execute("ROLLBACK")
                time.sleep(0.3)  # a request that waits looks every 100 ms, and gives up in the end

    names = names_from(0, 60)
    with running("recorder-logd", program), ThreadPoolExecutor(1) as holder:
        holding = holder.submit(hold_now_and_then)
        try:
            create_all(program, names)
        finally:
            over.set()
        holding.result()
        expect_one_event_each(program, names)


def letter(task):
    return json.dumps({"time_ms": int(time.time() * 1000), "event_id": TASK_CREATED, "channel": -1,
                       "user": "admin", "ip": "", "arguments": ["Recording Backup", task]}).encode()


def send(address, text):
    """The answer, or why the letter was not taken."""
    ours, theirs = socket.socketpair(socket.AF_UNIX, socket.SOCK_SEQPACKET)
    with ours, theirs, socket.socket(socket.AF_UNIX, socket.SOCK_DGRAM) as sender:
        try:
            sender.sendmsg([text], [(socket.SOL_SOCKET, socket.SCM_RIGHTS,
                                     array.array("i", [theirs.fileno()]))], 0, address)
        except OSError as error:
            return type(error).__name__
        theirs.close()
        answer = ours.recv(64)
        assert ours.recv(64) == b""  # the service has let go of it
        return answer


def test_no_other_user_can_use_the_socket(program, address):
    """Nor where folders above it are open."""
    with running("recorder-logd", program):
        assert send(address, letter("a")) == b"stored"
        assert as_user(NOBODY, lambda: send(address, letter("b"))) == "PermissionError"
        for folder in [program.path, *program.path.parents]:
            if folder.stat().st_uid == os.getuid():
                folder.chmod(0o755)
        assert as_user(NOBODY, lambda: os.stat(address).st_mode) & 0o777 == 0o600
        assert as_user(NOBODY, lambda: send(address, letter("c"))) == "PermissionError"
    assert stored(program, TASK_CREATED) == {"a": 1}


def test_a_killed_service_leaves_a_socket_that_the_next_one_replaces(program, address):
    end(start_service("recorder-logd", program), signal.SIGKILL)
    assert os.path.exists(address)
    assert send(address, letter("a")) == "ConnectionRefusedError"
    with running("recorder-logd", program):
        assert send(address, letter("b")) == b"stored"
    assert not os.path.exists(address)


def test_a_flood_of_garbage_ends_neither_the_service_nor_its_replies(program, address):
    over = Event()

    def flood():
        with socket.socket(socket.AF_UNIX, socket.SOCK_DGRAM) as sender:
            sender.connect(address)
            while not over.is_set():
                sender.send(b"garbage")

    names = names_from(0, 50)
    with running("recorder-logd", program), ThreadPoolExecutor(2) as pool:
        floods = [pool.submit(flood) for _ in range(2)]
        try:
            create_all(program, names)
            assert can_be_asked()
        finally:
            over.set()
        assert [one.result() for one in floods] == [None, None]
        expect_one_event_each(program, names)


def test_descriptors_beside_letters_do_not_use_up_the_services(program, address):
    with running("recorder-logd", program) as service:
        assert send(address, letter("before")) == b"stored"

        def open_ones():
            return len(os.listdir(f"/proc/{service.pid}/fd"))

        before = open_ones()
        with open(os.devnull) as nothing, \
                socket.socket(socket.AF_UNIX, socket.SOCK_DGRAM) as sender:
            for count in [1, 2, 3, 253] * 200:
                sender.sendmsg([letter("odd") if count > 1 else b"garbage"],
                               [(socket.SOL_SOCKET, socket.SCM_RIGHTS,
                                 array.array("i", [nothing.fileno()] * count))], 0, address)
        assert send(address, letter("behind")) == b"stored"
        assert open_ones() < before + 10  # it opens some of its own meanwhile
    assert stored(program, TASK_CREATED) == {"before": 1, "behind": 1}


def test_the_service_answers_where_it_can_take_no_events(program, address):
    os.mkdir(address)
    service = start_service("recorder-logd", program, stderr=subprocess.PIPE)
    with ended_afterwards(service):
        create_all(program, ["a"])
        assert can_be_asked()
        service.terminate()
        assert service.stderr.read() == f"cannot take events on {address}: Address already in use\n"
    expect_one_event_each(program, ["a"])
