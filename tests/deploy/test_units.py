"""How much of the machine each unit leaves open, by systemd's own reckoning."""
import re
import subprocess

import pytest

from places import BUILD, SOURCE
from waiting import SECONDS

# The exposure that a unit may have at most: 10 is a service without any fence.
MOST = [("recorder-logd", 1.5), ("recording-backupd", 2.0), ("recorder-httpd", 3.7),
        ("recorder-backup-state", 1.5)]


@pytest.fixture(scope="module", name="units")
def installed(tmp_path_factory):
    prefix = tmp_path_factory.mktemp("prefix")
    subprocess.run(["cmake", "--install", BUILD, "--prefix", prefix,
                    "--component", "Unspecified"], check=True, timeout=SECONDS,
                   stdout=subprocess.DEVNULL)
    return prefix / "lib/systemd/system"


def settings(unit):
    """Name and value of every setting, lines joined as systemd joins them."""
    text = re.sub(r"\\\n", " ", unit.read_text())
    return dict(re.findall(r"^(\w+)=(.*)$", text, re.MULTILINE))


@pytest.mark.parametrize("name, most", MOST)
def test_exposure_is_not_above(units, name, most):
    said = subprocess.run(["systemd-analyze", "security", "--offline=yes", "--no-pager",
                           units / f"{name}.service"], capture_output=True, text=True,
                          timeout=SECONDS, check=False).stdout
    assert float(re.search(r"Overall exposure level .*: ([\d.]+) ", said)[1]) <= most, said


def test_the_web_servers_unit_lets_the_program_become_root_and_mount(units):
    """systemd denies new privileges where it filters calls for a service without this right."""
    unit = settings(units / "recorder-httpd.service")
    assert {"User", "DynamicUser", "NoNewPrivileges", "PrivateUsers"}.isdisjoint(unit)
    assert {"CAP_SYS_ADMIN", "CAP_SETUID", "CAP_SETGID"} <= set(
        unit["CapabilityBoundingSet"].split())
    assert unit["RestrictNamespaces"] == "mnt"
    assert not {"@mount", "@privileged", "@setuid"} & set(unit["SystemCallFilter"].split())


@pytest.mark.parametrize("name", ["recording-backupd", "recorder-httpd"])
def test_a_process_without_memory_dies_alone(units, name):
    """By default systemd ends the whole service when the kernel has ended one process of it."""
    assert settings(units / f"{name}.service")["OOMPolicy"] == "continue"


def test_a_place_that_cannot_be_made_does_not_keep_the_web_page_down(units):
    """A /storage that is mounted read-only, for example."""
    assert re.search(r"^ExecStartPre=-\S*/systemd-tmpfiles ",
                     (units / "recorder-httpd.service").read_text(), re.MULTILINE)


def test_the_web_page_waits_for_the_services_ports_and_not_for_their_readiness(units):
    unit = settings(units / "recorder-httpd.service")
    assert {"recorder-logd.socket", "recording-backupd.socket"} <= set(unit["After"].split())
    assert not {"recorder-logd.service", "recording-backupd.service"} & set(unit["After"].split())
    assert unit["Wants"] == "recorder-logd.service recording-backupd.service"


def test_what_the_web_servers_main_process_leaves_goes_at_once(units):
    """By default systemd asks it to go, for 90 seconds, before it starts the next one."""
    assert settings(units / "recorder-httpd.service")["KillMode"] == "mixed"


@pytest.mark.parametrize("name", ["recorder-logd", "recording-backupd"])
def test_a_service_that_cannot_be_helped_by_a_restart_gets_none(units, name):
    unit = settings(units / f"{name}.service")
    assert (unit["Restart"], unit["RestartPreventExitStatus"]) == ("on-failure", "78")


@pytest.mark.parametrize("name", ["recorder-logd", "recording-backupd"])
def test_a_service_that_hangs_is_killed_and_leaves_no_passwords_in_a_dump(units, name):
    """By default the watchdog's signal has the kernel write out all of a process's memory. systemd
    is told of life over a socket, and starts anew what it has killed."""
    unit = settings(units / f"{name}.service")
    assert (unit["Type"], unit["WatchdogSec"], unit["WatchdogSignal"], unit["LimitCORE"]) == (
        "notify", "5min", "SIGKILL", "0")
    assert "AF_UNIX" in unit["RestrictAddressFamilies"].split()
    assert unit["Restart"] == "on-failure"


@pytest.mark.parametrize("name", ["recorder-logd", "recording-backupd"])
def test_no_number_of_starts_makes_systemd_give_up_a_services_ports(units, name):
    """By default it does after five in ten seconds, or when a socket has started it twenty times in
    two."""
    assert settings(units / f"{name}.service")["StartLimitIntervalSec"] == "0"
    assert settings(units / f"{name}.socket")["TriggerLimitIntervalSec"] == "0"


def test_systemd_holds_all_ports_of_the_daemon(units):
    listening = re.findall(r"^ListenStream=127.0.0.1:(\d+)$",
                           (units / "recording-backupd.socket").read_text(), re.MULTILINE)
    assert listening == ["10205", "10141", "10206"]


def test_what_the_web_server_was_told_to_listen_on_does_not_keep_it_from_starting(units):
    unit = settings(units / "recorder-httpd.service")
    assert re.fullmatch(r"\S+/recorder-listen ended \S+/recorderctl 8080", unit["ExecStopPost"])


def test_only_what_has_changed_has_the_web_server_reload(units):
    unit = settings(units / "recorder-web.service")
    assert re.fullmatch(r"\S+/recorder-listen take-up \S+/systemctl try-reload-or-restart "
                        r"recorder-httpd.service", re.sub(r"\s+", " ", unit["ExecStart"]))


def test_the_web_server_has_room_for_all_its_threads_and_programs_twice(units):
    """The second time for those that end their requests after a reload."""
    given = dict(re.findall(r"^ *(MaxRequestWorkers|H2MaxWorkers) (\d+)$",
                            (SOURCE / "deploy/apache/recorder.conf").read_text(), re.MULTILINE))
    requests = int(given["MaxRequestWorkers"]) + int(given["H2MaxWorkers"])
    assert int(settings(units / "recorder-httpd.service")["TasksMax"]) > 2 * 2 * requests


def test_the_web_server_is_not_started_for_ever(units):
    """Its starts come so soon after each other that the default limit is never reached."""
    unit = settings(units / "recorder-httpd.service")
    assert (unit["StartLimitIntervalSec"], unit["StartLimitBurst"]) == ("2min", "10")
    assert int(unit["RestartSec"]) * int(unit["StartLimitBurst"]) < 60


def test_the_state_is_copied_each_day_and_seven_copies_stay(units):
    timer, unit = (settings(units / f"recorder-backup-state.{kind}")
                   for kind in ("timer", "service"))
    assert (timer["OnCalendar"], timer["Persistent"]) == ("daily", "yes")
    assert unit["ExecStart"].endswith(
        "recorderctl state backup --keep 7 /var/lib/recorder/backups")


def test_the_daemon_may_open_recordings(units):
    """By openat2, whose flags no filter of calls sees: RestrictSUIDSGID= refuses it altogether."""
    assert "RestrictSUIDSGID" not in settings(units / "recording-backupd.service")


def test_workers_may_call_what_they_fence_themselves_in_with(units):
    """Their own fence makes no noise where these are refused: it would just not stand."""
    unit = settings(units / "recording-backupd.service")
    assert {"capset", "landlock_create_ruleset", "landlock_add_rule", "landlock_restrict_self",
            "seccomp"} <= set(unit["SystemCallFilter"].split())
