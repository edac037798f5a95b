"""More than a hundred kill -9 of the daemon at random moments: each problem is told once."""
from alert_kills import AlertScene, alerts
from backup_house import House

KILLS = 120


def test_over_a_hundred_kills_lose_and_double_no_alert(tmp_path, chance):
    with House(tmp_path, channels=1) as house:
        scene = AlertScene(house, chance)
        for _ in range(KILLS):
            scene.live_a_while_and_be_killed()
        scene.check_the_end()
        print(f"{KILLS} kills, {len(alerts(house))} alerts")
