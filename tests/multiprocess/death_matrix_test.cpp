// SPDX-License-Identifier: Apache-2.0
// A process dies in front of every store to the shared tables, one after the
// other, for each operation on them, while another process waits for the table
// and a third comes later. Both go on, the tables are sound, and once the dead are
// cleaned up nothing of the capacities is lost.
#include <algorithm>

#include "multiprocess/death_point.h"
#include "multiprocess/multiprocess_test_support.h"
#include "rounds.h"
#include "tavdb_platform.h"

namespace tavdb_test {
namespace {

using std::chrono::milliseconds;
using tavdb::test::Clock;
using tavdb::test::since;

constexpr uint32_t kDatabase = 1;
constexpr uint32_t kSharedComponent = 100;
constexpr uint32_t kOwnComponent = 101;
constexpr milliseconds kLongestWait{kSlow ? 10000 : 2000};
/// Making the tables is thousands of stores that do the same to one record after the other; of the stores behind
/// these, every so many is enough.
constexpr uint32_t kEveryStore = 200;
constexpr uint32_t kStride = kSlow ? 997 : 97;
/// Taking all that the tables hold takes as long as a hundred deaths.
constexpr uint32_t kCapacityEvery = 16;

/// A process that is attached and has a session.
struct Client {
    tavDBMSession session = {};
    bool start(const DatabaseFolder &database) {
        return database.attach() == static_cast<int32_t>(kDatabase) && tavDBMInitSession(&session, kDatabase) == 0;
    }
    /// Each table once.
    bool use() {
        tavDBMSession other = {};
        return tavDBMInitSession(&other, kDatabase) == 0 &&
               tavDBMLock(&other, kSharedComponent, TAVDB_LOCK_TRY | TAVDB_LOCK_SHARED) == 0 &&
               tavDBMUnlock(&other, kSharedComponent) == 0 && tavDBMTermSession(&other) == 0;
    }
};

/// What the process does when it dies.
struct Operation {
    const char *name;
    bool (*before)(const DatabaseFolder &database, Client &client);
    bool (*run)(const DatabaseFolder &database, Client &client);
};
void PrintTo(const Operation &operation, std::ostream *stream) {
    *stream << operation.name;
}

bool nothing(const DatabaseFolder &, Client &) {
    return true;
}
bool start(const DatabaseFolder &database, Client &client) {
    return client.start(database);
}
bool lockOwn(const DatabaseFolder &database, Client &client) {
    return client.start(database) && tavDBMLock(&client.session, kOwnComponent, TAVDB_LOCK_TRY) == 0;
}
bool lockShared(const DatabaseFolder &database, Client &client) {
    constexpr int32_t kMode = TAVDB_LOCK_TRY | TAVDB_LOCK_SHARED;
    return client.start(database) && tavDBMLock(&client.session, kSharedComponent, kMode) == 0;
}

/// Another process, which is dead afterwards, has taken all slots that were free.
bool fillSessions(const DatabaseFolder &database, Client &) {
    Child filler([&] {
        Client dead;
        bool isOpen = dead.start(database);
        while (isOpen && database.sessions().size() < kSessions)
            isOpen = tavDBMInitSession(&dead.session, kDatabase) == 0;
        return isOpen ? 0 : 1;
    });
    return filler.join() == 0 && database.attach() == static_cast<int32_t>(kDatabase);
}

/// Not lock_compUnlockAll: it takes no mutex, and is for when nobody else uses the table.
const Operation kOperations[] = {
    {"FirstAttach", [](const DatabaseFolder &database, Client &) { return database.removeTables(); },
     [](const DatabaseFolder &database, Client &) { return database.attach() == 1; }},
    {"Attach", nothing, [](const DatabaseFolder &database, Client &) { return database.attach() == 1; }},
    {"AttachAnother", nothing, [](const DatabaseFolder &database, Client &) { return database.attach(2) == 2; }},
    {"Detach", start, [](const DatabaseFolder &, Client &) { return tavDBMTerm(kDatabase) == 0; }},
    {"DetachTheLast",
     [](const DatabaseFolder &database, Client &client) { return start(database, client) && database.attach(2) == 2; },
     [](const DatabaseFolder &, Client &) { return tavDBMTerm(2) == 0; }},
    {"OpenSession", start,
     [](const DatabaseFolder &, Client &client) { return tavDBMInitSession(&client.session, kDatabase) == 0; }},
    {"TakeOverASession", fillSessions,
     [](const DatabaseFolder &, Client &client) { return tavDBMInitSession(&client.session, kDatabase) == 0; }},
    {"CloseSession", start,
     [](const DatabaseFolder &, Client &client) { return tavDBMTermSession(&client.session) == 0; }},
    {"Lock", start,
     [](const DatabaseFolder &, Client &client) {
         return tavDBMLock(&client.session, kOwnComponent, TAVDB_LOCK_WAIT) == 0;
     }},
    {"LockShared", start,
     [](const DatabaseFolder &, Client &client) {
         return tavDBMLock(&client.session, kSharedComponent, TAVDB_LOCK_WAIT | TAVDB_LOCK_SHARED) == 0;
     }},
    {"LockSharedAgain", lockShared,
     [](const DatabaseFolder &, Client &client) {
         return tavDBMLock(&client.session, kSharedComponent, TAVDB_LOCK_TRY | TAVDB_LOCK_SHARED) == 0;
     }},
    {"LockRefused", lockShared,
     [](const DatabaseFolder &database, Client &) {
         Client other;
         return other.start(database) && tavDBMLock(&other.session, kSharedComponent, TAVDB_LOCK_TRY) != 0;
     }},
    {"Unlock", lockOwn,
     [](const DatabaseFolder &, Client &client) { return tavDBMUnlock(&client.session, kOwnComponent) == 0; }},
    {"UnlockShared", lockShared,
     [](const DatabaseFolder &, Client &client) { return tavDBMUnlock(&client.session, kSharedComponent) == 0; }},
};

/// A process that stops in front of a store of an operation.
class Victim {
public:
    Victim(const DatabaseFolder &database, const Operation &operation, uint32_t store)
        : child_([&database, &operation, store, this] {
              Client client;
              if (!operation.before(database, client))
                  return 1;
              point_->store = store;
              stopAt(*point_);
              return operation.run(database, client) ? 0 : 2;
          }) {}

