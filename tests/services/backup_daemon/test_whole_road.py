"""The whole road over HTTP: create, start, copy to a real share, compare, start again."""
import pytest

from backup_house import MIB, House, noise
from samba_server import USER


def fill(house):
    for channel in range(3):
        for days_ago in range(3):
            seed = f"{channel} {days_ago}"
            house.record(channel, days_ago, "01-02-03.mp4", noise(3 * MIB + 5, seed))
            house.record(channel, days_ago, "23-59-59.mp4", noise(70_001, seed + "b"))
            house.record(channel, days_ago, "04-05-06.avi", noise(11, seed + "c"), alarm=True)


def test_created_task_that_runs_at_once_copies_everything(house):
    fill(house)
    task_id = house.create(backupImmediately=True)
    house.wait_for_end(task_id)
    assert house.shared() == house.sources()
    assert len(house.copied()) == 27
    house.check_records()


@pytest.mark.parametrize("username", [f"SOMEWHERE\\{USER}", f"SOMEWHERE\\\\{USER}"])
def test_account_with_a_domain_is_let_in_by_its_name_and_told_its_domain(tmp_path, username):
    with House(tmp_path, settings={"log level": "auth_audit:3"}) as house:
        house.record(0, 0, "01-02-03.mp4", noise(MIB, "domain"))
        task_id = house.create(username=username)
        assert house.recorder.list_tasks()[-1]["username"] == username
        house.run(task_id)
        assert house.shared() == house.sources()
        assert f"[SOMEWHERE]\\[{USER}]" in house.samba.log()
