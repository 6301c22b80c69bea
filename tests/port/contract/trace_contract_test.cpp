// SPDX-License-Identifier: Apache-2.0
// Trace lines and system errors: whatever the library may pass is taken, and errno
// is left as it was, because the library records it after it has traced.
#include <atomic>
#include <limits>
#include <vector>

#include "port/contract/platform_under_test.h"

namespace tavdb::test {
namespace {

using TraceContract = ContractTest;
constexpr int kErrnoBefore = 77;

class ErrnoStays {
public:
    ErrnoStays() {
        errno = kErrnoBefore;
    }
    ~ErrnoStays() {
        EXPECT_EQ(errno, kErrnoBefore);
    }
    ErrnoStays(const ErrnoStays &) = delete;
    ErrnoStays &operator=(const ErrnoStays &) = delete;
};

TEST_F(TraceContract, TakesTheLibrarysFormatsAtAllItsLevels) {
    for (const int32_t level : {0, 2, 5, 98, 99}) {
        const ErrnoStays check;
        dbs_me_debug_trace(level, "contract:[%d][0x%8x][%s]\n", -1, 0xFFFFFFFFU, "text");
        dbs_me_debug_trace(level, "[%10d]:%s\n", std::numeric_limits<int32_t>::min(), "name");
        dbs_me_debug_trace(level, "[0x%8x][0x%8x][0x%8x][0x%8x][0x%8x][0x%8x][0x%8x]", 1U, 2U, 3U, 4U, 5U, 6U, 7U);
        dbs_me_debug_trace(level, " %x", 10U);
        dbs_me_debug_trace(level, "%s", "\n");
    }
}

TEST_F(TraceContract, TakesEmptyAndLongTextsAndSigns) {
    const std::string longText(5000, 'x');
    const ErrnoStays check;
    dbs_me_debug_trace(0, "%s", "");
    dbs_me_debug_trace(0, "[%s]\n", longText.c_str());
    dbs_me_debug_trace(0, "[%s]\n", "100 %s %n %d");
    dbs_me_debug_trace(0, "[%s]\n", "\x01\xFF\x80");
}

TEST_F(TraceContract, TakesLevelsThatTheLibraryDoesNotHave) {
    for (const int32_t level :
         {-1, 1, 1000, std::numeric_limits<int32_t>::min(), std::numeric_limits<int32_t>::max()}) {
        const ErrnoStays check;
        dbs_me_debug_trace(level, "level %d\n", static_cast<int>(level));
    }
}

TEST_F(TraceContract, ThreadsMayTraceAtOnce) {
    std::vector<std::thread> threads;
    std::atomic<int> done = 0;
    for (int thread = 0; thread < 4; ++thread)
        threads.emplace_back([&done, thread] {
            for (int line = 0; line < 200; ++line)
                dbs_me_debug_trace(2, "thread %d line %d\n", thread, line);
            ++done;
        });
    for (std::thread &thread : threads)
        thread.join();
    EXPECT_EQ(done, 4);
}

TEST_F(TraceContract, AChildTracesToo) {
    EXPECT_EQ(Child([] {
                  alarm(10);
                  dbs_me_debug_trace(0, "%s\n", "a child's line");
                  return 0;
              }).join(),
              0);
}

TEST_F(TraceContract, SystemErrorsTakeAnyNumbers) {
    constexpr int32_t kLowest = std::numeric_limits<int32_t>::min();
    for (const int32_t number : {0, -1, 62672, kLowest, std::numeric_limits<int32_t>::max()}) {
        const ErrnoStays check;
        dbs_me_syserr_notify_system_error(62672, 400, number);
        dbs_me_syserr_notify_system_error(number, number, number);
        dbs_me_syserr_notify_system_error_async(62672, 403, number);
        dbs_me_syserr_notify_system_error_async(number, number, number, 1, "text", nullptr);
    }
}

}  // namespace
}  // namespace tavdb::test
