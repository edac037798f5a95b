"""The whole road over HTTP: create, start, copy to a real share, compare, start again."""
from backup_house import MIB, noise


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
