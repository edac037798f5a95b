"""The Debian package: what it brings, and what it does to the state as it comes, changes and goes.
"""
import os
import pwd
import re
import shutil
import socket
import sqlite3
import subprocess
from contextlib import closing
from pathlib import Path

import pytest

from debian_package import build_package, run, with_version
from older_registry import TO_SCHEMA_1
from places import (BUNDLE, CGI, CONSOLE, LOG_EXPORT, PROGRAMS as PROGRAMS_BUILT, SOURCE, STATE,
                    STORAGE)

pytestmark = pytest.mark.skipif(os.environ.get("RECORDER_IN_PLACE") == "1",
                                reason="it would be installed on this machine")

DATABASES = ("config.db", "events.db", "registry.db")
BACKUPS = STATE / "backups"
COPIES = STATE / "before-upgrade"
CONFIGURATION = Path("/etc/recorder/recorder.conf")
OTHER_PLACES = Path("/etc/tmpfiles.d/recorder.conf")  # the administrator's
UNIT = Path("/lib/systemd/system/recorder-httpd.service")

PROGRAMS = ["usr/lib/recorder/recorder-logd", "usr/lib/recorder/recording-backupd",
            "usr/lib/recorder/recording_backup.cgi", "usr/lib/recorder/console.cgi",
            "usr/sbin/recorderctl"]
STARTED = ["recorder-backup-state.timer", "recorder-httpd.service", "recorder-logd.service",
           "recorder-logd.socket", "recorder-web.path", "recording-backupd.service",
           "recording-backupd.socket"]
STATIC = ["recorder-backup-state.service", "recorder-web.service"]  # others start them
SCRIPT = "usr/lib/recorder/recorder-listen"
DATA = ["etc/recorder/recorder.conf", "usr/lib/sysusers.d/recorder.conf",
        "usr/lib/tmpfiles.d/recorder.conf", "usr/share/bash-completion/completions/recorderctl",
        "usr/share/lintian/overrides/recorder"]
EXAMPLES = [f"usr/share/doc/recorder/prometheus/{path.name}"
            for path in SOURCE.glob("deploy/prometheus/*")]
PAGES = [f"usr/share/man/man8/{Path(program).name}.8.gz" for program in PROGRAMS]
CONSOLE_PAGE = [f"usr/share/recorder/console/{path.relative_to(BUNDLE)}"
                for path in BUNDLE.rglob("*") if path.is_file()]
DOCUMENTS = [path.relative_to(SOURCE) for path in (*SOURCE.glob("*.md"),
                                                   *SOURCE.glob("docs/**/*.md"))]

# Stands in for systemd: notes what is started and stopped, and how many copies there are then.
SYSTEMCTL = f"""#!/bin/bash
for word; do
    case $word in
        is-enabled) [[ $* == *-state.service || $* == *-web.service ]] && echo static ||
            echo enabled ;;
        start | stop) echo "$(ls {COPIES} 2>/dev/null | wc -l) $*" >>/run/services ;;
    esac
done
"""


@pytest.fixture(scope="module", name="package")
def built(tmp_path_factory):
    return build_package(tmp_path_factory.mktemp("package"))


@pytest.fixture(scope="module", name="newer")
def built_newer(package):
    return with_version(package, "99.0")


