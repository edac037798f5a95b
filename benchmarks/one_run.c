// Runs a program once and prints what that took: whole-process time and peak memory.
//
// usage: bench_one_run PROGRAM
// Prints "microseconds kilobytes". The program gets the caller's environment, nothing to read and
// nowhere to print to. It is started from here because what starts it must be small: until a
// process runs its own program, the memory of the one that it came from counts as its own.
#define _GNU_SOURCE
#include <fcntl.h>
#include <spawn.h>
#include <stdio.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <time.h>

static double microseconds(void) {
    struct timespec now;
    clock_gettime(CLOCK_MONOTONIC, &now);
    return (double)now.tv_sec * 1e6 + (double)now.tv_nsec / 1e3;
}

int main(int argc, char** argv) {
    extern char** environ;
    if (argc != 2) {
        fputs("usage: bench_one_run PROGRAM\n", stderr);
        return 2;
    }
    posix_spawn_file_actions_t files;
    posix_spawn_file_actions_init(&files);
    posix_spawn_file_actions_addopen(&files, 0, "/dev/null", O_RDONLY, 0);
    posix_spawn_file_actions_addopen(&files, 1, "/dev/null", O_WRONLY, 0);
    char* arguments[] = {argv[1], NULL};
    const double begin = microseconds();
    pid_t pid;
    int status;
    struct rusage usage;
    if (posix_spawn(&pid, argv[1], &files, NULL, arguments, environ) != 0 ||
        wait4(pid, &status, 0, &usage) != pid) {
        perror(argv[1]);
        return 1;
    }
    const double elapsed = microseconds() - begin;
    if (status != 0) {
        fprintf(stderr, "%s has failed\n", argv[1]);
        return 1;
    }
    printf("%.0f %ld\n", elapsed, usage.ru_maxrss);
    return 0;
}
