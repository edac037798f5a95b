"""Session, path, method and body of a request, byte for byte as the web server sees the answer."""
import time

import pytest

from cgi_program import HEADERS, printed
from places import DEBUG_FILE, LOG_EXPORT, LOG_LINK
from replies import CHANGE_STATUS_ERROR, INPUT_FORMAT_ERROR, SUCCESS, error
from sample_task import TASK, task_body

NULL = b"null\n\n"
FUSE = printed('{ "ret_code": 0, "mesg": "Success.", "isFUSE": true }')
UNAUTHORIZED = (b"Status: 401 Unauthorized\r\nContent-type: application/json\r\n\r\n"
                b'{ "retCode": -1794506751.0, "mesg": "SID authorization fail." }\n\n')
URI_ERROR = printed('{ "ret_code": "0x950a0002" }')
METHOD_ERROR = printed('{ "ret_code": "0x950a0003" }')
MEBIBYTE = 1024 * 1024


# --- session -------------------------------------------------------------------------------------


@pytest.mark.parametrize("query", ["", "sid=", "sid=" + "0" * 32, "sid=x%00", "SID=1", "sid=%zz",
                                   "&&&=&", "sid=" + "a" * 60000, "x" * 70000,
                                   "&".join(f"p{i}=1" for i in range(300))])
def test_invalid_session_answers_401(program, query):
    for method, path in (("GET", "/fuse"), ("PUT", "/task"), ("GET", None), ("get", "/fuse")):
        result = program.request(method, path, query=query)
        assert result.output == UNAUTHORIZED
        assert result.status == 1


def test_invalid_session_changes_nothing(program, daemon):
    assert program.create(task_body(), query="sid=1").output == UNAUTHORIZED
    assert program.stored_tasks() == []
    assert daemon.requests == []


def test_user_below_administrator_answers_401(program):
    program.add_user("guest", level=10)
    sid = program.open_session("guest")
    assert program.request("GET", "/fuse", query=f"sid={sid}").output == UNAUTHORIZED


def test_closed_session_answers_401(program):
    assert program.request("GET", "/fuse").output == FUSE
    program.ctl("session", "close", program.sid)
    assert program.request("GET", "/fuse").output == UNAUTHORIZED


# --- path and method -----------------------------------------------------------------------------


def test_missing_path_is_a_uri_error(program):
    for method in ("GET", "PUT", "POST", "DELETE", "get", None):
        result = program.request(method, None)
        assert (result.output, result.status) == (URI_ERROR, 2)


def test_fifteen_segments_are_accepted_and_sixteen_are_a_uri_error(program):
    result = program.request("GET", "/fuse" + "/x" * 14)
    assert (result.output, result.status) == (FUSE, 0)
    for count in (15, 16, 10_000):
        result = program.request("GET", "/fuse" + "/x" * count)
        assert (result.output, result.status) == (URI_ERROR, 2)


@pytest.mark.parametrize("method", ["get", "Get", "HEAD", "PATCH", "", "GET ", "GETS", None])
def test_method_other_than_the_four_is_a_method_error(program, method):
    result = program.request(method, "/fuse")
    assert (result.output, result.status) == (METHOD_ERROR, 3)


@pytest.mark.parametrize("path", ["", "/", "/unknown", "/task/unknown", "/Fuse", "/task/log/other",
                                  "/fuse%20", "/task\x01", "/\xff"])
def test_unknown_get_prints_null_without_any_header(program, path):
    result = program.request("GET", path)
    assert (result.output, result.status) == (NULL, 0)


@pytest.mark.parametrize("method, path", [
    ("PUT", "/task/x"), ("PUT", "/server"), ("PUT", "/server/other"), ("PUT", "/"),
    ("POST", "/task/7/active/other"), ("POST", "/task/7/other"), ("POST", "/fuse"), ("POST", ""),
    ("DELETE", "/fuse"), ("DELETE", "/"), ("DELETE", "/task/7")])
def test_unknown_route_with_headers_prints_null_and_does_nothing(program, daemon, method, path):
    result = program.request(method, path, task_body())
    assert (result.output, result.status) == (HEADERS + NULL, 0)
    assert program.stored_tasks() == []
    assert daemon.requests == []


def test_empty_segments_count_for_nothing(program):
    assert program.request("GET", "//fuse//").output == FUSE


def test_exit_status_is_the_low_byte_of_the_result(program):
    assert program.create(None).status == 0x04
    assert program.create("{}").status == 0x05
    assert program.create(task_body(scheduleType="Daily")).status == 0x06
    assert program.create(task_body()).status == 0x22  # no daemon
    assert program.request("GET", "/task").status == 0x23  # likewise


# --- body ----------------------------------------------------------------------------------------