class Machine:
    """This one, as the sandbox shows it: with the real dpkg, and a stand-in for systemd."""

    def __init__(self):
        Path("/run/systemd/system").mkdir(parents=True, exist_ok=True)
        self.log = Path("/run/services")
        Path("/usr/sbin/policy-rc.d").unlink(missing_ok=True)
        Path("/var/lib/man-db/auto-update").unlink(missing_ok=True)  # takes seconds
        Path("/usr/bin/systemctl").unlink()
        Path("/usr/bin/systemctl").write_text(SYSTEMCTL)
        Path("/usr/bin/systemctl").chmod(0o755)

    def dpkg(self, *words):
        """Exit status, and all that is said. Whoever calls it works with another state folder."""
        self.log.write_text("")
        done = subprocess.run(["dpkg", "--force-unsafe-io", *words], text=True, check=False,
                              stdout=subprocess.PIPE, stderr=subprocess.STDOUT,
                              env={**os.environ, "RECORDER_STATE": "/srv/another"})
        return done.returncode, done.stdout

    def do(self, *words):
        status, said = self.dpkg(*words)
        assert status == 0, said
        return said

    def refusal(self, *words):
        status, said = self.dpkg(*words)
        assert status == 1, said
        return said

    def services(self):
        """What was done with which units, and how many copies of the state there were then."""
        done = {}
        for copies, *words in (line.split() for line in self.log.read_text().splitlines()):
            action = next(word for word in words if word in ("start", "stop"))
            done.setdefault((action, int(copies)), []).extend(
                word for word in words if "." in word)
        return [(*how, sorted(units)) for how, units in done.items()]


@pytest.fixture(name="machine")
def clean_machine():
    machine = Machine()
    yield machine
    machine.dpkg("--purge", "--force-remove-reinstreq", "recorder")
    run("find", STATE, CGI.parent.parent, "-mindepth", "1", "-delete")  # what a purge leaves


@pytest.fixture(name="installed")
def machine_with_it(machine, package):
    machine.do("--install", package)
    run("recorderctl", "user", "add", "admin", input="a password of admin")
    return machine


@pytest.fixture(name="other_places")
def place_for_other_places():
    yield OTHER_PLACES
    OTHER_PLACES.unlink(missing_ok=True)


def make_places():
    """As the web server's unit does before each start."""
    run(*re.search(r"^ExecStartPre=-(.*systemd-tmpfiles.*)$", UNIT.read_text(),
                   re.MULTILINE)[1].split())


def alter(database, sql):
    with closing(sqlite3.connect(STATE / database)) as connection:
        connection.executescript(sql)
    shutil.chown(STATE / database, "recorder", "recorder")


def give(folder):
    run("chown", "-hR", "recorder:recorder", folder)


def schema(folder):
    with closing(sqlite3.connect(folder / "registry.db")) as connection:
        return connection.execute("PRAGMA user_version").fetchone()[0]


def put_logs():
    """With the names that the web server's, and those of ./run's services, have."""
    (STATE / "logs").mkdir()
    for name in ("apache", "apache.1", "requests.2", "recorder-logd", "recorder-logd.1"):
        (STATE / "logs" / name).write_text("a line\n")
    for name in ("apache", "requests", "recorder-logd"):
        (STATE / f"logs/{name}.log").symlink_to(f"logs/{name}")


def users(folder):
    return run("recorderctl", "--state", folder, "user", "list")


def contents():
    return {name: (STATE / name).read_bytes() for name in DATABASES}


def test_the_files_and_their_modes(package):
    listed = [line.split(maxsplit=5) for line in run("dpkg-deb", "-c", package).splitlines()]
    assert {owner for _, owner, *_ in listed} == {"root/root"}
    found = {name.removeprefix("./"): mode for mode, *_, name in listed if mode[0] != "d"}
    documents = [f"usr/share/doc/recorder/{name}" for name in
                 ("copyright", "changelog.gz", *map(str, DOCUMENTS))]
    units = [f"lib/systemd/system/{name}" for name in (*STATIC, *STARTED)]
    assert found == {**{name: "-rwxr-xr-x" for name in (*PROGRAMS, SCRIPT)},
                     **{name: "-rw-r--r--" for name in
                        DATA + EXAMPLES + PAGES + CONSOLE_PAGE + documents + units}}


def test_what_an_administrator_changes_is_kept(package):
    assert run("dpkg-deb", "-I", package, "conffiles") == f"{CONFIGURATION}\n"


def test_its_version_is_the_programs(package):
    version = re.search(r"^project\(.*\bVERSION ([\d.]+)", (SOURCE / "CMakeLists.txt").read_text(),
                        re.MULTILINE)[1]
    assert run("dpkg-deb", "-f", package, "Version") == f"{version}\n"


def test_lintian_finds_nothing(package):
    run("lintian", "--fail-on", "error,warning", "--info", package)


