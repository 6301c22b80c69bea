/* SPDX-License-Identifier: Apache-2.0 */
/*
 * gateway-writer DIRECTORY [INTERVAL_MS]
 *
 * Changes settings of the example database one after the other, like the web
 * interface of a gateway would: each type with its own call, each leaf locked
 * while it is written. Ends with a reset to default values and a flush to the
 * device. Stops at the first change that fails, with exit code 1.
 */
#define _POSIX_C_SOURCE 200809L
#include <errno.h>
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <time.h>

#include "directory.h"
#include "error_text.h"
#include "tavdb.h"

struct change {
    const char *path;
    int32_t type;     /* enum tavDBMType; says which of the next members counts */
    int64_t whole;    /* integers */
    double real;      /* floating-point numbers */
    const char *text; /* text; and bytes, which may hold a NUL */
    int32_t bytes;    /* length of bytes */
};

/*
 * Every type once. A path is the names along the way; a node's name ends in "/".
 * None of the leaves with text or bytes has a hook before writes: it might
 * change these constants in place.
 */
static const struct change changes[] = {
    {.path = "/network/lan/name", .type = TAVDB_TYPE_TEXT, .text = "attic"},
    {.path = "/network/lan/mtuBytes", .type = TAVDB_TYPE_U16, .whole = 1400},
    {.path = "/network/lan/macAddress", .type = TAVDB_TYPE_BYTES, .text = "\x02\x00\xc0\xa8\x14\x01", .bytes = 6},
    {.path = "/network/dhcp/leaseTimeS", .type = TAVDB_TYPE_U32, .whole = 7200},
    {.path = "/network/wan/shaper/uploadBps", .type = TAVDB_TYPE_U64, .whole = 35000000},
    {.path = "/network/wan/shaper/overheadBytes", .type = TAVDB_TYPE_S8, .whole = -4},
    {.path = "/network/wan/shaper/targetDelayMs", .type = TAVDB_TYPE_F32, .real = 7.5},
    {.path = "/wireless/radio0/channel", .type = TAVDB_TYPE_U8, .whole = 11}, /* this one has a hook */
    {.path = "/wireless/radio0/noiseLimitDbm", .type = TAVDB_TYPE_S16, .whole = -92},
    {.path = "/services/ntp/offsetUs", .type = TAVDB_TYPE_S32, .whole = -1500},
    {.path = "/services/ntp/driftPpm", .type = TAVDB_TYPE_F64, .real = 0.0625},
    {.path = "/system/update/lastCheck", .type = TAVDB_TYPE_S64, .whole = 1760090000},
};

/* The data medium of a database directory, see docs/FORMAT.md. */
static const int32_t dataMedium = 5;
static const long longestIntervalMs = 60000;

static int tell(const char *what, const char *path, uint32_t code, uint32_t detail) {
    const struct errorText *const error = findErrorText(code);
    fprintf(stderr, "writer: %s %s: %s (code %u %s, detail %u)\n", what, path, error->sentence, (unsigned int)code,
            error->name, (unsigned int)detail);
    return 1;
}

/* One call for each type. The leaf's own type is not compared with the call: a
   wrong one would write another number of bytes, and only a constraint notices. */
static int32_t setValue(tavDBMSession *session, uint32_t leaf, const struct change *change) {
    switch (change->type) {
        case TAVDB_TYPE_TEXT:
            return tavDBMSetString(session, leaf, change->text);
        case TAVDB_TYPE_S8:
            return tavDBMSetSint8(session, leaf, (int8_t)change->whole);
        case TAVDB_TYPE_S16:
            return tavDBMSetSint16(session, leaf, (int16_t)change->whole);
        case TAVDB_TYPE_S32:
            return tavDBMSetSint32(session, leaf, (int32_t)change->whole);
        case TAVDB_TYPE_S64:
            return tavDBMSetSint64(session, leaf, change->whole);
        case TAVDB_TYPE_U8:
            return tavDBMSetUint8(session, leaf, (uint8_t)change->whole);
        case TAVDB_TYPE_U16:
            return tavDBMSetUint16(session, leaf, (uint16_t)change->whole);
        case TAVDB_TYPE_U32:
            return tavDBMSetUint32(session, leaf, (uint32_t)change->whole);
        case TAVDB_TYPE_U64:
            return tavDBMSetUint64(session, leaf, (uint64_t)change->whole);
        case TAVDB_TYPE_F32:
            return tavDBMSetFloat32(session, leaf, (float)change->real);
        case TAVDB_TYPE_F64:
            return tavDBMSetFloat64(session, leaf, change->real);
        default: /* bytes, and any type of one's own */
            return tavDBMSetGeneric(session, leaf, change->text, change->bytes);
    }
}

