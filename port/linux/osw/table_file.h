// SPDX-License-Identifier: Apache-2.0
// A table file as the semaphores see it: an open file description of its own,
// which carries the lock between processes, and the paths of table and page. The
// table's contents are never touched.
#pragma once

#include "osw/file_identity.h"

namespace tavdb::osw {

struct TableFile {
    int fd;                 ///< -1 when it could not be had again after a fork
    FileIdentity identity;  ///< stays true when the descriptor is lost
    char *path;             ///< absolute; null for an anonymous table
    char *pagePath;         ///< path and ".sem", in the same block of memory
};

/**
 * Opens a description of its own of the announced file.
 * @param path the announced path
 * @param fd   the announced descriptor; stays the caller's
 * @return 0 or an error number
 */
int openTableFile(const char *path, int fd, TableFile &table);

/// Makes a file without a name for a set that no table was announced for. @return 0 or an error number
int openAnonymousFile(uint32_t sizeBytes, TableFile &table);

void closeTableFile(TableFile &table);

/// Opens the file anew when the program has closed the descriptor. @return 0 or an error number
int ensureOpen(TableFile &table);

/// In a fork's child: gives up the description shared with the parent. Calls nothing that takes a lock.
void reopenInChild(TableFile &table);

/// Whether both have a path, and the same.
bool hasSamePath(const TableFile &a, const TableFile &b);

/// Whether the file has several names. Then there may be several pages, and posts on another one go unseen.
bool hasSeveralNames(const TableFile &table);

}  // namespace tavdb::osw
