"""recorderctl config: settings are listed, checked and set, and any key by force."""
import sqlite3
from contextlib import closing

import pytest

from failures import misused, refused


def test_a_key_that_was_set_is_printed_and_read_again(state):
    assert state.ctl("config", "set", "fuse", "fuse_enabled", "1") == "1\n"
    assert state.ctl("config", "get", "fuse", "fuse_enabled") == "1\n"


def test_a_key_that_is_set_again_has_the_new_value_alone(state):
    state.ctl("config", "set", "s", "k", "old", "--force")
    state.ctl("config", "set", "s", "k", "new", "--force")
    assert state.ctl("config", "get", "s", "k") == "new\n"


def test_keys_of_one_name_in_two_sections_are_two_keys(state):
    state.ctl("config", "set", "one", "k", "1", "--force")
    state.ctl("config", "set", "two", "k", "2", "--force")
    state.ctl("config", "set", "one", "other", "3", "--force")
    assert state.ctl("config", "get", "one", "k") == "1\n"
    assert state.ctl("config", "unset", "one", "k") == "unset\n"
    assert state.ctl("config", "get", "two", "k") == "2\n"
    assert state.ctl("config", "get", "one", "other") == "3\n"


@pytest.mark.parametrize("value", ["", " ", "-1", "a=b", "two words", "ü\tü", "'; DROP TABLE x"])
def test_a_value_is_kept_as_it_is(state, value):
    state.ctl("config", "set", "s", "k", value, "--force")
    assert state.ctl("config", "get", "s", "k") == value + "\n"


@pytest.mark.parametrize("command", ["get", "unset"])
@pytest.mark.parametrize("section, key", [("s", "other"), ("other", "k"), ("k", "s"), ("S", "k")])
def test_a_key_that_does_not_exist_is_named(state, command, section, key):
    state.ctl("config", "set", "s", "k", "v", "--force")
    assert refused(state, "config", command, section, key) == (
        f"there is no key {key} in section {section}")
    assert state.ctl("config", "get", "s", "k") == "v\n"


def test_a_removed_key_is_gone(state):
    state.ctl("config", "set", "s", "k", "v", "--force")
    state.ctl("config", "unset", "s", "k")
    assert refused(state, "config", "get", "s", "k") == "there is no key k in section s"
    assert refused(state, "config", "unset", "s", "k") == "there is no key k in section s"


@pytest.mark.parametrize("words, missing", [
    (["get"], "SECTION"), (["get", "s"], "KEY"), (["unset", "s"], "KEY"), (["set", "s"], "KEY"),
    (["set", "s", "k"], "VALUE")])
def test_a_missing_word_is_named(state, words, missing):
    assert misused(state, "config", *words) == f"{missing} is required"


# --- settings ------------------------------------------------------------------------------------


def setting(state, section, key):
    found, = (listed for listed in state.ctl_json("config", "list")
              if (listed["section"], listed["key"]) == (section, key))
    return found


def test_a_setting_is_listed_with_its_values_its_default_and_what_it_means(state):
    assert setting(state, "log", "keep_days") == {
        "section": "log", "key": "keep_days", "kind": "number", "values": "1 to 2147483647",
        "least": 1, "most": 2147483647, "default": 365, "meaning": "days that events are kept"}
    assert ("log\tkeep_days\t1 to 2147483647\tdefault 365\tnot set\tdays that events are kept\n"
            in state.ctl("config", "list"))
    assert setting(state, "alert", "smtp_security") == {
        "section": "alert", "key": "smtp_security", "kind": "text",
        "values": "starttls, tls or none", "default": "starttls",
        "meaning": setting(state, "alert", "smtp_security")["meaning"]}
    assert ("\nalert\tmail_to\tmail addresses, with commas between\tno default\tnot set\t"
            in state.ctl("config", "list"))
    assert "\tcheck_reading\t0 or 1\tdefault 1\tnot set\t" in state.ctl("config", "list")


def test_a_setting_is_listed_with_what_is_stored_and_whether_it_counts(state):
    state.ctl("config", "set", "log", "keep_days", "30")
    assert setting(state, "log", "keep_days")["value"] == "30"
    assert setting(state, "log", "keep_days")["valid"] is True
    state.ctl("config", "set", "log", "keep_days", "a week", "--force")
    assert setting(state, "log", "keep_days")["value"] == "a week"
    assert setting(state, "log", "keep_days")["valid"] is False
    assert '\tdefault 365\t"a week" is not valid\t' in state.ctl("config", "list")


def test_a_setting_that_is_not_set_tells_its_default(state):
    assert refused(state, "config", "get", "log", "keep_days") == (
        "log keep_days is not set; 365 counts")
    assert refused(state, "config", "get", "alert", "smtp_security") == (
        "alert smtp_security is not set; starttls counts")
    assert refused(state, "config", "get", "alert", "mail_to") == "alert mail_to is not set"


@pytest.mark.parametrize("section, key, value", [
    ("log", "keep_days", "1"), ("log", "keep_days", "2147483647"), ("backup", "max_parallel", "1"),
    ("backup", "check_reading", "0"), ("backup", "check_reading", "1"),
    ("fuse", "fuse_enabled", "0"),
    ("alert", "mail_to", "admin@example.org, root"), ("alert", "mail_to", ""),
    ("alert", "mail_from", "nvr@example.org"), ("alert", "smtp_server", "[2001:db8::1]:2525"),
    ("alert", "smtp_security", "none"), ("alert", "smtp_user", "Jürgen"),
    ("alert", "smtp_password_file", "/etc/recorder/smtp-password"),
    ("alert", "ca_file", "/etc/ssl/ours.pem"), ("alert", "sendmail", "/usr/sbin/sendmail"),
    ("alert", "web_hook", "https://example.org:8443/hook?channel=1")])