def test_each_override_is_explained():
    lines = (SOURCE / "deploy/debian/recorder.lintian-overrides").read_text().splitlines()
    assert lines[0].startswith("# ")
    assert not [line for before, line in zip(lines, lines[1:])
                if not line.startswith("#") and not before.startswith("#")]


def test_it_names_the_libraries_whose_code_is_in_the_static_program(package):
    named = run("dpkg-deb", "-f", package, "Built-Using")
    assert set(re.findall(r"([\w.+-]+) \(", named)) == {
        "gcc-12", "glibc", "json-c", "libevent", "libsodium", "sqlite3"}
    assert b"OpenSSL " not in (PROGRAMS_BUILT / "recording_backup.cgi").read_bytes()


def test_installation_makes_the_recorders_user_and_state_and_then_starts_the_services(
        machine, package):
    said = machine.do("--install", package)
    assert "not starting it" not in said
    user = pwd.getpwnam("recorder")
    assert (user.pw_dir, user.pw_shell) == (str(STATE), "/usr/sbin/nologin")
    assert (STATE.stat().st_uid, STATE.stat().st_mode & 0o7777) == (user.pw_uid, 0o700)
    assert {STATE.joinpath(name).stat().st_uid for name in DATABASES} == {user.pw_uid}
    assert machine.services() == [("start", 0, STARTED)]


@pytest.mark.parametrize("path", [STORAGE, LOG_EXPORT.parent])
def test_a_folder_that_was_there_keeps_its_owner_and_mode(machine, package, path):
    os.chown(path, 33, 44)
    path.chmod(0o2775)
    machine.do("--install", package)
    make_places()
    found = path.stat()
    assert (found.st_uid, found.st_gid, found.st_mode & 0o7777) == (33, 44, 0o2775)


def test_what_becomes_root_lies_where_root_alone_may_exchange_it(machine, package):
    for path in (CGI.parent.parent, CGI.parent):
        path.mkdir(exist_ok=True)
        os.chown(path, 33, 33)
    machine.do("--install", package)
    assert {(path.stat().st_uid, path.stat().st_mode & 0o7777)
            for path in (CGI.parent.parent, CGI.parent)} == {(0, 0o755)}


def test_an_administrators_own_list_of_places_counts(installed, other_places):
    other_places.write_text("d /run/of-the-administrator 0755 root root -\n")
    make_places()
    assert Path("/run/of-the-administrator").is_dir()


def test_installation_without_its_places_says_so_and_goes_on_when_it_has_them(
        machine, package, other_places):
    other_places.write_text("d /proc/cannot-be-made 0755 root root -\n")
    said = machine.refusal("--install", package)
    assert "recorder: systemd-tmpfiles cannot make all of the recorder's places" in said
    other_places.unlink()
    machine.do("--configure", "recorder")
    assert machine.services() == [("start", 0, STARTED)]


def test_upgrade_copies_the_state_while_nothing_runs_and_then_brings_it_up_to_date(
        installed, newer):
    now = schema(STATE)
    alter("registry.db", TO_SCHEMA_1)
    said = installed.do("--install", newer)
    [copy] = COPIES.iterdir()
    assert f"is in {copy}\n" in said
    assert (schema(copy), schema(STATE)) == (1, now)
    assert "admin" in users(STATE)
    assert installed.services() == [("stop", 0, sorted((*STATIC, *STARTED))), ("start", 1, STARTED)]


def test_a_copy_made_before_an_upgrade_can_be_restored(installed, newer):
    installed.do("--install", newer)
    [copy] = COPIES.iterdir()
    run("recorderctl", "user", "remove", "admin")
    run("recorderctl", "state", "restore", copy)
    assert "admin" in users(STATE)


