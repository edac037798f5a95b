// Runs a program whenever its turn comes, and prints each run's whole-process time and peak memory.
//
// usage: bench_turns RUNS FROM TO PROGRAM INPUT...
// A turn is a byte: it comes on descriptor FROM, and is handed on to descriptor TO after the run, so
// several of these in a ring take turns with nothing between their runs. The program gets the
// caller's environment, one of the files as standard input, one after the other and then the first
// again, and nowhere to print to. Prints a line "microseconds kilobytes" a run, after the last. Fails
// when the program does.
#define _GNU_SOURCE
#include <fcntl.h>
#include <spawn.h>
#include <stdio.h>
#include <stdlib.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>

enum { MAX_RUNS = 10000 };

struct run {
    double microseconds;
    long kilobytes;
};

static double microseconds(void) {
    struct timespec now;
    clock_gettime(CLOCK_MONOTONIC, &now);
    return (double)now.tv_sec * 1e6 + (double)now.tv_nsec / 1e3;
}

static struct run run(char* program, const char* input) {
    extern char** environ;
    posix_spawn_file_actions_t files;
    posix_spawn_file_actions_init(&files);
    posix_spawn_file_actions_addopen(&files, 0, input, O_RDONLY, 0);
    posix_spawn_file_actions_addopen(&files, 1, "/dev/null", O_WRONLY, 0);
    char* arguments[] = {program, NULL};
    const double begin = microseconds();
    pid_t pid;
    int status;
    struct rusage usage;
    if (posix_spawn(&pid, program, &files, NULL, arguments, environ) != 0 ||
        wait4(pid, &status, 0, &usage) != pid) {
        perror(program);
        exit(1);
    }
    const struct run done = {microseconds() - begin, usage.ru_maxrss};
    posix_spawn_file_actions_destroy(&files);
    if (status != 0) {
        fprintf(stderr, "bench_turns: %s failed: wait status 0x%04x\n", program, (unsigned)status);
        exit(1);
    }
    return done;
}

static int descriptor(const char* word) {
    const int number = atoi(word);
    fcntl(number, F_SETFD, FD_CLOEXEC);
    return number;
}

int main(int argc, char** argv) {
    static struct run runs[MAX_RUNS];
    const int count = argc > 5 ? atoi(argv[1]) : 0;
    if (count < 1 || count > MAX_RUNS) {
        fputs("usage: bench_turns RUNS FROM TO PROGRAM INPUT...\n", stderr);
        return 2;
    }
    const int from = descriptor(argv[2]);
    const int to = descriptor(argv[3]);
    const int inputs = argc - 5;
    char turn;
    for (int i = 0; i < count; ++i) {
        if (read(from, &turn, 1) != 1) return 1;  // another one failed, and says why
        runs[i] = run(argv[4], argv[5 + i % inputs]);
        if (write(to, &turn, 1) != 1) return 1;
    }
    for (int i = 0; i < count; ++i) printf("%.1f %ld\n", runs[i].microseconds, runs[i].kilobytes);
    return 0;
}
