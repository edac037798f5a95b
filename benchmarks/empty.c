// The least that a CGI program can do: print a header and exit.
#include <unistd.h>

int main(void) {
    static const char header[] = "Content-type: text/plain\r\n\r\n";
    return write(STDOUT_FILENO, header, sizeof header - 1) == (ssize_t)(sizeof header - 1) ? 0 : 1;
}
