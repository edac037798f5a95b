// The least that a CGI program can do: be nobody but its owner, print the reply to GET /fuse, end.
//
// The web server ends programs that have answered, and waits ten milliseconds for one that it may
// signal and that has not ended yet. It may not signal ours, which give up who started them.
#define _GNU_SOURCE
#include <unistd.h>

int main(void) {
    static const char reply[] =
        "Status: 200 OK\r\n"
        "Content-type: application/json\r\n"
        "\r\n"
        "{ \"ret_code\": 0, \"mesg\": \"Success.\", \"isFUSE\": true }\n\n";
    const ssize_t length = sizeof reply - 1;
    const uid_t owner = geteuid();
    if (setresuid(owner, owner, owner) != 0) return 1;
    return write(STDOUT_FILENO, reply, length) == length ? 0 : 1;
}
