// SPDX-License-Identifier: Apache-2.0
// The built-in media, one set of tests for all kinds: counts, ends, error numbers
// and who sees what. The arguments are such as the library passes; what a port
// does with others is tested with the port.
#include <stdio.h>

#include <algorithm>
#include <vector>

#include "port/contract/platform_under_test.h"

namespace tavdb::test {
namespace {

struct MediumKind {
    const char *name;
    bool isWritable;
    tavDBMMediaOpen open;
    tavDBMMediaClose close;
    tavDBMMediaRead read;
    tavDBMMediaWrite write;
    tavDBMMediaSeek seek;
};

const MediumKind kKinds[] = {
    {"memory", true, tavdbMemOpen, tavdbMemClose, tavdbMemRead, tavdbMemWrite, tavdbMemSeek},
    {"file", true, tavdbFileOpenHD, tavdbFileClose, tavdbFileRead, tavdbFileWrite, tavdbFileSeek},
    {"rom", false, tavdbFileOpenRom, tavdbFileClose, tavdbFileRead, tavdbFileWrite, tavdbFileSeek},
    {"message", true, tavdbMsgOpen, tavdbMsgClose, tavdbMsgRead, tavdbMsgWrite, tavdbMsgSeek},
};

void PrintTo(const MediumKind &kind, std::ostream *stream) {
    *stream << kind.name;
}

struct SyncFunction {
    std::string name;
    tavDBMMediaSync function;
};
#define TAVDB_SYNC_ROW(name) {#name, name},
const std::vector<SyncFunction> kSyncFunctions = {TAVDB_MEDIA_SYNC_LIST(TAVDB_SYNC_ROW)};
#undef TAVDB_SYNC_ROW

/// What a function gave back; the error number is 0 when none was stored.
struct Outcome {
    int32_t result;
    uint32_t error;
    bool operator==(const Outcome &) const = default;
};

void PrintTo(const Outcome &outcome, std::ostream *stream) {
    *stream << outcome.result << " (error " << outcome.error << ")";
}

bool isFailure(const Outcome &outcome) {
    return outcome.result == -1 && outcome.error != 0;
}

class MediaContract : public ContractTest, public ::testing::WithParamInterface<MediumKind> {
protected:
    static constexpr char kUntouched = '?';

    void SetUp() override {
        makeFile(folder / "media.conf", 0);
        ASSERT_EQ(dbs_me_db_media_file_init((folder / "media.conf").c_str(), 0), 0);
        if (facts().whyMissing != nullptr)
            GTEST_SKIP() << "not on this platform: " << facts().whyMissing;
        hint = platformUnderTest().makeMedium(kind().name, "a.med", kContent);
    }
    static const MediumKind &kind() {
        return GetParam();
    }
    static MediumFacts facts() {
        const auto &all = platformUnderTest().media;
        const auto found = all.find(kind().name);
        return found != all.end() ? found->second : MediumFacts{};
    }
    static int32_t sizeOf(const std::string &content) {
        return static_cast<int32_t>(content.size());
    }

    int32_t open() const {
        const Outcome outcome = open(hint);
        EXPECT_GE(outcome.result, 0) << "error " << outcome.error;
        return outcome.result;
    }
    static Outcome open(const std::string &name) {
        Outcome outcome = {0, 0};
        outcome.result = kind().open(name.c_str(), 0, &outcome.error);
        return outcome;
    }
    static Outcome write(int32_t fd, const std::string &bytes, uint32_t offset) {
        Outcome outcome = {0, 0};
        outcome.result = kind().write(fd, bytes.data(), sizeOf(bytes), offset, &outcome.error);
        return outcome;
    }
    static Outcome seek(int32_t fd, int32_t offset, int32_t whence) {
        Outcome outcome = {0, 0};
        outcome.result = kind().seek(fd, offset, whence, &outcome.error);
        return outcome;
    }
    static int32_t close(int32_t fd) {
        uint32_t error = 0;
        return kind().close(fd, &error);
    }
    /// The bytes of a read; also sees that nothing behind the length was touched.
    static std::string read(int32_t fd, int32_t length, uint32_t offset) {
        constexpr size_t kBehind = 16;
        std::string bytes(static_cast<size_t>(length) + kBehind, kUntouched);
        uint32_t error = 0;
        const int32_t count = kind().read(fd, bytes.data(), length, offset, &error);
        EXPECT_GE(count, 0) << "error " << error;
        EXPECT_LE(count, length);
        EXPECT_EQ(bytes.substr(static_cast<size_t>(length)), std::string(kBehind, kUntouched));
        return bytes.substr(0, static_cast<size_t>(std::clamp(count, 0, length)));
    }
    /// Everything that a fresh descriptor reads.
    std::string whole() const {
        const int32_t fd = open();
        const std::string bytes = read(fd, 1000, 0);
        EXPECT_EQ(close(fd), 0);
        return bytes;
    }

