"""recorderctl config: single keys are set, read and removed."""
import pytest

from failures import misused, refused


def test_a_key_that_was_set_is_printed_and_read_again(state):
    assert state.ctl("config", "set", "fuse", "fuse_enabled", "1") == "1\n"
    assert state.ctl("config", "get", "fuse", "fuse_enabled") == "1\n"


def test_a_key_that_is_set_again_has_the_new_value_alone(state):
    state.ctl("config", "set", "s", "k", "old")
    state.ctl("config", "set", "s", "k", "new")
    assert state.ctl("config", "get", "s", "k") == "new\n"


def test_keys_of_one_name_in_two_sections_are_two_keys(state):
    state.ctl("config", "set", "one", "k", "1")
    state.ctl("config", "set", "two", "k", "2")
    state.ctl("config", "set", "one", "other", "3")
    assert state.ctl("config", "get", "one", "k") == "1\n"
    assert state.ctl("config", "unset", "one", "k") == "unset\n"
    assert state.ctl("config", "get", "two", "k") == "2\n"
    assert state.ctl("config", "get", "one", "other") == "3\n"


@pytest.mark.parametrize("value", ["", " ", "-1", "a=b", "two words", "ü\tü", "'; DROP TABLE x"])
def test_a_value_is_kept_as_it_is(state, value):
    state.ctl("config", "set", "s", "k", value)
    assert state.ctl("config", "get", "s", "k") == value + "\n"


@pytest.mark.parametrize("command", ["get", "unset"])
@pytest.mark.parametrize("section, key", [("s", "other"), ("other", "k"), ("k", "s"), ("S", "k")])
def test_a_key_that_does_not_exist_is_named(state, command, section, key):
    state.ctl("config", "set", "s", "k", "v")
    assert refused(state, "config", command, section, key) == (
        f"there is no key {key} in section {section}")
    assert state.ctl("config", "get", "s", "k") == "v\n"


def test_a_removed_key_is_gone(state):
    state.ctl("config", "set", "s", "k", "v")
    state.ctl("config", "unset", "s", "k")
    assert refused(state, "config", "get", "s", "k") == "there is no key k in section s"
    assert refused(state, "config", "unset", "s", "k") == "there is no key k in section s"


@pytest.mark.parametrize("words, missing", [
    (["get"], "SECTION"), (["get", "s"], "KEY"), (["unset", "s"], "KEY"), (["set", "s"], "KEY"),
    (["set", "s", "k"], "VALUE")])
def test_a_missing_word_is_named(state, words, missing):
    assert misused(state, "config", *words) == f"{missing} is required"
