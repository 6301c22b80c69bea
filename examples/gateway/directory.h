/* SPDX-License-Identifier: Apache-2.0 */
/*
 * From the path of a database directory, as 'tavdb build' makes it, to the
 * description that tavDBMInit attaches by. The library itself knows no
 * directories: a description may name files anywhere.
 */
#ifndef GATEWAY_DIRECTORY_H
#define GATEWAY_DIRECTORY_H

#include "tavdb.h"

/*
 * Fills a description. All programs that describe a directory like this, the
 * tavdb command among them, share one database with its sessions and locks.
 * Returns 0, or an errno value: the directory or its media.conf cannot be
 * found, or a path is too long. The description is of no use then.
 */
int describeDirectory(const char *directory, tavDBMDescription *description);

#endif
