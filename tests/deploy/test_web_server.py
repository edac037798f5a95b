"""The web server's rules, with a stand-in CGI program that shows what it was given."""
import shutil
import subprocess

import pytest

import loopback
from places import CGI, LOG_EXPORT, LOG_LINK, LOGS
from service_process import ended_afterwards, start_recorder

PORT = 8080
PROGRAM = "/cgi-bin/recording_backup.cgi"
EXPORT = "/cgi-bin/Ostra-RecordingbackLog.csv"

# Answers a download as the real program does, anything else with its environment.
STAND_IN = r"""
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <unistd.h>
static const char* text(const char* name) { const char* v = getenv(name); return v ? v : ""; }
int main() {
    if (!strcmp(text("PATH_INFO"), "/task/log/file")) {
        printf("Status: 200 OK\r\nLocation: /cgi-bin/Ostra-RecordingbackLog.csv\n"
               "Content-Type: application/octet-stream\n"
               "Content-Disposition: attachment; filename=dated.csv\r\n\r\n");
        return 0;
    }
    long body = 0;
    while (getchar() != EOF) ++body;
    printf("Status: 200 OK\r\nContent-type: application/json\r\n\r\n"
           "{\"path\": \"%s\", \"client\": \"%s\", \"proxy\": \"%s\", \"user\": %d, \"body\": %ld}",
           text("PATH_INFO"), text("HTTP_X_FORWARDED_FOR"), text("HTTP_PROXY"), geteuid(), body);
}
"""


@pytest.fixture(scope="module", autouse=True)
def server(tmp_path_factory):
    stand_in = tmp_path_factory.mktemp("stand-in") / "program"
    subprocess.run(["c++", "-x", "c++", "-o", stand_in, "-"], text=True, input=STAND_IN, check=True)
    with ended_afterwards(start_recorder(PORT)):
        shutil.copyfile(stand_in, CGI)  # what was installed keeps its owner, group and mode
        LOG_EXPORT.write_text("a,b\n")
        LOG_LINK.symlink_to(LOG_EXPORT)
        (CGI.parent / "other.csv").write_text("secret\n")
        yield


def request(method, path, body=None, headers=None):
    return loopback.request(PORT, method, path, body, headers)


def given(path, **options):
    """What the program was given in a request that reached it."""
    reply = request("PUT", PROGRAM + path, **options)
    assert reply.status == 200
    return reply.json


def test_the_program_gets_the_path_and_runs_as_root():
    seen = given("/task/7/active")
    assert seen["path"] == "/task/7/active"
    assert seen["user"] == 0


def test_the_client_address_is_the_servers_word_not_the_clients():
    assert given("/task", headers={"X-Forwarded-For": "203.0.113.9"})["client"] == "127.0.0.1"


def test_a_proxy_header_does_not_become_a_proxy_setting():
    assert given("/task", headers={"Proxy": "http://203.0.113.9/"})["proxy"] == ""


def test_a_download_comes_through_the_program_with_the_attachments_name():
    reply = request("GET", PROGRAM + "/task/log/file")
    assert (reply.status, reply.body) == (200, b"a,b\n")
    assert reply.headers["Content-Disposition"] == "attachment; filename=dated.csv"
    assert reply.headers["Content-Type"] == "application/octet-stream"


@pytest.mark.parametrize("path", [
    EXPORT,
    EXPORT + "/task/log/file",
    "//cgi-bin//Ostra-RecordingbackLog.csv",
    PROGRAM + "/../Ostra-RecordingbackLog.csv",
    "/cgi-bin/other.csv",
    "/recorder/sbin/recorderctl",
    "/cgi-bin/",
    "/",
])
def test_nothing_but_the_program_can_be_asked_for(path):
    for headers in ({}, {"REDIRECT_STATUS": "200", "Redirect-Status": "200"}):
        assert request("GET", path, headers=headers).status == 403


def test_a_body_of_one_mebibyte_reaches_the_program():
    assert given("/task", body=b"x" * 2**20)["body"] == 2**20


def test_a_much_longer_body_is_refused():
    assert request("PUT", PROGRAM + "/task", body=b"x" * (2**20 + 2**17)).status == 413


def test_trace_is_off_and_the_server_does_not_tell_its_version():
    reply = request("TRACE", PROGRAM + "/task")
    assert reply.status == 405
    assert reply.headers["Server"] == "Apache"


def test_session_identifiers_do_not_reach_the_logs():
    given("/task?sid=0123456789abcdef", headers={"Cookie": "sid=fedcba9876543210"})
    for log in LOGS.iterdir():
        text = log.read_text()
        assert "0123456789abcdef" not in text and "fedcba9876543210" not in text


def test_the_program_is_for_the_web_servers_group_alone():
    program = CGI.stat()
    assert program.st_mode & 0o7777 == 0o4750
    assert program.st_uid == 0
