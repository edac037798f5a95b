"""What befalls an installed recorder: killed services, server tests, a newer database, no power."""
import re

import pytest

from guest_recorder import SHARE_PASSWORD, SHARE_USER
from page import follow
from replies import COMMAND_FAILED, PERMISSION_DENIED

CREDENTIALS = ".recording_backup_mnt_info"

FAILED_TEST = "When a server test fails"

# Kills the web server's main process, and waits until the program answers as before.
KILL_MAIN_PROCESS = """
kill -9 $(systemctl show --property MainPID --value recorder-httpd)
until [ "$(curl -s -o /dev/null -w '%{http_code}' \
           http://127.0.0.1:8080/cgi-bin/recording_backup.cgi/fuse)" = 401 ]; do sleep 0.1; done
journalctl --sync
"""

WAITED_FOR_IN_VAIN = "journalctl --unit recorder-httpd | grep 'timed out'"

PROCESSES = ("cat /sys/fs/cgroup$(systemctl show --property ControlGroup --value recorder-httpd)"
             "/cgroup.procs")

SET_SCHEMA = """
systemctl stop recording-backupd.socket recording-backupd
runuser -u recorder -- python3 -c '
import sqlite3
database = sqlite3.connect("/var/lib/recorder/backupd.db")
print(*database.execute("PRAGMA user_version").fetchone())
database.execute("PRAGMA user_version = {}")'
systemctl start recording-backupd.socket
"""


@pytest.fixture(autouse=True)
def services(recorder):
    recorder.wait_for_services()


# --- killed -------------------------------------------------------------------------------------


@pytest.mark.parametrize("service", ["recorder-logd", "recording-backupd"])
def test_killed_service_is_started_again(machine, recorder, service):
    before = recorder.main_process(service)
    machine.run(f"kill -9 {before}")
    machine.wait(f"systemctl show --property NRestarts --value {service} | grep -x 1",
                 "the service's next start")
    recorder.wait_for_services()
    assert recorder.main_process(service) != before
    assert recorder.ask("GET", "task/log")["ret_code"] == 0


# Not so short that a busy or emulated machine seems to hang.
SHORT_WATCH = """
mkdir -p /run/systemd/system/{0}.service.d
printf '[Service]\nWatchdogSec=20s\n' >/run/systemd/system/{0}.service.d/watch.conf
systemctl daemon-reload
systemctl restart {0}
"""
USUAL_WATCH = """
rm /run/systemd/system/{0}.service.d/watch.conf
systemctl daemon-reload
systemctl restart {0}
"""


@pytest.mark.parametrize("service", ["recorder-logd", "recording-backupd"])
def test_service_that_hangs_is_killed_and_started_again(machine, recorder, service):
    machine.run(SHORT_WATCH.format(service))
    before = recorder.main_process(service)
    machine.run(f"kill -STOP {before}")
    machine.wait(f"[ $(systemctl show --property MainPID --value {service}) != {before} ] && "
                 f"systemctl is-active {service}", "the service's next start")
    recorder.wait_for_services()
    assert "Watchdog timeout" in machine.run(f"journalctl --unit {service} --lines 20")
    assert recorder.ask("GET", "task/log")["ret_code"] == 0
    machine.run(USUAL_WATCH.format(service))
    recorder.wait_for_services()


def test_without_its_main_process_the_web_server_begins_anew_at_once(machine):
    """What it leaves holds the port and has nobody that starts programs: 503 for as long."""
    before = set(machine.run(PROCESSES).split())
    machine.run(KILL_MAIN_PROCESS)
    machine.run(WAITED_FOR_IN_VAIN, fails=True)
    assert not before & set(machine.run(PROCESSES).split())


def test_web_server_reads_its_configuration_again(machine, recorder):
    before = recorder.main_process("recorder-httpd")
    machine.run("echo 'Header always set X-Read again' >>/etc/recorder/recorder.conf")
    machine.run("systemctl reload recorder-httpd")
    machine.wait("curl -sSI http://127.0.0.1:8080/ | grep '^X-Read: again'", "the new setting")
    assert recorder.main_process("recorder-httpd") == before
    assert recorder.ask("GET", "task")["ret_code"] == 0


# --- where it listens ---------------------------------------------------------------------------

LISTEN = "recorderctl web listen 0.0.0.0:8443"

BY_TLS = ("curl -sS --insecure https://127.0.0.1:8443/cgi-bin/recording_backup.cgi/fuse | "
          "grep 'SID authorization fail'")