def test_upgrade_that_cannot_copy_the_state_leaves_it_and_goes_on_when_it_can(installed, newer):
    sound = contents()["registry.db"]
    (STATE / "registry.db").write_bytes(b"no database at all".ljust(len(sound)))
    before = contents()
    said = installed.refusal("--install", newer)
    assert f"recorder: the state in {STATE} cannot be copied, and is as it was" in said
    assert "dpkg --configure recorder" in said
    assert contents() == before
    assert [action for action, *_ in installed.services()] == ["stop"]

    (STATE / "registry.db").write_bytes(sound)
    installed.do("--configure", "recorder")
    assert installed.services() == [("start", 1, STARTED)]
    assert "admin" in users(STATE)


def test_installation_that_was_cut_short_goes_on(installed, package):
    """Databases are made one after the other, and without all of them there is nothing to copy."""
    (STATE / "events.db").unlink()
    installed.do("--install", package)
    assert "admin" in users(STATE)
    assert not COPIES.exists()
    run("recorderctl", "state", "check")


def test_a_copy_that_was_cut_short_goes_with_the_next_upgrade(installed, newer):
    left = COPIES / ".2024-03-01T12-00-00Z.part"
    left.mkdir(parents=True)
    shutil.copy(STATE / "config.db", left)
    give(COPIES)
    installed.do("--install", newer)
    assert not left.exists() and len(list(COPIES.iterdir())) == 1


def test_of_the_copies_that_upgrades_made_the_newest_five_are_kept(installed, newer):
    for day in range(1, 8):
        (COPIES / f"2024-03-0{day}T12-00-00Z").mkdir(parents=True)
    give(COPIES)
    installed.do("--install", newer)
    names = sorted(copy.name for copy in COPIES.iterdir())
    assert names[:4] == [f"2024-03-0{day}T12-00-00Z" for day in (4, 5, 6, 7)] and len(names) == 5


def test_a_state_of_roots_is_given_to_the_recorder_and_then_taken_along(installed, newer):
    """As versions before 0.2.0 leave it."""
    for name in DATABASES:
        os.chown(STATE / name, 0, 0)
    assert "cannot be copied" in installed.refusal("--install", newer)
    give(STATE)
    installed.do("--configure", "recorder")
    assert "admin" in users(STATE)


def test_its_own_recorderctl_is_used(machine, package):
    other = Path("/usr/local/sbin/recorderctl")
    other.write_text("#!/bin/sh\necho of another installation\nexit 1\n")
    other.chmod(0o755)
    try:
        machine.do("--install", package)
    finally:
        other.unlink()
    assert (STATE / "events.db").exists()


@pytest.mark.parametrize("folder", ["/usr/local/lib/systemd/system", "/etc/systemd/system"])
def test_it_is_not_installed_where_other_units_would_win(machine, package, folder):
    unit = Path(folder, UNIT.name)
    unit.parent.mkdir(parents=True, exist_ok=True)
    unit.write_text("[Service]\nExecStart=/bin/true\n")
    status, said = machine.dpkg("--install", package)
    unit.unlink()
    assert status == 1 and f"recorder: {unit} is another installation's" in said
    machine.do("--install", package)


def test_a_newer_versions_state_stays_as_it_is_and_a_copy_from_before_it_is_the_way_back(
        installed, package):
    copy = BACKUPS / "from-before"
    run("recorderctl", "state", "backup", copy)
    alter("registry.db", "PRAGMA user_version = 99")
    before = contents()
    assert "newer than schema" in installed.refusal("--install", package)
    assert contents() == before
    run("recorderctl", "state", "restore", copy)
    installed.do("--configure", "recorder")
    assert "admin" in users(STATE)


def test_removal_keeps_the_state_and_takes_the_programs_that_become_others(installed):
    before = contents()
    run("install", "-o", "root", "-g", "www-data", "-m", "4750",
        "/usr/lib/recorder/recording_backup.cgi", CGI)
    run("install", "-o", "recorder", "-g", "www-data", "-m", "4750",
        "/usr/lib/recorder/console.cgi", CONSOLE)
    assert f"stay in {STATE}\n" in installed.do("--remove", "recorder")
    assert contents() == before
    assert CONFIGURATION.exists() and not CGI.exists() and not CONSOLE.exists()
    assert installed.services() == [("stop", 0, sorted((*STATIC, *STARTED)))]


