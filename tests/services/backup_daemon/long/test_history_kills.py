"""More than a hundred kill -9 of the daemon at random moments: the history stays true."""
from backup_house import House
from fault_proxy import FaultProxy
from run_kills import KillScene

KILLS = 120


def test_over_a_hundred_kills_leave_a_true_history(tmp_path, chance):
    with House(tmp_path, channels=1) as house, FaultProxy(house.samba.port) as proxy:
        scene = KillScene(house, proxy, chance)
        for _ in range(KILLS):
            scene.live_a_while_and_be_killed()
        scene.check_the_end()
        print(f"{KILLS} kills, {len(scene.rows())} runs")
