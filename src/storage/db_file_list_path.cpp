// SPDX-License-Identifier: Apache-2.0
// The file list of a file named by its path, with direct file calls: for tools
// that prepare or inspect a medium outside a database.
#include "storage/db_file_list_path.h"

#include <errno.h>
#include <fcntl.h>
#include <string.h>
#include <unistd.h>

#include "storage/db_file_list.h"

namespace tavdb {
namespace {

/// Hands errno on when a system call failed. @return the call's result
template <typename Result>
int32_t checked(Result result, uint32_t *err) {
    if (result == -1)
        *err = static_cast<uint32_t>(errno);
    return static_cast<int32_t>(result);
}

template <int Flags>
int32_t openPath(const char *path, uint32_t, uint32_t *err) {
    return checked(open(path != nullptr ? path : "", Flags | O_CLOEXEC), err);
}

int32_t closePath(int32_t fd, uint32_t *err) {
    return checked(close(fd), err);
}

int32_t readPath(int32_t fd, void *buffer, int32_t length, uint32_t offset, uint32_t *err) {
    return checked(pread(fd, buffer, static_cast<size_t>(length), static_cast<off_t>(offset)), err);
}

int32_t writePath(int32_t fd, const void *data, int32_t length, uint32_t offset, uint32_t *err) {
    return checked(pwrite(fd, data, static_cast<size_t>(length), static_cast<off_t>(offset)), err);
}

/// A file as a medium of its own.
template <int Flags>
tavDBMMediaEntry fileMedium(const char *path) {
    return {.handle = nullptr,
            .hint = path,
            .openArg = 0,
            .open = openPath<Flags>,
            .close = closePath,
            .read = readPath,
            .write = writePath,
            .lseek = nullptr,
            .sync = nullptr,
            .debug = nullptr};
}

FileListAccess access(tavDBMSession *session, const tavDBMMediaEntry &file) {
    return {session, &file, TAVDB_ERR_COMPONENT_OPEN, TAVDB_ERR_COMPONENT_WRITE, TAVDB_ERR_COMPONENT_READ};
}

/// The functions of this family, for the search for space.
struct InFile {
    static constexpr bool showsSplitFailure = false;  // deliberate: unlike on a medium, the offset is handed out

    tavDBMSession *session;
    const char *path;

    uint32_t getFirstOffset() const {
        return flst_getFirstOffset(session, path);
    }
    bool getElement(uint32_t offset, tavDBMFreeBlock &element) const {
        return flst_getElement(session, path, offset, &element) != nullptr;
    }
    int32_t setElement(uint32_t offset, const tavDBMFreeBlock &element) const {
        return flst_setElement(session, path, offset, &element);
    }
    int32_t setNext(uint32_t offset, uint32_t next) const {
        return flst_setNext(session, path, offset, next);
    }
    int32_t fillFragment(uint32_t offset, uint32_t length) const {
        return flst_fillFlagmented(session, path, offset, length);
    }
};

/// Marks the body of a free block; blocks outside 9 to 1032 bytes keep theirs.
void fillBody(OpenMedium &medium, uint32_t offset, const void *head) {
    const uint32_t size = static_cast<const tavDBMFreeBlock *>(head)->size;
    constexpr uint32_t kSmallest = 9;
    constexpr uint32_t kLargest = 1032;
    if (size < kSmallest || size > kLargest)
        return;
    uint8_t filler[256];
    memset(filler, 0xBA, sizeof filler);
    for (uint32_t done = sizeof(tavDBMFreeBlock); done < size; done += sizeof filler) {
        const uint32_t piece = size - done < sizeof filler ? size - done : static_cast<uint32_t>(sizeof filler);
        medium.write(filler, static_cast<int32_t>(piece), offset + done);
    }
}

}  // namespace

uint32_t flst_getFirstOffset(tavDBMSession *session, const char *path) {
    return readFirstOffset(access(session, fileMedium<O_RDONLY>(path)), {__func__, 100});
}

tavDBMFreeBlock *flst_getElement(tavDBMSession *session, const char *path, uint32_t offset, tavDBMFreeBlock *element) {
    return readElement(access(session, fileMedium<O_RDONLY>(path)), offset, element, {__func__, 110});
}

int32_t flst_setNext(tavDBMSession *session, const char *path, uint32_t offset, uint32_t next) {
    return writeFileList(access(session, fileMedium<O_RDWR>(path)), offset, &next, sizeof next, {__func__, 120});
}

int32_t flst_fillFlagmented(tavDBMSession *session, const char *path, uint32_t offset, uint32_t length) {
    return fillFragment(access(session, fileMedium<O_RDWR>(path)), offset, length, {__func__, 130});
}

}  // namespace tavdb

using namespace tavdb;

uint32_t flst_get(tavDBMSession *session, const char *path, uint32_t size) {
    return allocate(InFile{session, path}, size, {__func__, 140});
}

int32_t flst_setFirstOffset(tavDBMSession *session, const char *path, uint32_t offset) {
    return writeFileList(access(session, fileMedium<O_RDWR>(path)), kFirstFreeOffset, &offset, sizeof offset,
                         {__func__, 160});
}

int32_t flst_setElement(tavDBMSession *session, const char *path, uint32_t offset, const tavDBMFreeBlock *element) {
    return writeFileList(access(session, fileMedium<O_RDWR>(path)), offset, element, sizeof *element, {__func__, 170},
                         fillBody);
}

int32_t flst_release(tavDBMSession *session, const char *path, uint32_t offset, uint32_t size) {
    const InFile place = {session, path};
    const uint32_t head = place.getFirstOffset();
    tavDBMFreeBlock block;
    if (head == 0 || !place.getElement(head, block))
        return 0;
    const auto begin = static_cast<int32_t>(offset);
    const auto end = static_cast<int32_t>(offset + size);
    const auto first = static_cast<int32_t>(head);
    // deliberate: only a range in front of the head comes back, one behind it is dropped
    if (begin < static_cast<int32_t>(kFirstFreeOffset) || first < end)
        return 0;
    if (begin > static_cast<int32_t>(kFirstFreeOffset))
        flst_setFirstOffset(session, path, offset);
    place.setElement(offset,
                     first > end ? tavDBMFreeBlock{head, size} : tavDBMFreeBlock{block.next, size + block.size});
    return 0;
}
