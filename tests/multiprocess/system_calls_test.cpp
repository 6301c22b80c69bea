// SPDX-License-Identifier: Apache-2.0
// How many system calls one read and one checked write of a value are on the
// media of the Linux port, from the application's call to the kernel: three for
// each access to a record of a file, none at all for one in mapped memory.
#include <gmock/gmock.h>
#include <sys/syscall.h>
#include <unistd.h>

#include "multiprocess/multiprocess_test_support.h"
#include "multiprocess/traced_calls.h"

namespace tavdb_test {
namespace {

using Calls = std::vector<std::string>;

constexpr MediaKind kMemory = kMediaKinds[0];
constexpr MediaKind kFile = kMediaKinds[1];

/// A process with a leaf whose value lies under a range.
class Process {
public:
    /// Attaches and makes the leaf; then one read and one write, so that nothing is left to be done once.
    bool start(const DatabaseFolder &folder) {
        const int32_t database = folder.attach();
        return database > 0 && tavDBMInitSession(&session_, static_cast<uint32_t>(database)) == 0 && makeLeaf() &&
               write() && read();
    }
    bool read() {
        uint32_t value = 0;
        return tavDBMGetUint32(&session_, leaf_, &value) == 0 && value == 15;
    }
    bool write() {
        return tavDBMSetUint32(&session_, leaf_, 15) == 0;
    }

private:
    bool makeLeaf() {
        tavDBMRangeU32 range = {.key = 0, .type = TAVDB_TYPE_U32, .minimum = 0, .maximum = 100, .step = 5};
        const uint32_t zero = 0;
        const uint32_t value = tavDBMCreateValue(&session_, TAVDB_TYPE_U32, 0, &zero, sizeof zero, kDataMedium);
        leaf_ = tavDBMCreateLeaf(&session_, 0, tavDBMGetRoot(&session_), 0, value, value, value, 0);
        return leaf_ != 0 && rangeU32_new(&session_, &range) != nullptr &&
               tavDBMSetConstraintKey(&session_, value, range.key) == 0;
    }

    tavDBMSession session_ = {};
    uint32_t leaf_ = 0;
};

class SystemCalls : public testing::Test {
protected:
    /// The system calls of one access to the leaf; skips the test where they cannot be seen.
    static void expectCalls(const MediaKind &kind, bool (Process::*access)(), const Calls &expected) {
        const DatabaseFolder folder(1024, kind);
        Process process;
        std::string why;
        const auto calls =
            systemCallsOf([&] { return process.start(folder); }, [&] { return (process.*access)(); }, why);
        if (!calls && why == "processes cannot be traced here")
            GTEST_SKIP() << why;
        ASSERT_TRUE(calls) << why;
        EXPECT_EQ(*calls, expected);
    }
};

/// One access to a record after the other, each between its own open and close.
Calls accesses(const Calls &transfers) {
    Calls calls;
    for (const std::string &transfer : transfers)
        calls.insert(calls.end(), {"openat", transfer, "close"});
    return calls;
}

TEST_F(SystemCalls, OfATypedReadOnFilesAreNine) {
    expectCalls(kFile, &Process::read, accesses({"pread", "pread", "pread"}));
}

TEST_F(SystemCalls, OfAWriteUnderARangeOnFilesAreFifteen) {
    expectCalls(kFile, &Process::write, accesses({"pread", "pread", "pread", "pread", "pwrite"}));
}

TEST_F(SystemCalls, OfAccessesInMappedMemoryAreNone) {
    expectCalls(kMemory, &Process::read, {});
    expectCalls(kMemory, &Process::write, {});
}

TEST_F(SystemCalls, AreSeenByTheTest) {
    std::string why;
    const auto calls = systemCallsOf([] { return true; }, [] { return getpid() == syscall(SYS_getpid); }, why);
    if (!calls)
        GTEST_SKIP() << why;
    EXPECT_EQ(*calls, Calls(2, "number " + std::to_string(SYS_getpid)));
}

}  // namespace
}  // namespace tavdb_test
