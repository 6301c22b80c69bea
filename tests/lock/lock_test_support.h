// SPDX-License-Identifier: Apache-2.0
// What the tests of component locks share: modes, sessions, the lock table as it
// lies in its file, and the rings as the dump shows them. Which request is
// granted is in the tests themselves.
#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "control/control_test_support.h"
#include "fakes/byte_text.h"
#include "fakes/database_fixture.h"
#include "fakes/event_log.h"
#include "fakes/fake_memory.h"
#include "fakes/fake_semaphores.h"
#include "fakes/fake_trace.h"
#include "fakes/fault_plan.h"
#include "fakes/libc_recorder.h"
#include "lock/lock_soundness.h"
#include "tavdb.h"
#include "tavdb_modules.h"

namespace tavdb_test {

inline constexpr int32_t kWait = 0x000;
inline constexpr int32_t kTry = 0x001;
inline constexpr int32_t kWaitShared = 0x100;
inline constexpr int32_t kTryShared = 0x101;
inline constexpr char kTableFile[] = "lock.tbl";
/// What the tests lock where it does not matter which.
inline constexpr uint32_t kComponent = 120;
/// What a call of the platform returns that a test makes fail.
inline constexpr int32_t kCode = platformCode(EPROTO);

/// The titles under which the dump shows the four rings.
inline constexpr char kInitRing[] = "[s_debug_db_lock_init_error]\n";
inline constexpr char kTermRing[] = "[s_debug_db_lock_term_error]\n";
inline constexpr char kLockRing[] = "[s_debug_db_lock_comp_error]\n";
inline constexpr char kUnlockRing[] = "[s_debug_db_lock_comp_unlock_error]\n";

/// A ring's record as the dump shows it: sequence number, kind, fields.
std::string ringLine(uint32_t sequence, const std::vector<uint32_t> &words);
/// The records that the dump shows under a ring's title.
std::vector<std::string> ringLines(const std::string &title);

class LockTest : public OpenDatabaseFixture {
protected:
    /// The next such call on the table fails with kCode and EPROTO; the logs are empty before it.
    static void failNext(Operation operation) {
        faultPlan().add({.operation = operation, .subject = kTableFile, .fault = returning(kCode, EPROTO)});
        clearLogs();
    }
    /// The table, seen from outside the library; what a test writes here is damage.
    LockView table() const {
        return LockView(file(kTableFile));
    }
    Bytes tableBytes() const {
        return bytesOfFile(file(kTableFile));
    }
    testing::AssertionResult sound() const {
        return isSound(*table());
    }
    /// Entries of held locks, in the order of the list.
    std::vector<uint32_t> held() const;
    /// Components of held locks, in the order of the list.
    std::vector<uint32_t> heldComponents() const;
    /// Owners of held locks, in the order of the list.
    std::vector<uint32_t> owners() const;

    /// Another session of the same database.
    tavDBMSession sessionOf(uint32_t sessionId) const;
    /// A session of another database.
    tavDBMSession sessionIn(uint32_t dbId) const;
    /// Locks components one after the other, exclusively; each must be granted.
    void lockAll(const std::vector<uint32_t> &components);
    /// Takes entries until so many locks are held: components first, first + 1, ...
    void fill(uint32_t first, uint32_t count = kLockCapacity);

    static void clearLogs() {
        eventLog().clear();
        fakeTrace().clear();
    }
    static FakeSemaphores::Counts eventCounts() {
        return fakeSemaphores().countsOf(kTableFile, FakeSemaphores::Kind::event);
    }
    static uint32_t mutexHandle() {
        return fakeSemaphores().handleOf(kTableFile, FakeSemaphores::Kind::mutex);
    }
    /// The session's error is still that of the last session_setError().
    testing::AssertionResult sessionKeeps(uint32_t code, uint32_t detail) const;
};

}  // namespace tavdb_test
