// SPDX-License-Identifier: Apache-2.0
// Which file a descriptor or a path means. A program may close descriptors it
// did not open, and files are deleted and made anew, so neither a descriptor nor
// a path is trusted for longer than one operation.
#pragma once

#include <sys/stat.h>

#include <cstdint>

namespace tavdb::osw {

struct FileIdentity {
    uint64_t device;
    uint64_t inode;
    bool operator==(const FileIdentity &) const = default;
};

inline FileIdentity identityOf(const struct stat &status) {
    return {static_cast<uint64_t>(status.st_dev), static_cast<uint64_t>(status.st_ino)};
}

/// @return 0 or an error number
int identify(int fd, FileIdentity &identity);

/// Whether the descriptor is open and means that file.
bool isOpenOn(int fd, const FileIdentity &identity);

/// Whether the path leads to that file at this moment.
bool leadsTo(const char *path, const FileIdentity &identity);

/// Opens a path for locking: for writing, or for reading where only that is allowed. @return a descriptor or -1
int openForLocking(const char *path);

/// Opens the file behind a descriptor once more, so that the two do not share locks. @return a descriptor or -1
int openAgain(int fd);

/// Closes the descriptor unless it means another file by now.
void closeIfOpenOn(int fd, const FileIdentity &identity);

}  // namespace tavdb::osw
