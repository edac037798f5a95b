"""The years after: state backed up and restored, the package removed, upgraded and purged."""
import subprocess

import pytest

from guest_recorder import SERVICES
from page import follow
from places import SOURCE

STATE = "/var/lib/recorder"
OLDER_STATE = SOURCE / "tests/support/state_of_schema_2"

# Files of the recorder's, but for those of this test and what dpkg itself remembers.
LEFT = (r"find / -xdev \( -name 'recorder*' -o -name 'recording*' \) "
        "! -path '/root/*' ! -path '/srv/*' ! -path '/var/backups/*' ! -path '/tmp/*' "
        "! -path '/var/lib/dpkg/*' ! -path '/var/log/*' ! -path '/usr/lib/modules/*'")


@pytest.fixture(scope="module")
def older(package, tmp_path_factory):
    """The package as a version before it."""
    folder = tmp_path_factory.mktemp("older")
    tree, made = folder / "tree", folder / "recorder_0.1.9_amd64.deb"
    subprocess.run(["dpkg-deb", "--raw-extract", package, tree], check=True)
    control = tree / "DEBIAN/control"
    lines = ["Version: 0.1.9" if line.startswith("Version:") else line
             for line in control.read_text().splitlines()]
    control.write_text("\n".join(lines) + "\n")
    subprocess.run(["dpkg-deb", "--root-owner-group", "--build", tree, made], check=True,
                   capture_output=True)
    return made


def tasks(machine):
    return machine.run("recorderctl task list")


# --- backup and restore -------------------------------------------------------------------------


def test_state_that_was_backed_up_is_restored_as_the_page_says(machine, recorder):
    recorder.wait_for_services()  # the machine has just started
    follow(machine, "To back it up", "recorderctl state backup")
    before = tasks(machine)
    recorder.create(destPath="/backup/gone", chIdxList=[0])
    assert tasks(machine) != before
    follow(machine, "To back it up", "recorderctl state restore")
    recorder.wait_for_services()
    assert tasks(machine) == before


def test_timer_s_copies_of_the_state_are_sound_and_seven_stay(machine):
    for _ in range(9):  # in a row, which systemd would refuse
        machine.run("systemctl start recorder-backup-state; sleep 1; "
                    "systemctl reset-failed recorder-backup-state || true")
    copies = machine.run(f"ls {STATE}/backups").split()
    assert len(copies) == 7
    machine.run(f"recorderctl --state {STATE}/backups/{copies[-1]} state check")


def test_timer_copies_the_state_on_the_next_day(machine):
    machine.run(f"rm -r {STATE}/backups/*")
    drop_in = "/run/systemd/system/recorder-backup-state.timer.d"
    machine.run(f"mkdir -p {drop_in} && cat >{drop_in}/at-once.conf && systemctl daemon-reload",
                "[Timer]\nRandomizedDelaySec=0\n")  # behind a jump of the clock, too
    machine.run("date -s 'tomorrow 01:30'")
    machine.wait(f"ls {STATE}/backups | grep .", "the timer's copy")


# --- removed, and back --------------------------------------------------------------------------


def test_removed_package_leaves_the_state_to_the_next_one(machine, recorder):
    before = tasks(machine)
    said = machine.run("apt remove recorder", "y\n")
    assert STATE in said
    machine.run("test -e /home/httpd/cgi-bin/recording_backup.cgi", fails=True)
    machine.run("ss -ltn | grep -E ':(8080|10150|10205|10141|10206) '", fails=True)
    machine.run("apt install ./recorder_*.deb", "y\n")
    recorder.wait_for_services()
    assert tasks(machine) == before


def test_purged_package_says_what_goes_and_leaves_nothing(machine):
    said = machine.run("apt purge recorder", "y\n")
    assert f"removing what is in {STATE}" in said
    assert machine.run("systemctl list-unit-files --no-legend 'record*' || true; " + LEFT) == ""
    assert machine.run("ls -A /storage/front-door") != ""


# --- upgraded -----------------------------------------------------------------------------------


def load_older_state(machine):
    """The databases of schema 2, as its daemon left them in the midst of a run."""
    machine.run(f"systemctl stop {' '.join(SERVICES)} recorder-logd.socket recording-backupd.socket"
                f" && rm {STATE}/*.db*")
    for sql in OLDER_STATE.glob("*.sql"):
        machine.run("runuser -u recorder -- python3 -c '"
                    "import sqlite3, sys; sqlite3.connect(sys.argv[1]).executescript("
                    f"sys.stdin.read())' {STATE}/{sql.stem}.db", sql.read_text())


def test_upgrade_takes_an_older_state_along_and_keeps_a_copy(machine, recorder, older):
    machine.put("/tmp/older_recorder.deb", older.read_bytes())
    machine.run("apt install /tmp/older_recorder.deb", "y\n")
    load_older_state(machine)
    said = machine.run("apt install ./recorder_*.deb", "y\n")
    (copy,) = [word.rstrip(".") for word in said.split() if f"{STATE}/before-upgrade" in word]
    recorder.wait_for_services()
    machine.run("recorderctl state check")
    assert tasks(machine).count("\n") == 3
    assert machine.run(f"ls {copy}").split() == ["config.db", "events.db", "registry.db"]
    machine.wait(f"test -e {STATE}/backupd.db", "the daemon's own database")
