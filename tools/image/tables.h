// SPDX-License-Identifier: Apache-2.0
// The tables that processes share, looked at from outside: their files are read
// as they stand, without a mutex and without attaching. A file that is not there
// is an empty table; every list is walked no further than its table is long.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "image/fault.h"
#include "tavdb_modules.h"

namespace tavdb::image {

/// Whether there is such a process.
bool isAlive(int32_t process);

struct OpenSession {
    uint32_t id = 0;
    int32_t process = 0;
    uint32_t database = 0;
    bool isAlive = false;
};
Result<std::vector<OpenSession>> readSessions(const std::string &path);

struct HeldLock {
    uint32_t database = 0;
    uint32_t component = 0;
    uint32_t session = 0;
    bool isShared = false;
};
Result<std::vector<HeldLock>> readLocks(const std::string &path);

/// A database in the control table of the machine.
struct Registration {
    uint32_t id = 0;
    uint32_t references = 0;
};
/// Nothing when the database is not attached anywhere.
Result<std::optional<Registration>> findRegistration(const std::string &controlTable,
                                                     const tavDBMDescription &description);

/// "session 3 (process 4711)", for a sentence.
std::string holderName(const std::vector<OpenSession> &sessions, uint32_t session);

}  // namespace tavdb::image