# Stands for whatever no check beforehand sees.
SPOIL = """
mkdir -p /run/systemd/system/recorder-httpd.service.d
cat >/run/systemd/system/recorder-httpd.service.d/spoil.conf <<'END'
[Service]
ExecStartPre=/bin/sh -c 'cd /run/recorder/listen && [ ! -e web.pem ] || echo spoilt >web.pem'
END
systemctl daemon-reload
systemctl restart recorder-httpd
"""

LEAVE_ALONE = """
rm /run/systemd/system/recorder-httpd.service.d/spoil.conf
systemctl daemon-reload
systemctl restart recorder-httpd
"""


def test_web_server_takes_up_by_itself_where_it_is_told_to_listen(machine, recorder):
    before = recorder.main_process("recorder-httpd")
    for _ in range(2):
        assert "answers\tyes\n" in machine.run(LISTEN)
        machine.run(BY_TLS)
    assert recorder.main_process("recorder-httpd") == before
    assert machine.run("journalctl --unit recorder-web | grep --count Finished") == "1\n"
    machine.run("systemctl restart recorder-httpd")
    machine.wait(BY_TLS, "an answer by TLS after a restart")
    machine.run("recorderctl web local")
    machine.run(BY_TLS, fails=True)
    assert machine.run("systemctl --failed --plain --no-legend") == ""


def test_web_server_that_fails_with_what_it_was_told_starts_without(machine, recorder):
    machine.run(LISTEN)
    machine.run(SPOIL)
    machine.wait("recorderctl web show | grep 'answers.no' && journalctl --unit recorder-httpd | "
                 "grep 'Apache has failed'", "the start without")
    recorder.wait_for_services()
    machine.run(LEAVE_ALONE)
    machine.wait(BY_TLS, "an answer by TLS after the next start")
    machine.run("recorderctl web local")


# --- where recordings are -----------------------------------------------------------------------


def test_recordings_in_a_home_and_on_a_disk_that_comes_later_are_copied(machine, recorder):
    """After the daemon's start, which has its own view of what is mounted."""
    machine.run("mkdir /storage/late && mount -t tmpfs late /storage/late && "
                "install -d -m 700 -o games /home/games")
    for number, folder in ((1, "/storage/late"), (2, "/home/games")):
        recorder.make_recordings(folder)
        machine.run(f"recorderctl channel add --index {number} --guid {number} --ip 192.0.2.1 "
                    f"--name 'Camera {number}' --brand B --model M --streams 1 "
                    f"--recordings {folder}")
    task = recorder.create(destPath="/backup/elsewhere", chIdxList=[1, 2], backupDays=9)
    recorder.start(task)
    recorder.wait_for_success(task)
    assert recorder.hashes("/srv/backup/elsewhere") == sorted(
        recorder.hashes("/storage/late") + recorder.hashes("/home/games"))


def test_recordings_that_the_daemon_cannot_see_are_refused_in_words(machine):
    machine.run("mkdir /tmp/camera")
    assert "hidden from the backup daemon" in machine.run(
        "recorderctl channel add --index 3 --guid 3 --ip 192.0.2.1 --name Hidden --brand B "
        "--model M --streams 1 --recordings /tmp/camera", fails=True)


# --- server tests -------------------------------------------------------------------------------


def server_test(recorder, **changes):
    return recorder.ask("PUT", "server/testing", {
        "serverIP": "127.0.0.1", "port": 445, "username": SHARE_USER, "password": SHARE_PASSWORD,
        "destPath": "/backup/tested", **changes})


def test_server_test_that_passes_leaves_the_credentials_where_the_page_says(machine, recorder):
    assert server_test(recorder)["ret_code"] == 0
    assert machine.run("ls -A /mnt") == ""
    assert follow(machine, FAILED_TEST, "ls -A") == f"{CREDENTIALS}\n"
    (found,) = machine.run(f"find / -xdev -name {CREDENTIALS} -printf '%u %m %p\\n'").splitlines()
    assert re.fullmatch(rf"root 600 /tmp/systemd-private-.*-recorder-httpd.*/tmp/{CREDENTIALS}",
                        found)


def test_server_test_that_fails_has_the_mount_tool_s_words_in_the_debug_file(machine, recorder):
    assert server_test(recorder, password="wrong")["ret_code"] == PERMISSION_DENIED
    assert "mount error(13)" in machine.run(
        "grep strCommandResult: /Zdbglog/.cgi_log/.cgi.log | tail -n 1")


