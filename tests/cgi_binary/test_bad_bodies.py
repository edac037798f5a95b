"""Bodies nobody should send: a documented reply and an unchanged store."""
import json

import pytest

from replies import (INPUT_FORMAT_ERROR, INVALID_VALUE, PARSE_FAIL, STORE_BAD_MEMBER,
                     STORE_BAD_TEXT, STORE_UNKNOWN_TASK, SUCCESS, error)
from sample_task import TASK, task_body

NO_TASK = [
    (b"", INPUT_FORMAT_ERROR), (b"x", INPUT_FORMAT_ERROR), (b"{", INPUT_FORMAT_ERROR),
    (b"\0", INPUT_FORMAT_ERROR), (b"null", INPUT_FORMAT_ERROR),
    (b"[" * 100_000, INPUT_FORMAT_ERROR), (b'{"a":' * 100_000, INPUT_FORMAT_ERROR),
    (b"\xff\xfe", INPUT_FORMAT_ERROR), (b"[]", PARSE_FAIL), (b"{}", PARSE_FAIL), (b"5", PARSE_FAIL),
    (b'"text"', PARSE_FAIL), (b"[" + task_body().encode() + b"]", PARSE_FAIL)]

REQUIRED = [name for name in TASK if name not in ("backupDays", "remoteKeepRecDays")]
ENUMERATIONS = ("backupType", "scheduleType", "recordingType", "recordingFormat",
                "remoteOverwriteType")


@pytest.fixture
def refusing(program, daemon):
    """The program with one stored task; afterwards store and daemon are as they were."""
    assert program.create(task_body(taskName="first")).text == SUCCESS
    daemon.requests.clear()
    tasks, events = program.stored_tasks(), program.events()
    assert len(tasks) == 1
    yield program
    assert program.stored_tasks() == tasks
    assert program.events() == events
    assert daemon.requests == []


def test_body_that_is_no_task_is_refused(refusing):
    for body, code in NO_TASK:
        for result in (refusing.create(body), refusing.modify(1, body)):
            assert (result.text, result.status) == (error(code), code & 0xFF), body[:20]


def test_missing_member_is_refused(refusing):
    for name in REQUIRED:
        assert refusing.create(task_body(without=name)).text == error(PARSE_FAIL), name
        assert refusing.modify(1, task_body(without=name)).text == error(PARSE_FAIL), name


def test_day_counts_are_refused_each_with_its_code_when_a_modify_lacks_them(refusing):
    assert refusing.modify(1, task_body(without="backupDays")).text == error(INVALID_VALUE)
    assert refusing.modify(1, task_body(without="remoteKeepRecDays")).text == error(PARSE_FAIL)


def test_member_of_the_wrong_kind_is_refused(refusing):
    for name in REQUIRED:
        for value in ({}, 1.5, "5", 5, True):
            if type(value) is type(TASK[name]):
                continue
            result = refusing.create(task_body(**{name: value}))
            assert result.text == error(PARSE_FAIL), (name, value)


def test_value_outside_its_table_or_range_is_refused(refusing):
    for name in ENUMERATIONS:
        for value in ("", "Daily", TASK[name] + " ", "x" * 10_000, "\"", "\\", "\x01"):
            assert refusing.create(task_body(**{name: value})).text == error(INVALID_VALUE)
    for name in ("backupDays", "remoteKeepRecDays"):
        for value in (100, 2**31, 2**63):
            assert refusing.create(task_body(**{name: value})).text == error(INVALID_VALUE)


# Texts that end their own string and go on as members of the settings text.
BREAKING_TEXTS = [
    ('a"b', STORE_BAD_TEXT), ('"', STORE_BAD_TEXT), ('a"} ', STORE_BAD_TEXT),
    ('a\\"b', STORE_BAD_TEXT), ('a", "other": "', STORE_BAD_MEMBER),
    ('a","taskName":"b', STORE_BAD_TEXT), ('a","content":"e30=', STORE_BAD_TEXT),
    ('a","password":"b', STORE_BAD_TEXT), ('a","port":1,"serverIP":"b', STORE_BAD_TEXT)]
