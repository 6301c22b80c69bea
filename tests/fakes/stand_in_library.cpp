// SPDX-License-Identifier: Apache-2.0
#include "fakes/stand_in_library.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

#include <cstdlib>

#include "tavdb_platform.h"

// Optional on a platform, so the library asks for it like this.
extern "C" __attribute__((weak)) void tavOSWSemAnnounce(const char *path, int32_t fd);

namespace tavdb_test {

namespace {

constexpr size_t kTableSize = 4096;

struct StandIn {
    Forgotten forgotten = Forgotten::nothing;
    void *memory = nullptr;
    void *table = MAP_FAILED;
    uint32_t mutex = 0;
};
StandIn standIn;

bool makeTable(int fd) {
    if (posix_fallocate(fd, 0, kTableSize) != 0)
        return false;
    if (tavOSWSemAnnounce == nullptr)
        return false;
    tavOSWSemAnnounce(getenv("TAVDB_DBTABLE"), fd);
    if (tavOSWCreateMutexSem(&standIn.mutex, 0, 1) != 0)
        return false;
    standIn.table = mmap(nullptr, kTableSize, PROT_READ | PROT_WRITE, MAP_SHARED, fd, 0);
    return standIn.table != MAP_FAILED;
}

int32_t giveBack() {
    if (standIn.forgotten != Forgotten::memory && standIn.memory != nullptr)
        tavOSWOrgFreeMemPart(0, standIn.memory);
    int32_t result = 0;
    if (standIn.forgotten != Forgotten::mapping && standIn.table != MAP_FAILED)
        result = munmap(standIn.table, kTableSize) == 0 ? 0 : TAVDB_ERR_UNMAP;
    standIn = {};
    return result;
}

}  // namespace

void letStandInForget(Forgotten what) {
    standIn.forgotten = what;
}

}  // namespace tavdb_test

using tavdb_test::Forgotten;
using tavdb_test::standIn;

extern "C" {

int32_t tavDBMInit(const tavDBMDescription *description, int32_t *error) {
    *error = TAVDB_ERR_MEMORY;
    standIn.memory = tavOSWSubAllocMem(28);
    if (standIn.memory == nullptr)
        return -1;
    *error = TAVDB_ERR_CONTROL_FILE;
    const int fd = open(getenv("TAVDB_DBTABLE"), O_RDWR | O_CREAT | O_CLOEXEC, 0664);
    if (fd < 0)
        return -1;
    const bool made = tavdb_test::makeTable(fd);
    if (standIn.forgotten != Forgotten::descriptor)
        close(fd);
    *error = made ? dbs_me_db_media_file_init(description->mediaPath, 0) : TAVDB_ERR_MAP;
    return *error == 0 ? 1 : -1;
}

int32_t tavDBMTerm(uint32_t /*dbId*/) {
    return tavdb_test::giveBack();
}

int32_t tavDBMInitSession(tavDBMSession *session, uint32_t dbId) {
    *session = {.sessionId = 1, .dbId = dbId, .errorCode = 0, .errorDetail = 0, .currentComponent = 0};
    if (standIn.forgotten == Forgotten::mutex)
        return tavOSWRequestMutexSem(standIn.mutex, -1);
    uint32_t err = 0;
    return standIn.forgotten == Forgotten::mediumDescriptor && tavdbMemOpen("value.med", 0, &err) < 0 ? 22 : 0;
}

int32_t tavDBMTermSession(tavDBMSession * /*session*/) {
    return 0;
}
}
