/* SPDX-License-Identifier: Apache-2.0 */
/*
 * gateway-watcher DIRECTORY PATH [COUNT]
 *
 * Watches the leaves below a node, or one leaf, of a database that other
 * processes change, and prints "PATH: OLD -> NEW" for every value that changed,
 * until SIGTERM or SIGINT, or until COUNT changes were seen. The library sends
 * no notice of changes, so this one looks again and again; on media that are
 * mapped into memory a look costs no system call. Values that come and go
 * between two looks are not seen, and a leaf's read hooks run at each. Which
 * leaves are secrets stands in schema.json and not in the database: this example
 * shows what it is told to watch. Leaves that are created while it runs are not
 * watched.
 */
#define _POSIX_C_SOURCE 200809L
#include <errno.h>
#include <inttypes.h>
#include <signal.h>
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <time.h>

#include "directory.h"
#include "error_text.h"
#include "tavdb.h"
#include "tavdb_modules.h" /* tavdb_getString: the name of a component */

/* A damaged tree may lead in circles: no path is longer, no walk meets more components than this. */
enum { pathBytes = 1024, nameBytes = 256, componentsMax = 1000000 };

/* A leaf, its value as last told, and room for the value as it is now. */
struct watched {
    struct watched *next;
    uint32_t leaf;
    int32_t type;
    int32_t lengthBytes;
    unsigned char *known;
    unsigned char *now;
    char path[pathBytes];
};

struct watch {
    tavDBMSession session;
    struct watched *first;
    struct watched **end; /* where the next leaf is linked */
    unsigned long leaves;
    unsigned long components;
    unsigned long changes;
    unsigned long changesMax; /* 0 is no limit */
};

static const long intervalMs = 20;

static volatile sig_atomic_t endWanted = 0;

static void noteSignal(int number) {
    (void)number;
    endWanted = 1;
}

static int tell(const char *what, const char *path, uint32_t code) {
    const struct errorText *const error = findErrorText(code);
    fprintf(stderr, "watcher: %s %s: %s (code %u %s)\n", what, path, error->sentence, (unsigned int)code, error->name);
    return 1;
}

static int tellMemory(void) {
    fprintf(stderr, "watcher: there is not enough memory\n");
    return 1;
}

union number {
    int8_t s8;
    int16_t s16;
    int32_t s32;
    int64_t s64;
    uint8_t u8;
    uint16_t u16;
    uint32_t u32;
    uint64_t u64;
    float f32;
    double f64;
};

static void printNumber(int32_t type, const union number *number) {
    switch (type) {
        case TAVDB_TYPE_S8:
            printf("%" PRId8, number->s8);
            break;
        case TAVDB_TYPE_S16:
            printf("%" PRId16, number->s16);
            break;
        case TAVDB_TYPE_S32:
            printf("%" PRId32, number->s32);
            break;
        case TAVDB_TYPE_S64:
            printf("%" PRId64, number->s64);
            break;
        case TAVDB_TYPE_U8:
            printf("%" PRIu8, number->u8);
            break;
        case TAVDB_TYPE_U16:
            printf("%" PRIu16, number->u16);
            break;
        case TAVDB_TYPE_U32:
            printf("%" PRIu32, number->u32);
            break;
        case TAVDB_TYPE_U64:
            printf("%" PRIu64, number->u64);
            break;
        case TAVDB_TYPE_F32:
            printf("%.7g", (double)number->f32);
            break;
        default:
            printf("%.15g", number->f64);
    }
}

static int isNumber(const struct watched *leaf) {
    return leaf->type >= TAVDB_TYPE_S8 && leaf->type <= TAVDB_TYPE_F64;
}

/* Values lie in memory as in any variable of their type, in the machine's byte order. */
static void printValue(const struct watched *leaf, const unsigned char *value) {
    union number number = {.u64 = 0};
    if (leaf->type == TAVDB_TYPE_TEXT) {
        printf("'%.*s'", (int)leaf->lengthBytes, (const char *)value);
    } else if (isNumber(leaf) && (size_t)leaf->lengthBytes <= sizeof number) {
        memcpy(&number, value, (size_t)leaf->lengthBytes);
        printNumber(leaf->type, &number);
    } else {
        for (int32_t i = 0; i < leaf->lengthBytes; i++)
            printf("%02x", (unsigned int)value[i]);
    }
}

/* A failed read of the data returns 0 too, and is told in the session only. */
static uint32_t readNow(struct watch *watch, struct watched *leaf) {
    int32_t lengthBytes = leaf->lengthBytes;
    watch->session.errorCode = 0;
    const int32_t code = tavDBMGetGeneric(&watch->session, leaf->leaf, leaf->now, &lengthBytes);
    return code != 0 ? (uint32_t)code : watch->session.errorCode;
}

