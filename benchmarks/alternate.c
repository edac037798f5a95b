// Runs two programs in turn and prints, for each, its median whole-process time and peak memory.
//
// usage: bench_alternate RUNS INPUT PROGRAM OTHER
// Prints "microseconds kilobytes" of PROGRAM, then of OTHER. Both get the caller's environment, the
// file INPUT as standard input, and nowhere to print to.
#define _GNU_SOURCE
#include <fcntl.h>
#include <spawn.h>
#include <stdio.h>
#include <stdlib.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <time.h>

enum { MAX_RUNS = 10000 };

static double microseconds(void) {
    struct timespec now;
    clock_gettime(CLOCK_MONOTONIC, &now);
    return (double)now.tv_sec * 1e6 + (double)now.tv_nsec / 1e3;
}

static int ascending(const void* left, const void* right) {
    const double a = *(const double*)left;
    const double b = *(const double*)right;
    return (a > b) - (a < b);
}

// One run from start to end; raises *peak to its peak memory.
static double run(char* program, const posix_spawn_file_actions_t* files, long* peak) {
    extern char** environ;
    char* arguments[] = {program, NULL};
    const double begin = microseconds();
    pid_t pid;
    struct rusage usage;
    if (posix_spawn(&pid, program, files, NULL, arguments, environ) != 0 ||
        wait4(pid, NULL, 0, &usage) != pid) {
        perror(program);
        exit(1);
    }
    const double elapsed = microseconds() - begin;
    if (usage.ru_maxrss > *peak) *peak = usage.ru_maxrss;
    return elapsed;
}

int main(int argc, char** argv) {
    static double times[2][MAX_RUNS];
    const int runs = argc == 5 ? atoi(argv[1]) : 0;
    if (runs < 1 || runs > MAX_RUNS) {
        fputs("usage: bench_alternate RUNS INPUT PROGRAM OTHER\n", stderr);
        return 2;
    }
    posix_spawn_file_actions_t files;
    posix_spawn_file_actions_init(&files);
    posix_spawn_file_actions_addopen(&files, 0, argv[2], O_RDONLY, 0);
    posix_spawn_file_actions_addopen(&files, 1, "/dev/null", O_WRONLY, 0);
    long peak[2] = {0, 0};
    for (int i = 0; i < runs; ++i)
        for (int which = 0; which < 2; ++which)
            times[which][i] = run(argv[3 + which], &files, &peak[which]);
    for (int which = 0; which < 2; ++which) {
        qsort(times[which], (size_t)runs, sizeof(double), ascending);
        printf("%.0f %ld\n", times[which][runs / 2], peak[which]);
    }
    return 0;
}
