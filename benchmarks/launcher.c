/* SPDX-License-Identifier: Apache-2.0 */
/*
 * launcher PROGRAM ARGUMENT...
 *
 * Runs a program without its output and writes "STATUS SECONDS PROCESSOR KIB" to
 * descriptor 3: its wait status, how long it took, how much of that it had a
 * processor for, and the most memory that was resident. A
 * program's account of memory begins with what its parent has, so the parent is
 * as small as this. Without a program it is one that does nothing.
 */
#define _GNU_SOURCE
#include <fcntl.h>
#include <spawn.h>
#include <stdio.h>
#include <sys/resource.h>
#include <sys/time.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>

static double secondsOf(struct timeval time) {
    return (double)time.tv_sec + (double)time.tv_usec / 1e6;
}

static double now(void) {
    struct timespec t;
    clock_gettime(CLOCK_MONOTONIC, &t);
    return (double)t.tv_sec + (double)t.tv_nsec / 1e9;
}

int main(int argc, char **argv) {
    posix_spawn_file_actions_t actions;
    struct rusage usage;
    pid_t process;
    int status = -1;
    if (argc < 2)
        return 0;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, STDOUT_FILENO, "/dev/null", O_WRONLY, 0);
    posix_spawn_file_actions_addopen(&actions, STDERR_FILENO, "/dev/null", O_WRONLY, 0);
    posix_spawn_file_actions_addclose(&actions, 3);
    const double start = now();
    if (posix_spawn(&process, argv[1], &actions, NULL, argv + 1, environ) != 0 ||
        wait4(process, &status, 0, &usage) != process)
        return 1;
    const double taken = now() - start;
    const double processor = secondsOf(usage.ru_utime) + secondsOf(usage.ru_stime);
    return dprintf(3, "%d %.9f %.9f %ld\n", status, taken, processor, usage.ru_maxrss) > 0 ? 0 : 1;
}