def test_a_value_that_its_reader_takes_is_set(state, section, key, value):
    assert state.ctl("config", "set", section, key, value) == value + "\n"
    assert state.ctl("config", "get", section, key) == value + "\n"


@pytest.mark.parametrize("section, key, values", [
    ("log", "keep_days", ["0", "-1", "2147483648", "", "a week", "3 days", " 3", "+3", "3.5"]),
    ("backup", "max_parallel", ["0", "none", "99999999999999999999"]),
    ("backup", "check_reading", ["2", "no", "", "00", "01"]),
    ("fuse", "fuse_enabled", ["off", "true", "-0"]),
    ("alert", "mail_to", ["example.org", "a@b,", "a b@c", "a@b\nBcc: c@d"]),
    ("alert", "mail_from", ["a@b,c@d", "Recorder <a@b>"]),
    ("alert", "smtp_server", ["mail:0", "mail:smtp", "smtp://mail", "::1"]),
    ("alert", "smtp_security", ["STARTTLS", "ssl", ""]),
    ("alert", "smtp_user", ["two\nlines"]),
    ("alert", "smtp_password_file", ["password", "~/password"]),
    ("alert", "ca_file", ["ca.pem"]), ("alert", "sendmail", ["sendmail", ""]),
    ("alert", "web_hook", ["example.org", "ftp://a", "file:///etc/passwd", "https://u:p@a/"])])
def test_a_value_that_its_reader_does_not_take_is_refused_but_by_force(state, section, key, values):
    for value in values:
        said = refused(state, "config", "set", section, key, value)
        assert said.startswith(f"{section} {key} is ")
        line = value.replace("\n", "\\n")
        shown = "" if key == "web_hook" else f', not "{line}"'
        assert said.endswith(shown + "; --force stores any text")
        assert shown or value not in said, "it may have a password in it"
    assert "is not set" in refused(state, "config", "get", section, key)
    assert state.ctl("config", "set", section, key, values[0], "--force") == values[0] + "\n"


def test_a_refused_value_is_shown_up_to_its_eightieth_byte(state):
    said = refused(state, "config", "set", "alert", "mail_from", "x" * 79 + "ü" + "y" * 10_000)
    assert said.endswith(f', not "{"x" * 79} ..."; --force stores any text')


@pytest.mark.parametrize("section, key, meant", [
    ("log", "keep_day", "log keep_days"), ("logs", "keep_days", "log keep_days"),
    ("fuse", "enabled", "fuse fuse_enabled"), ("backup", "max_paralel", "backup max_parallel"),
    ("Backup", "check_reading", "backup check_reading")])
def test_a_key_that_nothing_reads_is_refused_with_the_one_it_is_most_like(state, section, key,
                                                                          meant):
    assert refused(state, "config", "set", section, key, "1") == (
        f"nothing reads {section} {key}; did you mean {meant}? config list shows all settings, "
        "--force stores any text")
    assert state.ctl("config", "set", section, key, "1", "--force") == "1\n"


# --- secrets -------------------------------------------------------------------------------------

SECRETS = {"mail": "mail_password", "web_hook": "web_hook_secret"}


@pytest.mark.parametrize("what, key", SECRETS.items())
def test_a_secret_is_read_from_standard_input_and_never_shown(state, what, key):
    assert state.ctl("alert", "password", what, given="Tür und Tor\n") == what + "\n"
    assert state.ctl("config", "get", "alert", key) == "(set)\n"
    assert setting(state, "alert", key)["value"] == "(set)"
    for shown in (state.ctl("config", "list"), state.ctl("config", "list", "--json")):
        assert "Tür" not in shown and "(set)" in shown
    with closing(sqlite3.connect(state.path / "registry.db")) as registry:
        assert registry.execute("SELECT value FROM config_key WHERE key = ?", [key]).fetchall() == [
            ("Tür und Tor",)]


@pytest.mark.parametrize("key", SECRETS.values())
@pytest.mark.parametrize("force", [[], ["--force"]])
def test_a_secret_is_no_argument_not_even_by_force(state, key, force):
    assert refused(state, "config", "set", "alert", key, "geheim", *force) == (
        f"alert {key} is a secret and no argument; recorderctl alert password reads it")
    assert refused(state, "config", "get", "alert", key) == f"alert {key} is not set"


@pytest.mark.parametrize("given", ["", "\n", "a\tb\n", "\x7f\n"])
def test_a_secret_that_cannot_be_one_is_refused_and_the_old_one_stays(state, given):
    state.ctl("alert", "password", "mail", given="before\n")
    refused(state, "alert", "password", "mail", given=given)
    with closing(sqlite3.connect(state.path / "registry.db")) as registry:
        assert registry.execute("SELECT value FROM config_key").fetchall() == [("before",)]


def test_a_secret_is_removed_like_any_setting(state):
    state.ctl("alert", "password", "mail", given="before\n")
    assert state.ctl("config", "unset", "alert", "mail_password") == "unset\n"
    assert refused(state, "config", "get", "alert", "mail_password") == (
        "alert mail_password is not set")
