/* SPDX-License-Identifier: Apache-2.0 */
/*
 * one-read DIRECTORY PATH
 *
 * What a process costs that attaches to a database, reads one text or number and
 * detaches: microseconds of each step, and the memory that is this process's own.
 * Prints "attach READ detach PRIVATE-KIB" on one line.
 */
#define _POSIX_C_SOURCE 200809L
#include <stdio.h>
#include <string.h>
#include <time.h>

#include "gateway/directory.h"
#include "tavdb.h"

static double now(void) {
    struct timespec t;
    clock_gettime(CLOCK_MONOTONIC, &t);
    return (double)t.tv_sec * 1e6 + (double)t.tv_nsec / 1e3;
}

/* Kibibytes of pages that no other process shares. */
static long privateMemory(void) {
    FILE *file = fopen("/proc/self/smaps_rollup", "re");
    char line[256];
    long sum = 0;
    long kib;
    while (file != NULL && fgets(line, sizeof line, file) != NULL)
        if (sscanf(line, "Private_Clean: %ld", &kib) == 1 || sscanf(line, "Private_Dirty: %ld", &kib) == 1)
            sum += kib;
    if (file != NULL)
        fclose(file);
    return sum;
}

int main(int argc, char **argv) {
    tavDBMDescription description;
    tavDBMSession session;
    char value[256];
    int32_t length = sizeof value;
    if (argc != 3 || describeDirectory(argv[1], &description) != 0)
        return 2;
    const double start = now();
    const int32_t database = tavDBMInit(&description, NULL);
    if (database < 0 || tavDBMInitSession(&session, (uint32_t)database) != 0)
        return 1;
    const double attached = now();
    const uint32_t leaf = tavDBMSearchByName(&session, argv[2]);
    if (tavDBMGetGeneric(&session, leaf, value, &length) != 0)
        return 1;
    const double read = now();
    const long memory = privateMemory();
    const double measured = now();
    if (tavDBMTermSession(&session) != 0 || tavDBMTerm((uint32_t)database) != 0)
        return 1;
    printf("%.1f %.1f %.1f %ld\n", attached - start, read - attached, now() - measured, memory);
    return 0;
}
