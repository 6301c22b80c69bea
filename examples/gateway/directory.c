/* SPDX-License-Identifier: Apache-2.0 */
/*
 * The names and media ids of a database directory, see docs/FORMAT.md. Looks
 * for media.conf only; whether the images are sound shows when they are used.
 */
#define _XOPEN_SOURCE 700
#include "directory.h"

#include <errno.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <unistd.h>

static int joinPath(char joined[TAVDB_PATH_SIZE], const char *folder, const char *name) {
    const int length = snprintf(joined, TAVDB_PATH_SIZE, "%s/%s", folder, name);
    return length < 0 || length >= TAVDB_PATH_SIZE ? ENAMETOOLONG : 0;
}

static int joinPaths(const char *folder, tavDBMDescription *description) {
    int error = joinPath(description->mediaPath, folder, "media.conf");
    if (error == 0)
        error = joinPath(description->sessionPath, folder, "session.tbl");
    if (error == 0)
        error = joinPath(description->lockPath, folder, "lock.tbl");
    if (error == 0)
        error = joinPath(description->hookPath, folder, "hooks.conf"); /* need not exist */
    return error;
}

int describeDirectory(const char *directory, tavDBMDescription *description) {
    /* Two processes share a database when their descriptions are equal, byte by
       byte. So: no rubbish behind the texts, and one spelling of the path. */
    memset(description, 0, sizeof *description);
    char *const folder = realpath(directory, NULL);
    if (folder == NULL)
        return errno;
    const int error = joinPaths(folder, description);
    free(folder);
    if (error != 0)
        return error;
    /* A wrong directory is told here, before the library makes its tables in it. */
    if (access(description->mediaPath, R_OK) != 0)
        return errno;
    description->componentMedia = 1; /* the lines of media.conf, counted from 1 */
    description->valueMedia = 2;
    description->constraintMedia = 3;
    description->stringMedia = 4;
    return 0;
}