/* Behind the NUL of a text stands what a longer one left there. */
static int isChanged(const struct watched *leaf) {
    const size_t lengthBytes = (size_t)leaf->lengthBytes;
    if (leaf->type == TAVDB_TYPE_TEXT)
        return strncmp((const char *)leaf->now, (const char *)leaf->known, lengthBytes) != 0;
    return memcmp(leaf->now, leaf->known, lengthBytes) != 0;
}

static void show(struct watch *watch, struct watched *leaf) {
    printf("%s: ", leaf->path);
    printValue(leaf, leaf->known);
    printf(" -> ");
    printValue(leaf, leaf->now);
    printf("\n");
    memcpy(leaf->known, leaf->now, (size_t)leaf->lengthBytes);
    watch->changes++;
}

/* A value may be half written. Under a shared lock it is whole, if its writers lock as well. */
static uint32_t readWhole(struct watch *watch, struct watched *leaf) {
    const int32_t code = tavDBMLock(&watch->session, leaf->leaf, TAVDB_LOCK_TRY | TAVDB_LOCK_SHARED);
    if (code != 0)
        return (uint32_t)code;
    const uint32_t failure = readNow(watch, leaf);
    const int32_t unlocked = tavDBMUnlock(&watch->session, leaf->leaf);
    return failure != 0 ? failure : (uint32_t)unlocked;
}

/* Looks without a lock first: nearly always nothing has changed. */
static int look(struct watch *watch, struct watched *leaf) {
    uint32_t code = readNow(watch, leaf);
    if (code == 0 && isChanged(leaf)) {
        code = readWhole(watch, leaf);
        if (code == TAVDB_ERR_LOCKED)
            return 0; /* being written; the next round sees it */
        if (code == 0 && isChanged(leaf))
            show(watch, leaf);
    }
    return code != 0 ? tell("reading", leaf->path, code) : 0;
}

static int isFull(const struct watch *watch) {
    return watch->changesMax != 0 && watch->changes >= watch->changesMax;
}

static int lookAtAll(struct watch *watch) {
    for (struct watched *leaf = watch->first; leaf != NULL && !isFull(watch); leaf = leaf->next)
        if (look(watch, leaf) != 0)
            return 1;
    return 0;
}

static int watchLeaves(struct watch *watch) {
    const struct timespec interval = {0, intervalMs * 1000000};
    while (!isFull(watch)) {
        const int isLast = endWanted; /* what changed before the signal is still told */
        if (lookAtAll(watch) != 0)
            return 1;
        if (isLast)
            break;
        nanosleep(&interval, NULL); /* a signal ends it early */
    }
    return 0;
}

static void freeLeaves(struct watch *watch) {
    while (watch->first != NULL) {
        struct watched *const leaf = watch->first;
        watch->first = leaf->next;
        free(leaf->known);
        free(leaf->now);
        free(leaf);
    }
}

static int addLeaf(struct watch *watch, uint32_t component, int32_t type, const char *path) {
    struct watched *const leaf = calloc(1, sizeof *leaf);
    if (leaf == NULL)
        return tellMemory();
    *watch->end = leaf; /* freeLeaves finds it from here on */
    watch->end = &leaf->next;
    watch->leaves++;
    leaf->leaf = component;
    leaf->type = type;
    memcpy(leaf->path, path, strlen(path) + 1);
    leaf->lengthBytes = tavDBMGetLength(&watch->session, component);
    if (leaf->lengthBytes < 0)
        return tell("measuring", path, watch->session.errorCode);
    leaf->known = calloc((size_t)leaf->lengthBytes + 1, 1);
    leaf->now = calloc((size_t)leaf->lengthBytes + 1, 1);
    if (leaf->known == NULL || leaf->now == NULL)
        return tellMemory();
    const uint32_t code = readNow(watch, leaf);
    if (code != 0)
        return tell("reading", path, code);
    memcpy(leaf->known, leaf->now, (size_t)leaf->lengthBytes);
    return 0;
}

static int addComponent(struct watch *watch, uint32_t component, char path[pathBytes]);

/* A path grows by the names along the way; a node's name brings its own "/". */
static int addChild(struct watch *watch, uint32_t component, char path[pathBytes]) {
    char name[nameBytes + 1] = {0}; /* a name that fills the buffer comes without its NUL */
    const size_t end = strlen(path);
    watch->session.errorCode = 0;
    const uint32_t key = tavDBMGetStringKey(&watch->session, component);
    if (key == 0 || tavdb_getString(&watch->session, key, name, nameBytes) == NULL)
        return tell("naming a child of", path, watch->session.errorCode);
    if (end + strlen(name) >= pathBytes) {
        fprintf(stderr, "watcher: the paths below %s are too long\n", path);
        return 1;
    }
    memcpy(path + end, name, strlen(name) + 1);
    const int failed = addComponent(watch, component, path);
    path[end] = '\0';
    return failed;
}