static void printChange(const struct change *change) {
    printf("writer: %s = ", change->path);
    if (change->type == TAVDB_TYPE_TEXT)
        printf("'%s'", change->text);
    else if (change->type == TAVDB_TYPE_F32 || change->type == TAVDB_TYPE_F64)
        printf("%.9g", change->real);
    else if (change->type != TAVDB_TYPE_BYTES)
        printf("%lld", (long long)change->whole);
    for (int32_t i = 0; i < change->bytes; i++)
        printf("%02x", (unsigned int)(unsigned char)change->text[i]);
    printf("\n");
}

static int apply(tavDBMSession *session, const struct change *change) {
    session->errorCode = 0; /* successful calls leave an old code where it is */
    const uint32_t leaf = tavDBMSearchByName(session, change->path);
    if (leaf == 0)
        return tell("finding", change->path, session->errorCode, session->errorDetail);
    /* Others see either the old value or the new one, if they lock as well. */
    int32_t code = tavDBMLock(session, leaf, TAVDB_LOCK_WAIT);
    if (code != 0)
        return tell("locking", change->path, (uint32_t)code, session->errorDetail);
    session->errorCode = 0;
    code = setValue(session, leaf, change);
    /* A write that the medium cut short returns 0 too, and is told in the session only. */
    const uint32_t failure = code != 0 ? (uint32_t)code : session->errorCode;
    const uint32_t detail = session->errorDetail;
    code = tavDBMUnlock(session, leaf);
    if (failure != 0)
        return tell("writing", change->path, failure, detail);
    if (code != 0)
        return tell("unlocking", change->path, (uint32_t)code, session->errorDetail);
    printChange(change);
    return 0;
}

/* The current values of every leaf below a node become their default values. */
static int resetToDefault(tavDBMSession *session, const char *path) {
    session->errorCode = 0;
    const uint32_t node = tavDBMSearchByName(session, path);
    if (node == 0)
        return tell("finding", path, session->errorCode, session->errorDetail);
    const int32_t code = tavDBMDefaultToCurrent(session, node);
    if (code != 0)
        return tell("resetting", path, (uint32_t)code, session->errorDetail);
    printf("writer: %s is reset to its default values\n", path);
    return 0;
}

/* Mapped images are on the device for certain only after this. */
static int flush(tavDBMSession *session) {
    session->errorCode = 0;
    const int32_t code = tavDBMSync(session, dataMedium, 0);
    const uint32_t failure = code != 0 ? (uint32_t)code : session->errorCode;
    if (failure != 0)
        return tell("flushing", "values", failure, session->errorDetail);
    printf("writer: flushed to the device\n");
    return 0;
}

static void pauseMs(long intervalMs) {
    const struct timespec interval = {intervalMs / 1000, intervalMs % 1000 * 1000000};
    nanosleep(&interval, NULL);
}

static int changeSettings(tavDBMSession *session, long intervalMs) {
    for (size_t i = 0; i < sizeof changes / sizeof changes[0]; i++) {
        if (apply(session, &changes[i]) != 0)
            return 1;
        pauseMs(intervalMs);
    }
    if (resetToDefault(session, "/network/dns/") != 0)
        return 1;
    return flush(session);
}

/* Attach, open a session, work, and both back in reverse order. */
static int run(const tavDBMDescription *description, long intervalMs) {
    int32_t error = 0;
    const int32_t database = tavDBMInit(description, &error);
    if (database < 0)
        return tell("attaching to", description->mediaPath, (uint32_t)error, 0);
    tavDBMSession session;
    int failed = 1;
    const int32_t code = tavDBMInitSession(&session, (uint32_t)database);
    if (code != 0) {
        tell("opening a session of", description->mediaPath, (uint32_t)code, 0);
    } else {
        failed = changeSettings(&session, intervalMs);
        tavDBMTermSession(&session);
    }
    tavDBMTerm((uint32_t)database);
    return failed;
}

static int readInterval(const char *text, long *intervalMs) {
    char *end = NULL;
    errno = 0;
    *intervalMs = strtol(text, &end, 10);
    return errno == 0 && end != text && *end == '\0' && *intervalMs >= 0 && *intervalMs <= longestIntervalMs;
}

int main(int argc, char **argv) {
    long intervalMs = 200;
    if (argc < 2 || argc > 3 || (argc == 3 && !readInterval(argv[2], &intervalMs))) {
        fprintf(stderr, "usage: gateway-writer DIRECTORY [INTERVAL_MS]\n");
        return 2;
    }
    setvbuf(stdout, NULL, _IOLBF, 0); /* lines of several programs keep their order */
    tavDBMDescription description;
    const int error = describeDirectory(argv[1], &description);
    if (error != 0) {
        fprintf(stderr, "writer: %s: %s\n", argv[1], strerror(error));
        return 1;
    }
    const int failed = run(&description, intervalMs);
    return failed != 0 || ferror(stdout) != 0;
}
