/* SPDX-License-Identifier: Apache-2.0 */
/*
 * A medium for trying out applications: a plain file that is slow, full or
 * broken when the environment variable FAULTY_MEDIUM says so. It works on the
 * images that "tavdb build" makes: put its line into media.conf in place of
 * another one. docs/PLUGINS.md goes through this file step by step. No medium
 * for a device: it protects nothing and is meant to fail.
 */
#define _XOPEN_SOURCE 700
#define _FILE_OFFSET_BITS 64 /* offsets reach to 4 GiB, also on 32-bit machines */
#include <errno.h>
#include <fcntl.h>
#include <stdatomic.h>
#include <stdbool.h>
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <time.h>
#include <unistd.h>

#include "tavdb_platform.h" /* the trace; brings tavdb_plugin.h, where the signatures are explained */

/* The names in the line of media.conf. The debug function's name is fixed, and declared already. */
TAVDB_API int32_t faultyOpen(const char *hint, uint32_t openArg, uint32_t *err);
TAVDB_API int32_t faultyClose(int32_t fd, uint32_t *err);
TAVDB_API int32_t faultyRead(int32_t fd, void *buffer, int32_t length, uint32_t offset, uint32_t *err);
TAVDB_API int32_t faultyWrite(int32_t fd, const void *buffer, int32_t length, uint32_t offset, uint32_t *err);
TAVDB_API int32_t faultySeek(int32_t fd, int32_t offset, int32_t whence, uint32_t *err);
TAVDB_API int32_t faultySync(int32_t fd, uint32_t *err, uint32_t arg);

/* ---- what the environment asks for ------------------------------------- */

/* One function's trouble. Set while the library is loaded, then only counted in, by any thread. */
struct trouble {
    const char *function;
    long delayUs;
    long every; /* each so-manieth call fails; 0: none does */
    int error;  /* with this number; 0: only half of the bytes are transferred */
    atomic_uint calls;
    atomic_uint faults;
};

static struct trouble s_open = {.function = "open"};
static struct trouble s_close = {.function = "close"};
static struct trouble s_read = {.function = "read"};
static struct trouble s_write = {.function = "write"};
static struct trouble s_seek = {.function = "seek"};
static struct trouble s_sync = {.function = "sync"};
static struct trouble *const s_troubles[] = {&s_open, &s_close, &s_read, &s_write, &s_seek, &s_sync};
enum { troubleCount = sizeof s_troubles / sizeof s_troubles[0] };

static const struct {
    const char *name;
    int error;
} s_errors[] = {{"short", 0}, {"EACCES", EACCES}, {"EIO", EIO}, {"ENODEV", ENODEV}, {"ENOSPC", ENOSPC}};

static bool s_settingsAreBad;

static struct trouble *findTrouble(const char *function) {
    for (size_t i = 0; i < troubleCount; i++)
        if (strcmp(s_troubles[i]->function, function) == 0)
            return s_troubles[i];
    return NULL;
}

static bool findError(const char *name, int *error) {
    for (size_t i = 0; i < sizeof s_errors / sizeof s_errors[0]; i++)
        if (strcmp(s_errors[i].name, name) == 0) {
            *error = s_errors[i].error;
            return true;
        }
    return false;
}

/* One word: FUNCTION=DELAY_US or FUNCTION=DELAY_US,ERROR,EVERY. */
static bool takeSetting(const char *word) {
    char function[8];
    char error[8];
    int length = 0;
    long delayUs = 0;
    long every = 0;
    const int fields =
        sscanf(word, "%7[a-z]=%9ld%n,%7[A-Za-z],%9ld%n", function, &delayUs, &length, error, &every, &length);
    struct trouble *const trouble = fields >= 2 ? findTrouble(function) : NULL;
    if (trouble == NULL || word[length] != '\0' || delayUs < 0)
        return false;
    if (fields == 4 && (every < 1 || !findError(error, &trouble->error)))
        return false;
    if (fields == 4 && trouble->error == 0 && trouble != &s_read && trouble != &s_write)
        return false; /* only transfers can be short */
    trouble->delayUs = delayUs;
    trouble->every = every;
    return true;
}

/*
 * Runs while the library is loaded, that is once in a process, however many
 * lines of media.conf name it. Nothing here can refuse the line: the functions
 * do, if what was asked for is not understood.
 */
__attribute__((constructor)) static void takeSettings(void) {
    const char *const settings = getenv("FAULTY_MEDIUM");
    char *const copy = strdup(settings != NULL ? settings : "");
    char *rest = NULL;
    s_settingsAreBad = copy == NULL;
    for (char *word = copy != NULL ? strtok_r(copy, " ", &rest) : NULL; word != NULL; word = strtok_r(NULL, " ", &rest))
        if (!takeSetting(word)) {
            dbs_me_debug_trace(0, "faulty_medium: FAULTY_MEDIUM: \"%s\" is not understood\n", word);
            s_settingsAreBad = true;
        }
    free(copy);
}

