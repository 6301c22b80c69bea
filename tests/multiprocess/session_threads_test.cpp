// SPDX-License-Identifier: Apache-2.0
// Several threads of one process, each with a session of its own, which is what
// they must have. They change their own leaves at once, and a common one under its
// lock. The thread sanitizer watches the same in its build.
#include "multiprocess/multiprocess_test_support.h"
#include "rounds.h"
#include "tavdb.hpp"

namespace tavdb_test {
namespace {

using tavdb::Database;
using tavdb::Session;

constexpr uint32_t kThreads = 4;
constexpr uint32_t kRounds = kSlow ? 300 : 2000;
constexpr uint32_t kMediumBytes = 4096;

uint32_t makeLeaf(Session &session, uint32_t root) {
    const uint32_t zero = 0;
    const uint32_t value = tavDBMCreateValue(session.record(), TAVDB_TYPE_U32, 0, &zero, sizeof zero, kDataMedium);
    return tavDBMCreateLeaf(session.record(), 0, root, 0, value, value, value, 0);
}

/// Sets and gets its own leaf, and adds one to the common one each round. @return whether all of it worked
bool work(Session &session, uint32_t own, uint32_t common) {
    for (uint32_t round = 1; round <= kRounds; round++) {
        if (!session.set(own, round) || session.get<uint32_t>(own).valueOr(0) != round)
            return false;
        const auto lock = session.lock(common);
        const auto sum = session.get<uint32_t>(common);
        if (!lock || !sum || !session.set(common, *sum + 1))
            return false;
        if (tavDBMLock(session.record(), common, TAVDB_LOCK_TRY) != TAVDB_ERR_LOCKED)
            return false;
    }
    return true;
}

class SessionThreads : public testing::TestWithParam<MediaKind> {};

INSTANTIATE_TEST_SUITE_P(Media, SessionThreads, testing::ValuesIn(kMediaKinds),
                         [](const auto &kind) { return kind.param.name; });

TEST_P(SessionThreads, WorkAtOnce) {
    const DatabaseFolder folder(kMediumBytes, GetParam());
    const auto database = Database::attach(folder.description());
    ASSERT_TRUE(database);
    auto session = Session::open(*database);
    ASSERT_TRUE(session);
    const uint32_t root = session->root().valueOr(0);
    const uint32_t common = makeLeaf(*session, root);
    uint32_t own[kThreads];
    for (uint32_t &leaf : own)
        leaf = makeLeaf(*session, root);
    std::vector<std::thread> threads;
    std::atomic<uint32_t> done = 0;
    for (const uint32_t leaf : own)
        threads.emplace_back([&, leaf] {
            auto mine = Session::open(*database);
            done += mine && work(*mine, leaf, common) ? 1U : 0U;
        });
    for (std::thread &thread : threads)
        thread.join();
    EXPECT_EQ(done, kThreads);
    EXPECT_EQ(session->get<uint32_t>(common).valueOr(0), kThreads * kRounds);
    for (const uint32_t leaf : own)
        EXPECT_EQ(session->get<uint32_t>(leaf).valueOr(0), kRounds);
}

}  // namespace
}  // namespace tavdb_test
