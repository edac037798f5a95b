"""Which logins a run can do, and how soon and in which words it fails for those that it cannot."""
import subprocess

import pytest

from backup_house import FAILED, MIB, RUNNING, SUCCESS, House, noise
from event_ids import CONNECTION_LOST, RUN_FAILED
from fault_proxy import FaultProxy
from name_server import NAME, name_server
from request_proxy import RequestProxy
from samba_server import USER
from waiting import wait_until


@pytest.fixture(name="house")
def with_one_recording(tmp_path):
    """Accounts of its server may be locked and have a term; guests are taken for nobody."""
    settings = {"passdb backend": f"tdbsam:{tmp_path}/accounts.tdb", "map to guest": "bad user"}
    with House(tmp_path, settings=settings) as house:
        house.samba.shares["guests"] = {"path": house.share, "read only": "no", "guest ok": "yes",
                                        "force user": "root"}
        house.samba.shares["others"] = {"path": house.share, "valid users": "nobody"}
        house.samba.reload()
        house.record(0, 0, "01-00-00.mp4", b"x")
        yield house


def fails_at_once(house, words, **changes):
    task_id = house.create(**changes)
    house.run(task_id, FAILED)
    assert words in house.last_event(RUN_FAILED)[0]
    assert words in house.progress(task_id)[0]["message"]
    assert house.last_event(CONNECTION_LOST) is None


@pytest.mark.parametrize("user", ["guest", "anybody", "DOMAIN\\anybody"])
def test_empty_password_gets_a_guest_in(house, user):
    house.run(house.create(username=user, password="", destPath="/guests/recorder"))
    assert house.shared() == house.sources()


@pytest.mark.parametrize("changes, words", [
    ({"password": "wrong"}, f'refuses user "{USER}" or the password: The attempted logon'),
    ({"password": ""}, f'refuses user "{USER}" or the password: The attempted logon'),
    ({"username": "no one", "password": ""}, 'does not give this share to user "no one"'),
    ({"destPath": "/others/folder"}, f'does not give this share to user "{USER}"'),
    ({"destPath": "/nothing/folder"}, "/nothing: there is no such share: No such file"),
])
def test_login_or_share_that_cannot_be_had_fails_at_once(house, changes, words):
    fails_at_once(house, words, **changes)


def test_login_that_the_library_would_cut_is_not_tried(house):
    task_id = house.create()
    house.recorder.ctl("task", "set", task_id, "password=-", given="x" * 256)
    house.run(task_id, FAILED)
    assert "password of more than 255 bytes cannot be used" in house.last_event(RUN_FAILED)[0]


def set_account(house, *words):
    subprocess.run(["/usr/bin/pdbedit", "-s", house.samba.config, *words], check=True,
                   stdout=subprocess.DEVNULL)


@pytest.mark.parametrize("change, words", [
    (["-u", USER, "-r", "-c", "[D]"], "account is currently disabled"),
    (["-u", USER, "-r", "-c", "[L]"], "The user account has been automatically locked"),
    (["-u", USER, "-r", "--kickoff-time=1000"], "user account has expired"),
])
def test_account_that_may_not_be_used_fails_at_once_in_the_servers_words(house, change, words):
    set_account(house, *change)
    fails_at_once(house, words)


def test_name_that_nobody_knows_fails_at_once_and_a_known_one_is_found(house):
    with name_server():
        for name in ("other.example", "999.1.1.1", "no name"):
            fails_at_once(house, "there is no such server: Name or service not known",
                          serverIP=name)
        house.run(house.create(serverIP=NAME))


def test_name_that_is_lost_in_the_middle_is_looked_up_again(house):
    house.record(0, 0, "02-00-00.mp4", noise(24 * MIB, "long"))
    with name_server() as names, FaultProxy(house.samba.port) as proxy:
        proxy.crawl_after(4 * MIB)
        task_id = house.create(serverIP=NAME, port=proxy.port)
        house.force(task_id)
        wait_until(proxy.crawls, "the start")
        names.knows_it = False
        proxy.cut()
        wait_until(lambda: "there is no such server" in house.progress(task_id)[0]["message"],
                   "the loss of the name")
        assert house.status(task_id) == RUNNING
        names.knows_it = True
        proxy.rate = None
        house.wait_for_end(task_id)
        assert house.status(task_id) == SUCCESS
        assert house.shared() == house.sources()


class LoginCut(RequestProxy):
    """Cuts the connection at so many requests to log in, before the server hears of the last."""

    def __init__(self, target_port, requests):
        super().__init__(target_port)
        self.left = requests

    def watch(self, source, data):
        super().watch(source, data)
        if self.left and self.requests["session setup"] == self.left:
            self.left = 0
            self.cut()


@pytest.mark.parametrize("requests", [1, 2])
def test_connection_that_is_lost_during_the_login_is_made_anew(house, requests):
    with LoginCut(house.samba.port, requests) as proxy:
        house.run(house.create(port=proxy.port))
        assert "lost during the login" in house.last_event(CONNECTION_LOST)[0]
        assert house.shared() == house.sources()


def test_server_that_is_down_is_tried_again(house):
    house.samba.stop()
    task_id = house.create()
    house.force(task_id)
    wait_until(lambda: house.last_event(CONNECTION_LOST), "the loss")
    assert "Connection refused" in house.last_event(CONNECTION_LOST)[0]
    house.samba.start()
    house.wait_for_end(task_id)
    assert house.status(task_id) == SUCCESS


def test_server_that_knows_only_smb_1_is_told_what_it_lacks(house):
    house.samba.stop()
    house.samba.settings |= {"server min protocol": "NT1", "server max protocol": "NT1"}
    house.samba.start()
    house.force(house.create())
    wait_until(lambda: house.last_event(CONNECTION_LOST), "the loss")
    assert "a server must know SMB 2 or 3" in house.last_event(CONNECTION_LOST)[0]
