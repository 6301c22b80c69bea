// SPDX-License-Identifier: Apache-2.0
// What the tests with several processes share: a database on real files, used
// through the real port, and the question whether its tables are sound. The
// test's own process attaches to nothing, so that children fork from a clean
// state; children report by their exit status and by memory that they share.
#pragma once

#include <gtest/gtest.h>
#include <signal.h>

#include <array>
#include <atomic>
#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "control/table_view.h"
#include "port/osw/osw_test_support.h"
#include "tavdb.h"
#include "tavdb_modules.h"

namespace tavdb_test {

using tavdb::test::Child;
using tavdb::test::eventually;
using tavdb::test::Shared;
using tavdb::test::TempFolder;

inline constexpr uint32_t kDatabases = 31;
inline constexpr uint32_t kSessions = 1023;
inline constexpr uint32_t kLocks = 1023;
inline constexpr uint32_t kRootKey = 16;
inline constexpr int32_t kDataMedium = 4;

/// How many processes a test kills: as TAVDB_TEST_KILLS says, or as usual.
inline uint32_t plannedKills(uint32_t usually) {
    const char *const variable = getenv("TAVDB_TEST_KILLS");
    return variable != nullptr ? static_cast<uint32_t>(strtoul(variable, nullptr, 10)) : usually;
}

/// @name What is wrong with a table's lists: every record must be in exactly one; empty when all is well
/// @{
std::string faultsOf(const tavDBMControlTable &table);
std::string faultsOf(const tavDBMSessionTable &table);
std::string faultsOf(const tavDBMLockTable &table);
/// @}

/// A kind of medium that the port offers, by its functions in a line of media.conf.
struct MediaKind {
    const char *name;
    const char *functions;
    bool isServed;  ///< it needs a server, whose socket and not the image is named
};
inline constexpr MediaKind kMediaKinds[] = {
    {"memory", "tavdbMemOpen tavdbMemClose tavdbMemRead tavdbMemWrite tavdbMemSeek tavdbMemSync1", false},
    {"file", "tavdbFileOpenHD tavdbFileClose tavdbFileRead tavdbFileWrite tavdbFileSeek tavdbFileSync3", false},
#ifdef TAVDB_TEST_MEDIA_SERVER
    {"message", "tavdbMsgOpen tavdbMsgClose tavdbMsgRead tavdbMsgWrite tavdbMsgSeek tavdbMsgSync", true},
#endif
};
inline void PrintTo(const MediaKind &kind, std::ostream *stream) {
    *stream << kind.name;
}

/// One of the three shared tables.
enum class Table : uint8_t { control, session, lock };
inline constexpr const char *kTableFiles[] = {"control.tbl", "session.tbl", "lock.tbl"};

/// A folder with everything that a database needs but the tables, which the first process makes.
class DatabaseFolder {
public:
    /// @param mediumBytes of each of the four media, a multiple of 4
    explicit DatabaseFolder(uint32_t mediumBytes = 1024, const MediaKind &kind = kMediaKinds[0]);
    ~DatabaseFolder();
    DatabaseFolder(const DatabaseFolder &) = delete;
    DatabaseFolder &operator=(const DatabaseFolder &) = delete;

    std::string path(const std::string &name) const {
        return folder_ / name;
    }
    std::string path(Table table) const {
        return path(kTableFiles[static_cast<uint8_t>(table)]);
    }
    /// Another fifth word makes another database on the same files.
    tavDBMDescription description(uint32_t fifthWord = 0) const;
    /// @param componentFunctions library and functions of the component medium; the others are of the folder's kind
    void writeMediaConf(const std::string &componentFunctions) const;

    /// tavDBMInit. @return the id or -1
    int32_t attach(uint32_t fifthWord = 0, int32_t *error = nullptr) const;

    /// As on a fresh machine. @return whether the tables are gone
    bool removeTables() const;
    /// @name By a process of its own
    /// @{
    /// Closes all sessions, takes away all locks and all references, as nobody is left who has any. @return whether it
    /// could
    bool cleanUp() const;
    /// Takes all that the tables hold, and one more of each. @return 0 when all of it was there
    int fill() const;
    /// @}

    uint32_t references(uint32_t dbId) const {
        return ControlView(path(Table::control))->entry[dbId].refCount;
    }
    std::vector<uint32_t> sessions() const;
    /// What is wrong with any of the three tables.
    std::string faults() const;
    /// The bytes of all media, one behind the other.
    std::string images() const;

private:
    TempFolder folder_;
    const MediaKind &kind_;
};

/// Where processes wait for each other.
class Barrier {
public:
    /// Comes back when that many processes have arrived, or at the latest after five seconds. @return whether all did
    bool arriveAndWait(uint32_t processes) {
        arrived_++;
        return eventually([&] { return arrived_ >= processes; });
    }
    bool waitFor(uint32_t processes) const {
        return eventually([&] { return arrived_ >= processes; });
    }
    void arrive() {
        arrived_++;
    }

private:
    std::atomic<uint32_t> arrived_ = 0;
};

/// The exit status of a child; the test fails, and the child is ended, when it hangs.
int joinInTime(Child &child);

/// Runs the body in so many children at once. @return their exit statuses
std::vector<int> runAtOnce(uint32_t processes, const std::function<int(uint32_t number)> &body);

/// Never comes back: for a process that is to be killed.
[[noreturn]] void waitForTheEnd();

/// Takes the mutex of a table that this process is attached to, as the library would. @return 0 or the platform's code
int32_t holdMutex(const std::string &tablePath);

/// Whether another process holds the mutex of the table. Asked by a child, which then attaches to it.
bool isMutexHeld(const std::string &tablePath);

class MultiProcess : public testing::Test {
protected:
    DatabaseFolder database_;
};

}  // namespace tavdb_test
