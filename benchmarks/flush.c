// What a flush costs beside the empty program: appends a page to a file in the folder that the
// environment has as RECORDER_STATE, and waits until the disk has it.
#include <fcntl.h>
#include <stdio.h>
#include <stdlib.h>
#include <unistd.h>

enum { PAGE = 4096 };

int main(void) {
    static const char page[PAGE];
    const char* folder = getenv("RECORDER_STATE");
    if (folder == NULL || chdir(folder) != 0) {
        perror("RECORDER_STATE");
        return 1;
    }
    const int file = open("bench-flush", O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0600);
    if (file < 0 || write(file, page, PAGE) != PAGE || fdatasync(file) != 0) {
        perror("bench-flush");
        return 1;
    }
    return 0;
}
