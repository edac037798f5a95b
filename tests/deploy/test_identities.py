"""As whom scripts/serve starts the services, and what the kernel lets them do."""
import os
import shutil
from pathlib import Path

import pytest

from loopback import free_port, request
from places import LOGS, PAGE, STATE
from processes import is_running, processes, stat_fields
from service_process import ended_afterwards, start_recorder
from waiting import wait_until

SERVICES = ("recorder-logd", "recording-backupd")
PROGRAMS = PAGE.parents[2] / "libexec/recorder"
DAC_READ_SEARCH = 1 << 2
OWNER = (4242, 4343)


def process_of(service):
    """By its whole command line: that of what begins to keep its log ends with its name, too."""
    return next(pid for pid, command in processes() if command == bytes(PROGRAMS / service))


def status_of(service):
    lines = Path(f"/proc/{process_of(service)}/status").read_text().splitlines()
    return dict(line.split(":\t", 1) for line in lines)


def user_of(pid):
    """None of a process that is gone: the web server starts some only to end them."""
    try:
        return Path(f"/proc/{pid}").stat().st_uid
    except FileNotFoundError:
        return None


def session_of(pid):
    return next(map(int, stat_fields(pid)[3:4]), None)


def identity(status):
    return {name: set(status[name].split()) for name in ("Uid", "Gid")}


def capabilities(status):
    return {name: int(status[name], 16) for name in ("CapPrm", "CapEff", "CapBnd")}


def only(number):
    return {"CapPrm": number, "CapEff": number, "CapBnd": number}


@pytest.fixture(name="recorder", params=[(0, 0), OWNER], ids=["of root", "of another user"])
def running_recorder(request):
    """Its state folder's owner, while it runs on that folder."""
    shutil.chown(STATE, *request.param)
    try:
        with ended_afterwards(start_recorder(free_port())) as process:
            yield request.param, process
    finally:
        shutil.chown(STATE, 0, 0)


def test_services_have_the_owners_identity_and_what_they_need(recorder):
    (user, group), _ = recorder
    for service, wanted in zip(SERVICES, (0, DAC_READ_SEARCH)):
        status = status_of(service)
        assert identity(status) == {"Uid": {str(user)}, "Gid": {str(group)}}
        assert capabilities(status) == only(wanted)
        assert status["NoNewPrivs"] == "1"
        assert status["Groups"].strip() == ""


def test_services_work_with_it(recorder):
    assert request(10150, "GET", "/logs/logs").json["code"] == 0
    answer = request(10205, "GET", "/databackupService/notify?act=get_waitingTask_seq")
    assert answer.json == {"retCode": 0, "watinTask_info": []}


def test_services_end_with_the_script_however_it_ends(recorder):
    _, process = recorder
    services = [process_of(service) for service in SERVICES]
    process.kill()
    wait_until(lambda: not any(is_running(pid) for pid in services), "the services to end")


def test_nothing_of_another_users_shares_the_terminal_of_whoever_starts_it():
    shutil.chown(STATE, *OWNER)
    try:
        with ended_afterwards(start_recorder(free_port())) as process:
            wait_until(lambda: LOGS.joinpath("requests").exists(), "the web server's logs")
            theirs = [pid for pid, _ in processes() if user_of(pid) not in (0, None)]
            assert len(theirs) > len(SERVICES)
            assert os.getsid(process.pid) not in map(session_of, theirs)
    finally:
        shutil.chown(STATE, 0, 0)


@pytest.fixture(name="planted")
def folder_of_another_user():
    """Has a link to a place of its own for each log, under the log's name with this ending."""
    places = [STATE / f"{name}.elsewhere" for name in (*SERVICES, "httpd")]
    shutil.rmtree(LOGS, ignore_errors=True)
    LOGS.mkdir()

    def plant(ending):
        for place in places:
            (LOGS / place.stem).with_suffix(ending).symlink_to(place)
        shutil.chown(STATE, *OWNER)
        return places

    yield plant
    shutil.chown(STATE, 0, 0)
    shutil.rmtree(LOGS)
    for place in places:
        place.unlink(missing_ok=True)


def test_a_log_whose_owner_has_put_a_link_there_is_opened_with_the_owners_rights(planted):
    places = planted("")
    with ended_afterwards(start_recorder(free_port())):
        wait_until(lambda: all(place.exists() for place in places), "the logs")
        assert {place.stat().st_uid for place in places} == {OWNER[0]}


def test_a_link_in_place_of_the_newest_log_leads_nowhere(planted):
    places = planted(".log")
    logs = [LOGS / f"{place.stem}.log" for place in places]
    with ended_afterwards(start_recorder(free_port())):
        wait_until(lambda: all(log.is_file() and not log.is_symlink() for log in logs), "the logs")
    assert {log.stat().st_uid for log in logs} == {OWNER[0]}
    assert not any(place.exists() for place in places)
