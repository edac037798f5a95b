"""The recorder with a program in the CGI program's place that shows what the web server gave it."""
import shutil
import subprocess
from contextlib import contextmanager

import loopback
from places import CGI
from service_process import ended_afterwards, start_recorder

PORT = 8080
PROGRAM = "/cgi-bin/recording_backup.cgi"
AWAKE = CGI.with_name("awake")  # a program that sleeps does so until this is there, too

# Answers a download as the real program does, sleeps for 20 seconds and more, crashes or has a
# status of its own where the path says so, and answers anything else with its environment.
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
    if (!strcmp(text("PATH_INFO"), "/crash")) abort();
    if (!strcmp(text("PATH_INFO"), "/sleep")) {
        while (getchar() != EOF) continue;
        for (sleep(20); access(AWAKE, F_OK); ) usleep(20000);
    }
    if (!strncmp(text("PATH_INFO"), "/says/", 6)) {
        printf("Status: %s Said\r\nContent-type: application/json\r\n\r\n{}\n\n",
               text("PATH_INFO") + 6);
        return 0;
    }
    long body = 0;
    while (getchar() != EOF) ++body;
    printf("Status: 200 OK\r\nContent-type: application/json\r\n\r\n"
           "{\"path\": \"%s\", \"client\": \"%s\", \"proxy\": \"%s\", \"user\": %d, \"body\": %ld}",
           text("PATH_INFO"), text("HTTP_X_FORWARDED_FOR"), text("HTTP_PROXY"), geteuid(), body);
}
"""


@contextmanager
def serving(folder):
    """The recorder on PORT; `folder` is for the program's making."""
    stand_in = folder / "program"
    subprocess.run(["c++", "-x", "c++", f'-DAWAKE="{AWAKE}"', "-o", stand_in, "-"], text=True,
                   input=STAND_IN, check=True)
    with ended_afterwards(start_recorder(PORT)):
        shutil.copyfile(stand_in, CGI)  # what was installed keeps its owner, group and mode
        yield


def request(method, path, body=None, headers=None):
    return loopback.request(PORT, method, path, body, headers)
