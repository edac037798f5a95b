"""What an installation brings: these files and no others, programs that know their version, units
that can start them."""
import os
import pty
import re
import subprocess
from pathlib import Path

import pytest

from places import BUILD, BUNDLE, SOURCE
from service_process import ended_afterwards, start_recorder
from waiting import SECONDS

PORT = 8080

# Below the prefix. Nothing is set-user-ID: that is for whoever starts the web server.
PROGRAMS = ["libexec/recorder/recorder-logd", "libexec/recorder/recording-backupd",
            "libexec/recorder/recording_backup.cgi", "libexec/recorder/console.cgi",
            "sbin/recorderctl"]
SERVICES = [f"lib/systemd/system/{name}.service"
            for name in ("recorder-httpd", "recorder-logd", "recording-backupd")]
SOCKETS = [f"lib/systemd/system/{name}.socket" for name in ("recorder-logd", "recording-backupd")]
COPIES = [f"lib/systemd/system/recorder-backup-state.{kind}" for kind in ("service", "timer")]
WEB = [f"lib/systemd/system/recorder-web.{kind}" for kind in ("path", "service")]
UNITS = SERVICES + SOCKETS + COPIES + WEB
SCRIPT = "libexec/recorder/recorder-listen"
DATA = ["share/recorder/recorder.conf", "lib/sysusers.d/recorder.conf",
        "lib/tmpfiles.d/recorder.conf",
        "share/bash-completion/completions/recorderctl"]
# Where there was no scdoc when the build was configured, there are none.
PAGES = [f"share/man/man8/{Path(name).name}.8" for name in PROGRAMS
         if (BUILD / "docs/man/recorderctl.8").is_file()]

CONSOLE_PAGE = [f"share/recorder/console/{path.relative_to(BUNDLE)}"
                for path in BUNDLE.rglob("*") if path.is_file()]

REFUSED = ('Status: 401 Unauthorized\r\nContent-type: application/json\r\n\r\n'
           '{ "retCode": -1794506751.0, "mesg": "SID authorization fail." }\n\n')


def install(prefix, destination=""):
    subprocess.run(["cmake", "--install", BUILD, "--prefix", prefix,
                    "--component", "Unspecified"], check=True, timeout=SECONDS,
                   stdout=subprocess.DEVNULL, env={**os.environ, "DESTDIR": str(destination)})


@pytest.fixture(scope="module", name="prefix")
def installed(tmp_path_factory):
    prefix = tmp_path_factory.mktemp("prefix")
    install(prefix)
    return prefix


def version():
    return re.search(r"^project\(.*\bVERSION ([\d.]+)", (SOURCE / "CMakeLists.txt").read_text(),
                     re.MULTILINE)[1]


def run_cgi(prefix, *arguments, stdin=subprocess.DEVNULL, **environment):
    """The CGI program's exit status, standard output and standard error."""
    done = subprocess.run([prefix / "libexec/recorder/recording_backup.cgi", *arguments],
                          stdin=stdin, capture_output=True, env=environment, timeout=SECONDS)
    return done.returncode, done.stdout.decode(), done.stderr.decode()


@pytest.fixture(name="terminal")
def open_terminal():
    master, slave = pty.openpty()
    yield slave
    os.close(slave)
    os.close(master)


def test_the_files_and_their_modes(tmp_path):
    install("/usr", tmp_path)
    found = {path.relative_to(tmp_path / "usr").as_posix(): path.stat().st_mode & 0o7777
             for path in tmp_path.rglob("*") if path.is_file()}
    assert found == {**{name: 0o755 for name in (*PROGRAMS, SCRIPT)},
                     **{name: 0o644 for name in UNITS + DATA + PAGES + CONSOLE_PAGE}}


@pytest.mark.parametrize("program", [name for name in PROGRAMS if not name.endswith(".cgi")])
def test_a_program_answers_with_its_name_and_version(prefix, program):
    done = subprocess.run([prefix / program, "--version"], capture_output=True, text=True,
                          timeout=SECONDS, check=False)
    assert (done.returncode, done.stderr) == (0, "")
    assert done.stdout == f"{Path(program).name} {version()}\n"


def test_the_cgi_program_tells_its_version_at_a_terminal(prefix, terminal):
    assert run_cgi(prefix, "--version", stdin=terminal) == \
        (0, "", f"recording_backup.cgi {version()}\n")


@pytest.mark.parametrize("arguments, at_terminal, environment", [
    (["--version"], False, {}),
    (["--version"], True, {"REQUEST_METHOD": "GET"}),
    (["--version", "x"], True, {}),
    (["--help"], True, {}),
    ([], True, {}),
])
def test_a_request_is_never_taken_for_that_question(prefix, terminal, arguments, at_terminal,
                                                    environment):
    stdin = terminal if at_terminal else subprocess.DEVNULL
    assert run_cgi(prefix, *arguments, stdin=stdin, **environment) == (1, REFUSED, "")


@pytest.mark.parametrize("unit", SERVICES)
def test_a_unit_names_files_that_are_installed(prefix, unit):
    text = (prefix / unit).read_text()
    assert not re.search(r"@[A-Z]", text)
    named = re.findall(rf"{prefix}/[^\s\"]+", text)
    assert named
    assert [path for path in named if not Path(path).exists()] == []


def test_systemd_finds_nothing_wrong_with_the_units(prefix):
    done = subprocess.run(["systemd-analyze", "verify", *(prefix / unit for unit in UNITS)],
                          capture_output=True, text=True, timeout=SECONDS, check=False)
    assert (done.returncode, done.stdout + done.stderr) == (0, "")


def test_a_recorder_in_the_sandbox_leaves_the_list_of_what_the_administrator_installed():
    """By which it is removed."""
    def last_written():
        return [path.stat().st_mtime_ns for path in BUILD.glob("install_manifest.txt")]

    before = last_written()
    with ended_afterwards(start_recorder(PORT)):
        assert last_written() == before
