"""More than a hundred kill -9 of the daemon at random moments: each problem is told once."""
from alert_kills import AlertScene, alerts
from backup_house import House

KILLS = 120


def test_over_a_hundred_kills_lose_and_double_no_alert(tmp_path, chance):
    with House(tmp_path, channels=1) as house:
        scene = AlertScene(house, chance)
        scene.live_and_be_killed(KILLS)
        scene.check_the_end()
        print(f"{KILLS} kills, {len(alerts(house))} alerts")