static int addChildren(struct watch *watch, uint32_t node, char path[pathBytes]) {
    watch->session.errorCode = 0;
    uint32_t child = tavDBMGetFirstChild(&watch->session, node);
    while (child != 0) {
        if (addChild(watch, child, path) != 0)
            return 1;
        watch->session.errorCode = 0;
        child = tavDBMGetNextChild(&watch->session, child);
    }
    /* 0 is "no more" as well as "failed". */
    return watch->session.errorCode != 0 ? tell("walking below", path, watch->session.errorCode) : 0;
}

static int addComponent(struct watch *watch, uint32_t component, char path[pathBytes]) {
    if (++watch->components > componentsMax) {
        fprintf(stderr, "watcher: there is too much below %s\n", path);
        return 1;
    }
    watch->session.errorCode = 0;
    const int32_t type = tavDBMGetType(&watch->session, component);
    if (type >= 0)
        return addLeaf(watch, component, type, path);
    if (watch->session.errorCode == TAVDB_ERR_NOT_LEAF)
        return addChildren(watch, component, path);
    return tell("looking at", path, watch->session.errorCode);
}

/* A node is found by its name with "/" only; people leave it out. */
static uint32_t find(tavDBMSession *session, char path[pathBytes]) {
    session->errorCode = 0; /* an old code would mislead the search */
    uint32_t component = tavDBMSearchByName(session, path);
    const size_t end = strlen(path);
    if (component == 0 && end + 1 < pathBytes) {
        memcpy(path + end, "/", 2);
        session->errorCode = 0;
        component = tavDBMSearchByName(session, path);
    }
    return component;
}

static int watchPath(struct watch *watch, const char *wanted) {
    char path[pathBytes];
    if (snprintf(path, sizeof path, "%s", wanted) >= pathBytes) {
        fprintf(stderr, "watcher: the path is too long\n");
        return 1;
    }
    const uint32_t component = find(&watch->session, path);
    if (component == 0)
        return tell("finding", wanted, watch->session.errorCode);
    int failed = addComponent(watch, component, path);
    if (failed == 0) {
        printf("watcher %s: watching %lu leaves\n", wanted, watch->leaves);
        failed = watchLeaves(watch);
    }
    if (failed == 0)
        printf("watcher %s: saw %lu changes\n", wanted, watch->changes);
    freeLeaves(watch);
    return failed;
}

/* Attach, open a session, work, and both back in reverse order. */
static int run(const tavDBMDescription *description, const char *path, unsigned long changesMax) {
    int32_t error = 0;
    const int32_t database = tavDBMInit(description, &error);
    if (database < 0)
        return tell("attaching to", description->mediaPath, (uint32_t)error);
    struct watch watch = {.first = NULL, .changesMax = changesMax};
    watch.end = &watch.first;
    int failed = 1;
    const int32_t code = tavDBMInitSession(&watch.session, (uint32_t)database);
    if (code != 0) {
        tell("opening a session of", description->mediaPath, (uint32_t)code);
    } else {
        failed = watchPath(&watch, path);
        tavDBMTermSession(&watch.session);
    }
    tavDBMTerm((uint32_t)database);
    return failed;
}

static int readCount(const char *text, unsigned long *count) {
    char *end = NULL;
    errno = 0;
    *count = strtoul(text, &end, 10);
    return errno == 0 && *text >= '1' && *text <= '9' && *end == '\0';
}

/* Without SA_RESTART, so that a pause ends at once. */
static int catchSignals(void) {
    struct sigaction action;
    memset(&action, 0, sizeof action);
    action.sa_handler = noteSignal;
    sigemptyset(&action.sa_mask);
    return sigaction(SIGTERM, &action, NULL) == 0 && sigaction(SIGINT, &action, NULL) == 0;
}

int main(int argc, char **argv) {
    unsigned long changesMax = 0;
    if (argc < 3 || argc > 4 || argv[2][0] == '\0' || (argc == 4 && !readCount(argv[3], &changesMax))) {
        fprintf(stderr, "usage: gateway-watcher DIRECTORY PATH [COUNT]\n");
        return 2;
    }
    setvbuf(stdout, NULL, _IOLBF, 0); /* who reads along sees each line at once */
    tavDBMDescription description;
    const int error = describeDirectory(argv[1], &description);
    if (error != 0 || !catchSignals()) {
        fprintf(stderr, "watcher: %s: %s\n", argv[1], strerror(error != 0 ? error : errno));
        return 1;
    }
    const int failed = run(&description, argv[2], changesMax);
    return failed != 0 || ferror(stdout) != 0;
}
