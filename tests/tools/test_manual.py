"""The manual pages and the completion have every command and option that --help tells, and no
others."""
import re
import shutil
import subprocess

import pytest

from places import PROGRAMS, SOURCE
from waiting import SECONDS

COMPLETION = SOURCE / "deploy/completion/recorderctl"
PROGRAM_NAMES = ("recorderctl", "recording-backupd", "recorder-logd", "recording_backup.cgi",
                 "console.cgi")
HELP = "--help"


def page(program):
    return (SOURCE / f"docs/man/{program}.8.scd").read_text()


def block(text, title):
    """The names at the beginnings of the lines of one part of a help text."""
    found = re.search(rf"^{title}:\n((?:  .*\n)+)", text, re.MULTILINE)
    return re.findall(r"^  (\S+)", found[1], re.MULTILINE) if found else []


def told(program, *words):
    """Subcommands and long options, as --help has them."""
    text = subprocess.run([PROGRAMS / program, *words, HELP], capture_output=True, text=True,
                          check=True, timeout=SECONDS).stdout
    options = {option.split(",")[-1] for option in block(text, "Options")}
    assert HELP in options
    return set(block(text, "Subcommands")), options


def commands(*words):
    """Every command line of recorderctl's with its subcommands and options, groups included."""
    subcommands, options = told("recorderctl", *words)
    yield words, subcommands, options
    for name in sorted(subcommands):
        yield from commands(*words, name)


@pytest.fixture(scope="module", name="tree")
def all_commands():
    return list(commands())


def documented():
    """Commands of the page, from the beginnings of lines, with their options."""
    lines = re.findall(r"^\*([a-z][a-z ]*)\*(.*)$", page("recorderctl"), re.MULTILINE)
    return {words: set(re.findall(r"\*(--[a-z]+)\*", rest)) for words, rest in lines
            if words != "recorderctl"}


def options_of(program):
    """Those that have a paragraph of their own in the page."""
    part = re.search(r"^# OPTIONS\n(.*?)^# ", page(program), re.MULTILINE | re.DOTALL)[1]
    return {option for line in re.findall(r"^\*-.*$", part, re.MULTILINE)
            for option in re.findall(r"\*(--[a-z-]+)\*", line)}


def test_the_tree_of_commands_is_read_from_help(tree):
    found = {" ".join(words) for words, _, _ in tree}
    assert {"", "state", "state backup", "event list", "init"} <= found


def test_the_page_has_each_command_with_its_options_and_no_others(tree):
    assert documented() == {" ".join(words): options - {HELP}
                            for words, subcommands, options in tree if not subcommands}


@pytest.mark.parametrize("program", PROGRAM_NAMES[:3])
def test_a_page_has_each_option_and_no_others(program):
    assert options_of(program) == told(program)[1]


@pytest.mark.parametrize("program", PROGRAM_NAMES[3:])
def test_a_cgi_programs_page_has_its_one_option(program):
    assert options_of(program) == {"--version"}


@pytest.mark.parametrize("program", PROGRAM_NAMES)
def test_a_page_is_what_scdoc_takes_and_names_the_others(program):
    if shutil.which("scdoc") is None:
        pytest.skip("needs scdoc")
    made = subprocess.run(["scdoc"], input=page(program), capture_output=True, text=True,
                          check=True, timeout=SECONDS)
    assert made.stdout and made.stderr == ""
    others = page(program).split("# SEE ALSO")[1]
    assert set(re.findall(r"\*(\S+)\*\(8\)", others)) == set(PROGRAM_NAMES) - {program}


# --- completion ----------------------------------------------------------------------------------


def completed(*words, folder="/"):
    """What bash offers for the last of the words."""
    script = ('source "$1"; shift; COMP_WORDS=(recorderctl "$@"); COMP_CWORD=$#; _recorderctl; '
              'printf "%s\\n" "${COMPREPLY[@]}"')
    done = subprocess.run(["bash", "-uc", script, "bash", COMPLETION, *words], cwd=folder,
                          capture_output=True, text=True, check=True, timeout=SECONDS)
    assert done.stderr == ""
    return set(done.stdout.split())


def test_completion_offers_each_command_and_option_and_no_others(tree):
    for words, subcommands, options in tree:
        assert completed(*words, "-") == options, words
        if subcommands:
            assert completed(*words, "") == subcommands | options, words


def test_completion_is_a_sound_shell_script():
    done = subprocess.run(["shellcheck", COMPLETION], capture_output=True, text=True, check=False,
                          timeout=SECONDS)
    assert (done.returncode, done.stdout) == (0, "")


def test_completion_goes_on_behind_options_and_values():
    assert completed("--state", "/tmp/x", "user", "pa") == {"password"}
    assert completed("user", "--help", "li") == {"list"}
    assert completed("user", "add", "--level", "3", "name", "--l") == {"--level"}
    assert completed("event", "list", "--limit", "") == set()


def test_completion_offers_folders_where_folders_are_meant(tmp_path):
    (tmp_path / "folder").mkdir()
    (tmp_path / "file").touch()
    for words in (["--state"], ["state", "backup"], ["state", "restore"],
                  ["channel", "add", "--recordings"]):
        assert completed(*words, "f", folder=tmp_path) == {"folder"}, words


def test_completion_offers_the_known_settings(state):
    known = {(setting["section"], setting["key"]) for setting in
             state.ctl_json("config", "list")}
    sections = completed("config", "set", "")
    assert {(section, key) for section in sections
            for key in completed("config", "get", section, "")} == known
