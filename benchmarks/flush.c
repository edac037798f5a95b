// What a flush costs beside the empty program: writes a page of a file in the folder that the
// environment has as RECORDER_STATE, and waits until the disk has it. The file has its length from
// the first time on, as the databases' write-ahead files have: one that grows takes longer.
#include <fcntl.h>
#include <stdio.h>
#include <stdlib.h>
#include <unistd.h>

enum { PAGE = 4096, PAGES = 1024 };

static const char page[PAGE];

static int write_page(int file, int number) {
    return pwrite(file, page, PAGE, (off_t)number * PAGE) == PAGE;
}

static int fill(int file) {
    int number = (int)(lseek(file, 0, SEEK_END) / PAGE);
    while (number < PAGES && write_page(file, number)) ++number;
    return number == PAGES;
}

int main(void) {
    const char* folder = getenv("RECORDER_STATE");
    if (folder == NULL || chdir(folder) != 0) {
        perror("RECORDER_STATE");
        return 1;
    }
    const int file = open("bench-flush", O_WRONLY | O_CREAT | O_CLOEXEC, 0600);
    if (file < 0 || !fill(file) || !write_page(file, getpid() % PAGES) || fdatasync(file) != 0) {
        perror("bench-flush");
        return 1;
    }
    return 0;
}