def test_server_test_on_a_read_only_share_leaves_what_the_page_says(machine, recorder):
    assert server_test(recorder, destPath="/read-only")["ret_code"] == COMMAND_FAILED
    machine.run("rm /storage/rec_bak_test && rmdir /mnt/Remote_Server_Test-*")
    assert machine.run("ls -A /mnt") == ""
    machine.run("grep cifs /proc/mounts", fails=True)


def test_credentials_go_when_the_web_server_stops(machine):
    machine.run("systemctl stop recorder-httpd")
    assert machine.run(f"find / -xdev -name {CREDENTIALS}") == ""
    machine.run("systemctl start recorder-httpd")


# --- a newer version's database -----------------------------------------------------------------


def test_newer_database_is_not_fought_for(machine, recorder):
    before = machine.run(SET_SCHEMA.format(99)).strip()
    machine.run("systemctl start recording-backupd", fails=True)
    machine.wait("systemctl is-failed recording-backupd", "its end")
    assert machine.run("systemctl show --property ExecMainStatus,NRestarts recording-backupd"
                       ).split() == ["NRestarts=0", "ExecMainStatus=78"]
    assert "knows schemas up to" in machine.run("journalctl --unit recording-backupd --lines 5")
    assert "newer than schema" in machine.run("recorderctl state check", fails=True)
    assert machine.run(SET_SCHEMA.format(before)) == "99\n"
    machine.run("systemctl start recording-backupd")
    recorder.wait_for_services()


# Nobody who connects is answered, and none is left waiting.
CONNECT = """
for round in {1..30}; do
    for port in 10205 10141 10206; do
        timeout 60 bash -c "exec 3<>/dev/tcp/127.0.0.1/$port && cat <&3" || [ $? != 124 ] || exit 1
    done
done
"""


def test_connections_to_what_cannot_start_do_not_make_systemd_give_up_its_ports(machine, recorder):
    before = machine.run(SET_SCHEMA.format(99)).strip()
    for _ in range(3):
        machine.run(CONNECT)
        machine.wait("systemctl is-failed recording-backupd", "its end")
    assert "knows schemas up to" in machine.run("journalctl --unit recording-backupd --lines 5")
    assert machine.run("systemctl is-active recording-backupd.socket") == "active\n"
    assert machine.run(SET_SCHEMA.format(before)) == "99\n"
    machine.run("systemctl start recording-backupd")
    recorder.wait_for_services()


@pytest.mark.parametrize("service", ["recorder-logd", "recording-backupd"])
def test_any_number_of_starts_leaves_a_service_s_ports_with_systemd(machine, recorder, service):
    for _ in range(8):  # more than five within ten seconds, by default too many
        machine.run(f"systemctl restart {service}")
    assert machine.run(f"systemctl is-active {service} {service}.socket") == "active\n" * 2
    assert machine.run("systemctl show --property StartLimitIntervalUSec --value "
                       f"{service}") == "0\n"
    recorder.wait_for_services()


# --- no power -----------------------------------------------------------------------------------

# For the next start alone: this one's systemd is not told.
MASK = "systemctl --no-reload mask recording-backupd.service recording-backupd.socket && sync"

UNMASK = """
systemctl unmask recording-backupd.service recording-backupd.socket
systemctl start recording-backupd.socket recording-backupd.service
"""

BEGUN = "[ $(find /srv/backup/cut -name '*.mp4' | wc -l) -ge 3 ]"


def test_backup_goes_on_after_the_power_was_cut_and_copies_bit_by_bit(machine, recorder):
    recorder.make_recordings("/storage/front-door", count=20, size=1_000_000)
    task = recorder.create(destPath="/backup/cut", chIdxList=[0], backupDays=9)
    # Slow enough that the end does not come first.
    machine.run("systemctl set-property --runtime smbd 'IOWriteBandwidthMax=/dev/vda 2M'")
    machine.run(MASK)
    recorder.start(task)
    machine.wait(BEGUN, "the first copies")
    machine.pull_the_plug()
    machine.start()
    assert len(recorder.hashes("/srv/backup/cut")) < 40
    machine.run(UNMASK)
    recorder.wait_for_success(task)
    assert recorder.hashes("/srv/backup/cut") == recorder.hashes("/storage/front-door")