TEXTS = ("taskName", "serverIP", "username", "password", "destPath")


@pytest.mark.parametrize("member", TEXTS)
def test_text_that_breaks_the_settings_text_is_refused_by_the_store(refusing, member):
    for text, status in [*BREAKING_TEXTS, ('a","taskID":"1', STORE_BAD_MEMBER),
                         ('a","startTime":"5', STORE_BAD_TEXT),
                         ('a","enable":false,"endTime":"5', STORE_BAD_TEXT)]:
        result = refusing.create(task_body(**{member: text}))
        assert (result.text, result.status) == (error(status), status), text
    for text, status in [*BREAKING_TEXTS, ('a","taskID":"1', STORE_BAD_TEXT),
                         ('a","startTime":"5', STORE_BAD_MEMBER),
                         ('a","status":4,"endTime":"5', STORE_BAD_MEMBER),
                         ('a","enable":false,"endTime":"5', STORE_BAD_TEXT)]:
        result = refusing.modify(1, task_body(**{member: text}))
        assert (result.text, result.status) == (error(status), status), text


def test_identifier_that_breaks_the_settings_text_is_refused_by_the_store(refusing):
    for task_id in ('1","startTime":"5', '1","status":4,"endTime":"5', '1","taskID":"1', '1"',
                    '1", "x": "'):
        assert refusing.modify(task_id, task_body()).status in (STORE_BAD_TEXT, STORE_BAD_MEMBER)
        switched = refusing.request("POST", f"/task/{task_id}/is_enable", '{"is_enable": false}')
        assert switched.text == error(STORE_BAD_TEXT), task_id


def test_backslashes_are_kept_as_they_are(program, daemon):
    for text in ("DOMAIN\\user", "DOMAIN\\nick", "DOMAIN\\ubeef", "\\\\server\\share\\a", "a\\\\b",
                 "\\"):
        assert program.create(task_body(**dict.fromkeys(TEXTS, text))).text == SUCCESS
        task_id = program.stored_tasks()[-1]["taskID"]
        assert program.modify(task_id, task_body(**dict.fromkeys(TEXTS, text))).text == SUCCESS
        assert {program.stored_tasks()[-1][name] for name in TEXTS} == {text}


def stored_name(program, json_name):
    """The stored name of a task created with a name given as JSON bytes."""
    body = task_body(taskName="@").encode().replace(b'"@"', b'"' + json_name + b'"')
    assert program.create(body).text == SUCCESS
    return program.stored_tasks()[-1]["taskName"]


def test_control_characters_in_a_name_become_letters(program, daemon):
    assert stored_name(program, rb"a\nb\u0001c") == "anbu0001c"


def test_nul_ends_a_name(program, daemon):
    assert stored_name(program, rb"a\u0000b") == "a"


def test_long_name_is_cut_to_255_characters(program, daemon):
    assert stored_name(program, b"n" * 10_000) == "n" * 255
    assert stored_name(program, b"n" * 254 + "ä".encode()) == "n" * 254


def test_name_that_is_no_utf8_is_refused_by_the_store(program, daemon):
    body = task_body(taskName="@").encode().replace(b'"@"', b'"a\xff"')
    assert program.create(body).text == error(STORE_BAD_TEXT)
    assert program.stored_tasks() == []


def test_other_scripts_are_kept(program, daemon):
    assert stored_name(program, "Tür 門 🚪".encode()) == "Tür 門 🚪"
    assert stored_name(program, json.dumps("Tür 門 🚪")[1:-1].encode()) == "Tür 門 🚪"


def test_modify_of_an_unknown_task_is_refused_by_the_store(program, daemon):
    for task_id in ("1", "x", "%00", "1 OR 1=1", "'; DROP TABLE task; --", "9" * 10_000):
        assert program.modify(task_id, task_body()).text == error(STORE_UNKNOWN_TASK), task_id
    assert program.stored_tasks() == []
    assert daemon.requests == []


def test_modify_without_identifier_creates_nothing(program, daemon):
    assert program.request("POST", "/task", task_body()).status != 0
    assert program.stored_tasks() == []