/* Counts the call and lets it take its time. @return whether it is to fail */
static bool isInTrouble(struct trouble *trouble) {
    const unsigned call = atomic_fetch_add(&trouble->calls, 1) + 1;
    struct timespec left = {.tv_sec = trouble->delayUs / 1000000, .tv_nsec = trouble->delayUs % 1000000 * 1000};
    while (trouble->delayUs != 0 && nanosleep(&left, &left) != 0 && errno == EINTR) {
    }
    if (trouble->every == 0 || call % (unsigned long)trouble->every != 0)
        return false;
    atomic_fetch_add(&trouble->faults, 1);
    return true;
}

/* ---- the medium -------------------------------------------------------- */

/* errno as well: the detail of a few constraint records is taken from there. */
static int32_t failWith(uint32_t *err, int error) {
    *err = (uint32_t)error;
    errno = error;
    return -1;
}

/*
 * Nothing is kept between calls: the descriptor is the file's own, so threads,
 * processes and children of a fork cannot get into each other's way, and what
 * one of them wrote is what the next one reads.
 */
int32_t faultyOpen(const char *hint, uint32_t openArg, uint32_t *err) {
    (void)openArg; /* always 0 */
    if (s_settingsAreBad)
        return failWith(err, EINVAL);
    if (isInTrouble(&s_open))
        return failWith(err, s_open.error);
    const int fd = open(hint, O_RDWR | O_CLOEXEC); /* neither made nor cut: images are made by tools */
    return fd >= 0 ? fd : failWith(err, errno);
}

int32_t faultyClose(int32_t fd, uint32_t *err) {
    const bool hasFailed = isInTrouble(&s_close);
    /* Closed in any case: the library does not call again. An interrupted close has closed, too. */
    if (close(fd) != 0 && errno != EINTR)
        return failWith(err, errno);
    return hasFailed ? failWith(err, s_close.error) : 0;
}

/* How many bytes the call is to transfer; below 0 none, and it has failed. */
static int32_t allowed(struct trouble *trouble, int32_t length, uint32_t *err) {
    if (length < 0)
        return failWith(err, EINVAL);
    if (!isInTrouble(trouble))
        return length;
    return trouble->error != 0 ? failWith(err, trouble->error) : length / 2;
}

int32_t faultyRead(int32_t fd, void *buffer, int32_t length, uint32_t offset, uint32_t *err) {
    const int32_t wanted = allowed(&s_read, length, err);
    int32_t done = 0;
    while (done < wanted) {
        const ssize_t count = pread(fd, (char *)buffer + done, (size_t)(wanted - done), (off_t)offset + done);
        if (count < 0 && errno != EINTR)
            return failWith(err, errno);
        if (count == 0)
            break; /* the medium's end: the count says so, it is no error */
        done += count > 0 ? (int32_t)count : 0;
    }
    return wanted < 0 ? wanted : done;
}

int32_t faultyWrite(int32_t fd, const void *buffer, int32_t length, uint32_t offset, uint32_t *err) {
    const int32_t wanted = allowed(&s_write, length, err);
    int32_t done = 0;
    while (done < wanted) {
        const ssize_t count = pwrite(fd, (const char *)buffer + done, (size_t)(wanted - done), (off_t)offset + done);
        if (count < 0 && errno != EINTR)
            return failWith(err, errno);
        done += count > 0 ? (int32_t)count : 0;
    }
    return wanted < 0 ? wanted : done;
}

/* The library asks for the end only, to append there. */
int32_t faultySeek(int32_t fd, int32_t offset, int32_t whence, uint32_t *err) {
    if (isInTrouble(&s_seek))
        return failWith(err, s_seek.error);
    const off_t position = lseek(fd, offset, whence);
    if (position > INT32_MAX)
        return failWith(err, EOVERFLOW);
    return position >= 0 ? (int32_t)position : failWith(err, errno);
}

int32_t faultySync(int32_t fd, uint32_t *err, uint32_t arg) {
    (void)arg; /* the third argument of tavDBMSync, for media that know several kinds of flush */
    if (isInTrouble(&s_sync))
        return failWith(err, s_sync.error);
    return fsync(fd) == 0 ? 0 : failWith(err, errno);
}

int32_t dbs_me_db_media_file_debug_info(int32_t level, uint32_t *debugSize, uint32_t *ramSize) {
    dbs_me_debug_trace(level, "====(faulty_medium)\n");
    for (size_t i = 0; i < troubleCount; i++)
        dbs_me_debug_trace(level, "[%10u][%10u]:%s\n", atomic_load(&s_troubles[i]->calls),
                           atomic_load(&s_troubles[i]->faults), s_troubles[i]->function);
    (void)debugSize; /* keeps nothing for debugging alone */
    if (ramSize != NULL)
        *ramSize += sizeof s_open * troubleCount;
    return 0;
}