def test_request_without_content_length_has_no_body(program, daemon):
    assert program.create(task_body(), length=None).text == error(INPUT_FORMAT_ERROR)
    assert program.stored_tasks() == []


@pytest.mark.parametrize("length", ["", "0", "-1", "-99999999999999999999", "x", " ", "0x10",
                                    "99999999999999999999", "9223372036854775807", "4294967296",
                                    "2147483648", str(MEBIBYTE + 1)])
def test_content_length_that_allows_no_body_is_an_input_format_error(program, daemon, length):
    result = program.create(task_body(), length=length)
    assert (result.text, result.status) == (error(INPUT_FORMAT_ERROR), 4)
    assert program.stored_tasks() == []
    assert daemon.requests == []


def test_content_length_is_read_as_far_as_its_digits(program, daemon):
    body = task_body()
    assert program.create(body, length=f" +{len(body)}x").text == SUCCESS


def test_body_shorter_than_announced_ends_at_the_end_of_the_input(program, daemon):
    body = task_body()
    assert program.create(body, length=str(len(body) + 1000)).text == SUCCESS
    assert program.create(body, length=str(MEBIBYTE)).text == SUCCESS
    assert program.create(body[:-1], length=str(len(body))).text == error(INPUT_FORMAT_ERROR)
    assert program.create(b"", length="10").text == error(INPUT_FORMAT_ERROR)
    assert len(program.stored_tasks()) == 2


def test_body_longer_than_announced_is_cut_where_announced(program, daemon):
    body = task_body()
    assert program.create(body + "rubbish", length=str(len(body))).text == SUCCESS
    assert program.create(body, length=str(len(body) - 1)).text == error(INPUT_FORMAT_ERROR)


def test_body_of_a_mebibyte_is_taken(program, daemon):
    body = task_body()
    assert program.create(body + " " * (MEBIBYTE - len(body))).text == SUCCESS
    many = task_body(chIdxList=list(range(100_000)))
    assert program.create(many).text == SUCCESS
    assert program.stored_tasks()[-1]["chIdxList"] == ",".join(str(n) for n in range(100_000))


def test_body_above_a_mebibyte_counts_as_no_body(program, daemon):
    body = task_body()
    for size in (MEBIBYTE + 1, 10 * MEBIBYTE):
        result = program.create(body + " " * (size - len(body)))
        assert (result.text, result.status) == (error(INPUT_FORMAT_ERROR), 4)
    assert program.stored_tasks() == []


# --- log download --------------------------------------------------------------------------------


@pytest.fixture
def served_folder():
    """The folder that the web server serves, where the link goes."""
    LOG_LINK.parent.mkdir(parents=True, exist_ok=True)
    LOG_EXPORT.parent.mkdir(exist_ok=True)
    LOG_LINK.unlink(missing_ok=True)


def test_successful_download_prints_no_content_type_line_and_no_json(program, log_service,
                                                                     served_folder):
    log_service.otherwise = b"id,time\r\n1,2\r\n"
    day = time.strftime("%Y%m%d", time.gmtime())
    result = program.request("GET", "/task/log/file")
    day_after = time.strftime("%Y%m%d", time.gmtime())
    assert result.status == 0
    assert result.output in [
        (b"Status: 200 OK\r\nLocation: /cgi-bin/Ostra-RecordingbackLog.csv\n"
         b"Content-Type: application/octet-stream\n"
         b"Content-Disposition: attachment; filename=Ostra-RecordingbackLog-%s.csv\r\n\r\n"
         % date.encode()) for date in (day, day_after)]
    assert LOG_LINK.read_bytes() == log_service.otherwise


def test_failed_download_prints_headers_and_error(program, log_service, served_folder):
    log_service.status = 500
    result = program.request("GET", "/task/log/file")
    assert result.output == printed(error(500, "Download task log fail."))
    assert result.status == 500 & 0xFF
    assert not LOG_LINK.exists()


def test_failed_daemon_leaves_the_created_task_stored(program):
    result = program.create(task_body())
    assert (result.text, result.status) == (error(CHANGE_STATUS_ERROR), 0x22)
    assert [task["taskName"] for task in program.stored_tasks()] == [TASK["taskName"]]
    assert program.events() == []


# --- debug lines ---------------------------------------------------------------------------------


def test_path_writes_no_debug_line_of_its_own(program):
    DEBUG_FILE.unlink(missing_ok=True)
    forged = "(check_user)(7) somebody else\r"
    program.request("PUT", f"/server\n{forged}\n/x", "{}")
    lines = DEBUG_FILE.read_text().splitlines()
    assert len(lines) == 1
    assert lines[0].endswith(r"[0]:server\n(check_user)(7) somebody else\r\n, [1]:x, [2]:(null)")
