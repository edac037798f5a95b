"""The list of known settings is what the programs read, and the manual has the same."""
import re

from places import SOURCE

ROOMS = ("backup", "cgi", "platform", "services", "tools")
# Each call that reads a key, and the two texts where they stand in it.
CALLS = re.compile(r"\b(configured_number|configured_text(?:_or_throw)?|__nvrcfg_get_key_value)\(")
NAMES = re.compile(r'[^;]*?"(\w+)",\s*"(\w+)"')
# What offers these calls, or hands its caller's names on.
OFFERED_BY = {"platform/nvrcfg.h", "platform/standalone/nvrcfg.cpp", "services/configured.h",
              "services/configured.cpp"}


def settings_read():
    """(section, key) of every call in the programs."""
    for room in ROOMS:
        for path in (SOURCE / room).rglob("*.[ch]*"):
            if path.suffix not in {".cpp", ".h"} or str(path.relative_to(SOURCE)) in OFFERED_BY:
                continue
            text = path.read_text()
            for call in CALLS.finditer(text):
                named = NAMES.match(text, call.end())
                assert named, f"{path}: a call that names no setting"
                yield named.groups()


def known(state):
    return state.ctl_json("config", "list")


def test_every_setting_that_a_program_reads_is_known_and_every_known_one_is_read(state):
    names = [(setting["section"], setting["key"]) for setting in known(state)]
    assert names == sorted(set(settings_read()))


def test_the_manual_lists_the_known_settings(state):
    page = (SOURCE / "docs/operations.md").read_text()
    table = re.search(r"<!-- settings -->\n(.*?)<!-- /settings -->", page, re.DOTALL)[1]
    rows = [[cell.strip() for cell in row.strip("|").split("|")]
            for row in table.splitlines()[2:]]
    assert rows == [[f"`{setting['section']}`", f"`{setting['key']}`", setting["values"],
                     str(setting["default"]) or "–", setting["meaning"]]
                    for setting in known(state)]