def test_what_a_removal_has_kept_serves_the_next_installation(installed, package):
    installed.do("--remove", "recorder")
    installed.do("--install", package)
    assert "admin" in users(STATE)
    assert len(list(COPIES.iterdir())) == 1


def test_purge_says_where_the_state_was_and_leaves_nothing_of_it(installed):
    run("recorderctl", "state", "backup", "--keep", "7", BACKUPS)
    run("recorderctl", "state", "backup", BACKUPS / "of-mine")
    run("recorderctl", "state", "restore", BACKUPS / "of-mine")
    run("recorderctl", "state", "backup", "--keep", "5", COPIES)
    for cut_short in (COPIES / ".2024-03-01T12-00-00Z.part", STATE / ".restore.part"):
        cut_short.mkdir()
        shutil.copy(STATE / "config.db", cut_short)
    for spared in ("recordings.index", "registry.answers"):
        (STATE / spared).touch()
    with socket.socket(socket.AF_UNIX, socket.SOCK_DGRAM) as left:  # by a service that was killed
        left.bind(str(STATE / "events.socket"))
    put_logs()
    run("recorderctl", "web", "listen", "--later", "0.0.0.0:8443")
    assert f"removing what is in {STATE}:" in installed.do("--purge", "recorder")
    assert list(STATE.iterdir()) == []
    assert not CONFIGURATION.parent.exists()
    assert not list(Path("/etc/systemd/system").rglob("record*"))


@pytest.fixture(name="mount")
def binder():
    """Shows a file or folder at another place, too."""
    mounted = []

    def bind(source, target):
        run("mount", "--bind", source, target)
        mounted.append(target)

    yield bind
    for target in mounted:
        run("umount", target)


def film(folder):
    """Not the recorder's, and named like what is."""
    folder.mkdir()
    (folder / "film.mp4").write_text("a film")
    (folder / "film.db").write_text("its scenes")
    return folder


def test_purge_leaves_what_somebody_keeps_below_the_state(installed):
    kept = [film(folder) for folder in (STATE / "front-door", STATE / "before-restore-x",
                                        BACKUPS / "garden")]
    said = installed.do("--purge", "recorder")
    assert all(len(list(folder.iterdir())) == 2 for folder in kept)
    assert f"recorder: not removed: {kept[0]}\n" in said
    assert not list(STATE.glob("*.db"))


@pytest.mark.parametrize("name", ["front-door", "backups", "backups/disk", "logs"])
def test_purge_leaves_what_is_mounted_below_the_state(installed, mount, name):
    """Of the same file system, too, and whatever it is named."""
    disk = film(STATE / "disk")
    copy = disk / "2024-03-01T12-00-00Z"
    copy.mkdir()
    for file in (disk / "apache.log", disk / "config.db", copy / "config.db"):
        file.write_text("somebody's")
    place = STATE / name
    place.mkdir(exist_ok=True)
    mount(disk, place)
    said = installed.do("--purge", "recorder")
    assert len(list(disk.rglob("*"))) == 6
    assert f"recorder: mounted, so left alone: {place}\n" in said
    assert not list(STATE.glob("*.db"))


def test_purge_goes_on_when_something_cannot_be_removed(installed, mount):
    """Else dpkg would keep half a package, and systemd links to units that are gone."""
    busy = STATE / "config.db"
    mount(busy, busy)
    CGI.parent.joinpath(LOG_EXPORT.name).mkdir()
    said = installed.do("--purge", "recorder")
    assert f"recorder: not removed: {busy}\n" in said
    assert sorted(STATE.iterdir()) == [busy]
    assert not list(Path("/var/lib/systemd").rglob("*record*"))


def test_purge_leaves_folders_that_others_may_have_made_also_when_they_are_empty(machine, package):
    folders = (STORAGE, LOG_EXPORT.parent, CGI.parent.parent)
    for folder in folders:
        run("umount", folder)  # which would keep it from being removed
    machine.do("--install", package)
    machine.do("--purge", "recorder")
    assert [folder for folder in folders if not folder.is_dir()] == []