    /// Waits until it stops or ends. @return whether it stopped
    bool stops() {
        EXPECT_TRUE(eventually([this] { return point_->isReached || child_.hasEnded(); }));
        return point_->isReached;
    }
    void kill() {
        child_.kill();
    }
    bool hasFinished() {
        return child_.join() == 0;
    }

private:
    Shared<DeathPoint> point_;
    Child child_;
};

int useTables(const DatabaseFolder &database) {
    Client client;
    return client.start(database) && client.use() ? 0 : 1;
}

/// One process is about to use the tables when the victim dies, the other comes afterwards.
void expectOthersGoOn(const DatabaseFolder &database, Victim &victim) {
    Shared<std::atomic<bool>> begins;
    Child waiting([&] {
        *begins = true;
        return useTables(database);
    });
    EXPECT_TRUE(eventually([&] { return begins->load(); }));
    const auto death = Clock::now();
    victim.kill();
    EXPECT_EQ(joinInTime(waiting), 0) << "the process that waited";
    EXPECT_LT(since(death), kLongestWait);
    Child later([&] { return useTables(database); });
    EXPECT_EQ(joinInTime(later), 0) << "the process that came later";
    EXPECT_EQ(database.faults(), "");
}

void expectNothingIsLost(const DatabaseFolder &database) {
    Child cleaner([&] { return database.cleanUp() ? 0 : 1; });
    EXPECT_EQ(joinInTime(cleaner), 0);
    Child user([&] { return database.fill(); });
    EXPECT_EQ(joinInTime(user), 0);
    EXPECT_EQ(database.faults(), "");
}

/// Calls with the number of each store until a victim finishes, and prints how many died.
template <typename Death>
void forEachStore(const char *name, Death die) {
    uint32_t deaths = 0;
    uint32_t store = 0;
    while (!testing::Test::HasFailure()) {
        SCOPED_TRACE("in front of store " + std::to_string(store));
        if (!die(store))
            break;
        ++deaths;
        store += store < kEveryStore ? 1 : kStride;
    }
    EXPECT_GT(deaths, 0U) << "the operation stores nothing that others see";
    std::printf("%s: died %u times\n", name, deaths);
}

class DeathMatrix : public testing::TestWithParam<Operation> {};

INSTANTIATE_TEST_SUITE_P(Of, DeathMatrix, testing::ValuesIn(kOperations),
                         [](const auto &row) { return row.param.name; });

TEST_P(DeathMatrix, NoStoreIsTheLastForOthers) {
    forEachStore(GetParam().name, [](uint32_t store) {
        const DatabaseFolder database;
        Child first([&] { return Client().start(database) ? 0 : 1; });  // its reference and session stay
        EXPECT_EQ(joinInTime(first), 0);
        Victim victim(database, GetParam(), store);
        if (!victim.stops()) {
            EXPECT_TRUE(victim.hasFinished());
            return false;
        }
        expectOthersGoOn(database, victim);
        if (store % kCapacityEvery == 0)
            expectNothingIsLost(database);
        return true;
    });
}

/// The lock of a dead process stays until somebody gives it back; then nobody may go on waiting for it.
TEST(DeathWhileUnlocking, LeavesNobodyWaiting) {
    constexpr Operation kUnlock = {"Unlock", lockOwn, [](const DatabaseFolder &, Client &client) {
                                       return tavDBMUnlock(&client.session, kOwnComponent) == 0;
                                   }};
    forEachStore("Unlock before a waiting process", [&](uint32_t store) {
        const DatabaseFolder database;
        Victim victim(database, kUnlock, store);
        const bool isStopped = victim.stops();
        Child waiting([&] {
            Client client;
            return client.start(database) && tavDBMLock(&client.session, kOwnComponent, TAVDB_LOCK_WAIT) == 0 ? 0 : 1;
        });
        if (!isStopped) {
            EXPECT_TRUE(victim.hasFinished());
            EXPECT_EQ(joinInTime(waiting), 0);
            return false;
        }
        std::this_thread::sleep_for(milliseconds(5));  // most likely it waits by then
        const auto death = Clock::now();
        victim.kill();
        Child heir([&] {
            Client client;
            client.session = {.sessionId = 1, .dbId = 1, .errorCode = 0, .errorDetail = 0, .currentComponent = 0};
            if (database.attach() == 1)
                tavDBMUnlock(&client.session, kOwnComponent);
            return 0;
        });
        EXPECT_EQ(joinInTime(heir), 0);
        EXPECT_EQ(joinInTime(waiting), 0);
        EXPECT_LT(since(death), kLongestWait);
        EXPECT_EQ(database.faults(), "");
        return true;
    });
}

}  // namespace
}  // namespace tavdb_test