    const std::string kContent = "0123456789abcdef";
    std::string hint;
};

class WritableMediaContract : public MediaContract {};
class ReadOnlyMediaContract : public MediaContract {};

TEST_P(MediaContract, OpensWhatIsThereAsOftenAsAsked) {
    for (int i = 0; i < 3000; ++i)
        ASSERT_EQ(close(open()), 0) << i;
    EXPECT_EQ(whole(), kContent);
}

TEST_P(MediaContract, NothingThatIsMissingIsOpenedOrMade) {
    for (int i = 0; i < 2; ++i)
        EXPECT_TRUE(isFailure(open("missing.med"))) << "is made by the first open";
}

TEST_P(MediaContract, ReadsAtTheStartInsideAndUpToTheEnd) {
    const int32_t fd = open();
    EXPECT_EQ(read(fd, 4, 0), "0123");
    EXPECT_EQ(read(fd, 4, 7), "789a");
    EXPECT_EQ(read(fd, 4, 12), "cdef");
    EXPECT_EQ(read(fd, 16, 0), kContent);
    EXPECT_EQ(read(fd, 1, 3), "3");
    EXPECT_EQ(close(fd), 0);
}

TEST_P(MediaContract, AReadBeyondTheEndBringsWhatIsThere) {
    const int32_t fd = open();
    EXPECT_EQ(read(fd, 100, 0), kContent);
    EXPECT_EQ(read(fd, 4, 14), "ef");
    for (const uint32_t offset : {16U, 17U, 5000U, 0x7FFFFFFFU, 0x80000000U, 0xFFFFFFFFU})
        EXPECT_EQ(read(fd, 4, offset), "") << offset;
    EXPECT_EQ(close(fd), 0);
}

TEST_P(MediaContract, TransfersOfNoBytesDoNothing) {
    const int32_t fd = open();
    EXPECT_EQ(read(fd, 0, 0), "");
    EXPECT_EQ(read(fd, 0, 100), "");
    if (kind().isWritable) {
        EXPECT_EQ(write(fd, "", 3), (Outcome{0, 0}));
    }
    EXPECT_EQ(close(fd), 0);
    EXPECT_EQ(whole(), kContent);
}

TEST_P(WritableMediaContract, AWriteStaysWhereItBelongs) {
    const int32_t fd = open();
    EXPECT_EQ(write(fd, "XYZ", 5), (Outcome{3, 0}));
    EXPECT_EQ(write(fd, "S", 0), (Outcome{1, 0}));
    EXPECT_EQ(write(fd, "E", 15), (Outcome{1, 0}));
    EXPECT_EQ(read(fd, 16, 0), "S1234XYZ89abcdeE");
    EXPECT_EQ(close(fd), 0);
    EXPECT_EQ(whole(), "S1234XYZ89abcdeE") << "a fresh descriptor sees it";
}

TEST_P(WritableMediaContract, AWriteAtTheEndAppendsOrIsRefused) {
    if (!facts().grows) {
        const int32_t fd = open();
        const Outcome outcome = write(fd, "added", 16);
        EXPECT_LT(outcome.result, 5);
        EXPECT_NE(outcome.error, 0U);
        EXPECT_EQ(close(fd), 0);
        EXPECT_EQ(whole(), kContent);
        return;
    }
    for (int32_t round = 0; round < 3; ++round) {
        const int32_t fd = open();
        const int32_t end = 16 + 5 * round;
        EXPECT_EQ(seek(fd, 0, SEEK_END), (Outcome{end, 0}));
        EXPECT_EQ(write(fd, "added", static_cast<uint32_t>(end)), (Outcome{5, 0}));
        EXPECT_EQ(seek(fd, 0, SEEK_END), (Outcome{end + 5, 0}));
        EXPECT_EQ(close(fd), 0);
    }
    EXPECT_EQ(whole(), kContent + "addedaddedadded");
}

TEST_P(WritableMediaContract, AWriteAcrossTheEndIsDoneAsAWhole) {
    TAVDB_NEEDS(facts().grows ? nullptr : "this kind does not grow");
    const int32_t fd = open();
    EXPECT_EQ(write(fd, "wxyz", 14), (Outcome{4, 0}));
    EXPECT_EQ(close(fd), 0);
    EXPECT_EQ(whole(), "0123456789abcdwxyz");
}

TEST_P(ReadOnlyMediaContract, RefusesWritesAndKeepsItsBytes) {
    const int32_t fd = open();
    EXPECT_TRUE(isFailure(write(fd, "x", 0)));
    EXPECT_TRUE(isFailure(write(fd, "x", 16)));
    EXPECT_EQ(close(fd), 0);
    EXPECT_EQ(whole(), kContent);
}

TEST_P(MediaContract, SeeksTellPositions) {
    const int32_t fd = open();
    EXPECT_EQ(seek(fd, 0, SEEK_END), (Outcome{16, 0}));
    EXPECT_EQ(seek(fd, -4, SEEK_END), (Outcome{12, 0}));
    EXPECT_EQ(seek(fd, 5, SEEK_SET), (Outcome{5, 0}));
    EXPECT_EQ(read(fd, 4, 0), "0123") << "a transfer goes by its offset";
    EXPECT_TRUE(isFailure(seek(fd, -17, SEEK_END)));
    EXPECT_TRUE(isFailure(seek(fd, -1, SEEK_SET)));
    EXPECT_TRUE(isFailure(seek(fd, 0, 99)));
    EXPECT_EQ(close(fd), 0);
}

TEST_P(MediaContract, EverySyncFunctionOfTheKindFlushes) {
    const std::string stem = kind().name == std::string("memory")    ? "tavdbMemSync"
                             : kind().name == std::string("message") ? "tavdbMsgSync"
                                                                     : "tavdbFileSync";
    const int32_t fd = open();
    size_t tried = 0;
    for (const SyncFunction &sync : kSyncFunctions) {
        if (!sync.name.starts_with(stem))
            continue;
        uint32_t error = 0;
        EXPECT_EQ(sync.function(fd, &error, static_cast<uint32_t>(tried++)), 0) << sync.name << " error " << error;
    }
    EXPECT_GE(tried, 1U);
    EXPECT_EQ(close(fd), 0);
    EXPECT_EQ(whole(), kContent);
}

TEST_P(WritableMediaContract, TwoDescriptorsSeeEachOthersWritesAtOnce) {
    const int32_t first = open();
    const int32_t second = open();
    EXPECT_EQ(write(first, "one", 0), (Outcome{3, 0}));
    EXPECT_EQ(read(second, 4, 0), "one3");
    EXPECT_EQ(write(second, "two", 3), (Outcome{3, 0}));
    EXPECT_EQ(read(first, 6, 0), "onetwo");
    EXPECT_EQ(close(first), 0);
    EXPECT_EQ(read(second, 6, 0), "onetwo") << "one close leaves the other descriptor alone";
    EXPECT_EQ(close(second), 0);
}

TEST_P(MediaContract, TwoMediaAreTwo) {
    const std::string other = platformUnderTest().makeMedium(kind().name, "b.med", "other");
    const int32_t fd = open();
    const int32_t otherFd = open(other).result;
    ASSERT_GE(otherFd, 0);
    EXPECT_NE(fd, otherFd);
    EXPECT_EQ(read(otherFd, 10, 0), "other");
    EXPECT_EQ(read(fd, 5, 0), "01234");
    EXPECT_EQ(close(otherFd), 0);
    EXPECT_EQ(close(fd), 0);
}

TEST_P(WritableMediaContract, ProcessesSeeEachOthersWritesAtOnce) {
    TAVDB_NEEDS_PROCESSES;
    struct Write {
        std::string seen;  ///< what the child finds before it writes
        std::string bytes;
        uint32_t offset;
    };
    const auto inChild = [&](const Write &write, bool asAnotherProgram) {
        return Child([&] {
                   if (asAnotherProgram && dbs_me_db_media_file_init((folder / "media.conf").c_str(), 0) != 0)
                       return 1;
                   const int32_t fd = open(hint).result;
                   if (read(fd, 100, 0) != write.seen)
                       return 2;
                   const int32_t count = MediaContract::write(fd, write.bytes, write.offset).result;
                   return count == sizeOf(write.bytes) && close(fd) == 0 ? 0 : 3;
               })
            .join();
    };
    const int32_t fd = open();
    EXPECT_EQ(write(fd, "first", 0), (Outcome{5, 0}));
    EXPECT_EQ(inChild({"first56789abcdef", "child", 5}, false), 0);
    EXPECT_EQ(read(fd, 16, 0), "firstchildabcdef");
    EXPECT_EQ(inChild({"firstchildabcdef", "other", 10}, true), 0);
    EXPECT_EQ(read(fd, 16, 0), "firstchildotherf");
    if (facts().grows) {
        EXPECT_EQ(inChild({"firstchildotherf", "more", 16}, true), 0);
        EXPECT_EQ(seek(fd, 0, SEEK_END), (Outcome{20, 0}));
        EXPECT_EQ(read(fd, 100, 15), "fmore");
    }
    EXPECT_EQ(close(fd), 0);
}

TEST_P(WritableMediaContract, ThreadsDoNotDisturbEachOther) {
    constexpr uint32_t kThreads = 4;
    constexpr uint32_t kPart = 4;  // bytes of each thread
    std::vector<std::thread> threads;
    for (uint32_t thread = 0; thread < kThreads; ++thread)
        threads.emplace_back([&, thread] {
            for (int round = 0; round < 200; ++round) {
                const std::string bytes(kPart, static_cast<char>('A' + (round + static_cast<int>(thread)) % 26));
                const int32_t fd = open();
                EXPECT_EQ(write(fd, bytes, thread * kPart).result, static_cast<int32_t>(kPart));
                EXPECT_EQ(read(fd, static_cast<int32_t>(kPart), thread * kPart), bytes);
                EXPECT_EQ(close(fd), 0);
            }
        });
    for (std::thread &thread : threads)
        thread.join();
    EXPECT_EQ(whole().size(), kThreads * kPart);
}

std::vector<MediumKind> kindsWith(bool isWritable) {
    std::vector<MediumKind> kinds(std::begin(kKinds), std::end(kKinds));
    std::erase_if(kinds, [=](const MediumKind &kind) { return kind.isWritable != isWritable; });
    return kinds;
}

std::string nameOf(const ::testing::TestParamInfo<MediumKind> &row) {
    return row.param.name;
}

INSTANTIATE_TEST_SUITE_P(, MediaContract, ::testing::ValuesIn(kKinds), nameOf);
INSTANTIATE_TEST_SUITE_P(, WritableMediaContract, ::testing::ValuesIn(kindsWith(true)), nameOf);
INSTANTIATE_TEST_SUITE_P(, ReadOnlyMediaContract, ::testing::ValuesIn(kindsWith(false)), nameOf);

using MediaLibraryContract = ContractTest;

TEST_F(MediaLibraryContract, AKindThatIsNotOfferedFailsToOpen) {
    makeFile(folder / "media.conf", 0);
    ASSERT_EQ(dbs_me_db_media_file_init((folder / "media.conf").c_str(), 0), 0);
    size_t missing = 0;
    for (const auto &[name, facts] : platformUnderTest().media) {
        const auto kind = std::find_if(std::begin(kKinds), std::end(kKinds),
                                       [&name = name](const MediumKind &row) { return row.name == name; });
        ASSERT_NE(kind, std::end(kKinds)) << "the platform's record names an unknown kind: " << name;
        uint32_t error = 0;
        if (facts.whyMissing == nullptr)
            continue;
        ++missing;
        EXPECT_EQ(kind->open("a.med", 0, &error), -1) << name;
        EXPECT_NE(error, 0U) << name;
    }
    if (missing == 0)
        GTEST_SKIP() << "the platform offers every kind";
}

TEST_F(MediaLibraryContract, ItStartsAgainAndAgain) {
    makeFile(folder / "media.conf", 0);
    for (int i = 0; i < 10; ++i)
        EXPECT_EQ(dbs_me_db_media_file_init((folder / "media.conf").c_str(), 0), 0);
}

TEST_F(MediaLibraryContract, TheDumpAddsItsSizesAndTakesNullPointers) {
    for (const int32_t level : {0, 5, 98, 99}) {
        uint32_t debugSize = 1000;
        uint32_t ramSize = 2000;
        EXPECT_EQ(dbs_me_db_media_file_debug_info(level, &debugSize, &ramSize), 0);
        EXPECT_GE(debugSize, 1000U);
        EXPECT_GE(ramSize, 2000U);
        EXPECT_EQ(dbs_me_db_media_file_debug_info(level, nullptr, nullptr), 0);
    }
}

}  // namespace
}  // namespace tavdb::test
