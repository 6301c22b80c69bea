// SPDX-License-Identifier: Apache-2.0
// The default medium: the file that the environment names, through its own
// functions and through media id 0, with failing system calls and counters.
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <filesystem>
#include <fstream>

#include "fakes/fault_runs.h"
#include "file_content.h"
#include "storage/storage_test_support.h"

namespace tavdb_test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

constexpr char kFile[] = "default.med";

class DefaultMedium : public MediaTest {
protected:
    void SetUp() override {
        MediaTest::SetUp();
        put(Bytes(64, 0x55));
        environment().set("TAVDB_DEFMEDIA", file(kFile));
        observe();
    }
    void put(const Bytes &content) const {
        std::ofstream stream(file(kFile), std::ios::binary);
        stream.write(reinterpret_cast<const char *>(content.data()), static_cast<std::streamsize>(content.size()));
    }
    Bytes content() const {
        return contentOf<Bytes>(file(kFile));
    }
    int32_t open() {
        return dbs_me_db_media_def_open("", 0, &error_);
    }
    /// The file opened with the log cleared behind it.
    int32_t opened() {
        const int32_t fd = open();
        EXPECT_GE(fd, 0);
        observe();
        return fd;
    }
    void close(int32_t fd) {
        EXPECT_EQ(dbs_me_db_media_def_close(fd, &error_), 0);
    }
    static std::vector<std::string> systemCalls() {
        return eventLog().lines(Category::libc);
    }
    /// The six call counters: open, close, read, write, seek, sync.
    static std::vector<uint32_t> counters() {
        fakeTrace().clear();
        dbs_me_db_media_debug_info(98, nullptr, nullptr);
        std::vector<uint32_t> values;
        for (const DumpedWord &word : dumpedWords(98)) {
            if (word.name.starts_with("s_debug_db_media_def_"))
                values.push_back(word.value);
        }
        fakeTrace().clear();
        return values;
    }

    static constexpr uint32_t kStaleError = 99;
    const Recording recording_;
    uint32_t error_ = kStaleError;
};

TEST_F(DefaultMedium, OpensReadWriteAndSynchronousWithoutCreatingOrTruncating) {
    const int32_t fd = open();
    EXPECT_THAT(systemCalls(), ElementsAre("sys.open default.med O_RDWR|O_SYNC|O_CLOEXEC"));
    EXPECT_EQ(fcntl(fd, F_GETFD) & FD_CLOEXEC, FD_CLOEXEC);
    close(fd);
    EXPECT_EQ(content(), Bytes(64, 0x55));
    EXPECT_EQ(error_, kStaleError);
}

TEST_F(DefaultMedium, OpenIgnoresHintAndOpenArgument) {
    const int32_t fd = dbs_me_db_media_def_open("/no/such/file", 12345, &error_);
    EXPECT_GE(fd, 0);
    close(fd);
    const int32_t second = dbs_me_db_media_def_open(nullptr, 0, &error_);
    EXPECT_GE(second, 0);
    close(second);
}

TEST_F(DefaultMedium, AMissingFileIsNotCreated) {
    ASSERT_EQ(unlink(file(kFile).c_str()), 0);
    EXPECT_EQ(open(), -1);
    EXPECT_EQ(error_, static_cast<uint32_t>(ENOENT));
    EXPECT_TRUE(fakeTrace().onlyError(errorCodeTextLine("dbs_me_db_media_def_open", 410, ENOENT, "TAVDB_DEFMEDIA")));
    EXPECT_FALSE(std::filesystem::exists(file(kFile)));
}

TEST_F(DefaultMedium, WithoutTheVariableOpenDeliberatelyTouchesNeitherErrorNorCounterNorTrace) {
    const std::vector<uint32_t> before = counters();
    environment().unset("TAVDB_DEFMEDIA");
    EXPECT_EQ(open(), -1);
    EXPECT_EQ(error_, kStaleError);
    EXPECT_TRUE(fakeTrace().noErrors());
    EXPECT_THAT(systemCalls(), IsEmpty());
    EXPECT_EQ(counters(), before);
}

TEST_F(DefaultMedium, ReadsAtTheOffset) {
    Bytes bytes(64, 0x55);
    bytes[40] = 0xAB;
    put(bytes);
    const int32_t fd = opened();
    uint8_t two[2] = {};
    EXPECT_EQ(dbs_me_db_media_def_read(fd, two, 2, 40, &error_), 2);
    EXPECT_EQ(hexText(two), "ab 55");
    EXPECT_THAT(systemCalls(), ElementsAre("sys.pread default.med 2@40"));
    close(fd);
}

TEST_F(DefaultMedium, AReadAtTheEndIsShortAndNoFailure) {
    const int32_t fd = opened();
    uint8_t four[4] = {};
    EXPECT_EQ(dbs_me_db_media_def_read(fd, four, 4, 62, &error_), 2);
    EXPECT_EQ(dbs_me_db_media_def_read(fd, four, 4, 64, &error_), 0);
    EXPECT_EQ(error_, kStaleError);
    EXPECT_TRUE(fakeTrace().noErrors());
    close(fd);
}

TEST_F(DefaultMedium, WritesAtTheOffsetAndGrowsTheFile) {
    const int32_t fd = opened();
    EXPECT_EQ(dbs_me_db_media_def_write(fd, "\x01\x02\x03\x04", 4, 62, &error_), 4);
    EXPECT_THAT(systemCalls(), ElementsAre("sys.pwrite default.med 4@62"));
    EXPECT_THAT(differences(Bytes(64, 0x55), content()), ElementsAre("62: 55 55 -> 01 02", "size: 64 -> 66"));
    close(fd);
}

TEST_F(DefaultMedium, OffsetsBeyondTwoGigabytesAreReached) {
    constexpr uint32_t kFar = 0xC0000010U;
    ASSERT_EQ(truncate64(file(kFile).c_str(), off64_t{0xC0000020}), 0) << "a sparse file";
    const int32_t fd = opened();
    uint32_t word = 0x11223344;
    EXPECT_EQ(dbs_me_db_media_def_write(fd, &word, 4, kFar, &error_), 4);
    word = 0;
    EXPECT_EQ(dbs_me_db_media_def_read(fd, &word, 4, kFar, &error_), 4);
    EXPECT_EQ(word, 0x11223344U);
    EXPECT_TRUE(fakeTrace().noErrors());
    close(fd);
}

TEST_F(DefaultMedium, SeeksGiveThePosition) {
    const int32_t fd = opened();
    EXPECT_EQ(dbs_me_db_media_def_seek(fd, 5, SEEK_SET, &error_), 5);
    EXPECT_EQ(dbs_me_db_media_def_seek(fd, 3, SEEK_CUR, &error_), 8);
    EXPECT_EQ(dbs_me_db_media_def_seek(fd, -4, SEEK_END, &error_), 60);
    EXPECT_THAT(systemCalls(), ElementsAre("sys.lseek default.med 5 set", "sys.lseek default.med 3 cur",
                                           "sys.lseek default.med -4 end"));
    close(fd);
}

TEST_F(DefaultMedium, SyncFlushesWhateverTheArgument) {
    const int32_t fd = opened();
    EXPECT_EQ(dbs_me_db_media_def_sync(fd, &error_, 0), 0);
    EXPECT_EQ(dbs_me_db_media_def_sync(fd, &error_, 4711), 0);
    EXPECT_THAT(systemCalls(), ElementsAre("sys.fsync default.med", "sys.fsync default.med"));
    close(fd);
}

/// One of the five functions on an open file: how it is called and how its failure is traced.
struct DefaultCall {
    const char *function;
    int32_t site;  ///< fixed for good
    size_t counter;
    Operation operation;
    int32_t (*call)(int32_t fd, uint32_t *err);
};

void PrintTo(const DefaultCall &call, std::ostream *stream) {
    *stream << call.function;
}

uint8_t someByte = 0;

const DefaultCall kCalls[] = {
    {"close", 420, 1, Operation::sysClose, dbs_me_db_media_def_close},
    {"read", 430, 2, Operation::sysRead,
     [](int32_t fd, uint32_t *err) { return dbs_me_db_media_def_read(fd, &someByte, 1, 0, err); }},
    {"write", 440, 3, Operation::sysPwrite,
     [](int32_t fd, uint32_t *err) { return dbs_me_db_media_def_write(fd, &someByte, 1, 0, err); }},
    {"seek", 450, 4, Operation::sysSeek,
     [](int32_t fd, uint32_t *err) { return dbs_me_db_media_def_seek(fd, 0, SEEK_SET, err); }},
    {"sync", 460, 5, Operation::sysSync,
     [](int32_t fd, uint32_t *err) { return dbs_me_db_media_def_sync(fd, err, 0); }},
};

class DefaultFunction : public DefaultMedium, public testing::WithParamInterface<DefaultCall> {
protected:
    /// Closes what a failed close did not: with this fake it did.
    void closeUnlessClosed(int32_t fd) {
        if (GetParam().operation != Operation::sysClose)
            close(fd);
    }
};

TEST_P(DefaultFunction, HandsErrnoToTheCallerAndTheTrace) {
    const int32_t fd = opened();
    faultPlan().add({.operation = GetParam().operation, .fault = returning(-1, EDQUOT)});
    EXPECT_EQ(GetParam().call(fd, &error_), -1);
    EXPECT_EQ(error_, static_cast<uint32_t>(EDQUOT));
    EXPECT_TRUE(fakeTrace().onlyError(
        errorLine(std::string("dbs_me_db_media_def_") + GetParam().function, GetParam().site, {EDQUOT})));
    closeUnlessClosed(fd);
}

TEST_P(DefaultFunction, LeavesTheErrorWordAloneWhenItSucceeds) {
    const int32_t fd = opened();
    EXPECT_GE(GetParam().call(fd, &error_), 0);
    EXPECT_EQ(error_, kStaleError);
    EXPECT_TRUE(fakeTrace().noErrors());
    closeUnlessClosed(fd);
}

TEST_P(DefaultFunction, MovesItsOwnCounterByThree) {
    const int32_t fd = opened();
    std::vector<uint32_t> expected = counters();
    GetParam().call(fd, &error_);
    expected[GetParam().counter] += 3;
    EXPECT_EQ(counters(), expected);
    closeUnlessClosed(fd);
}

TEST_P(DefaultFunction, MovesItsCounterByThreeWhenItFails) {
    const int32_t fd = opened();
    std::vector<uint32_t> expected = counters();
    faultPlan().add({.operation = GetParam().operation});
    GetParam().call(fd, &error_);
    expected[GetParam().counter] += 3;
    EXPECT_EQ(counters(), expected);
    closeUnlessClosed(fd);
}

INSTANTIATE_TEST_SUITE_P(Functions, DefaultFunction, testing::ValuesIn(kCalls),
                         [](const auto &test) { return std::string(test.param.function); });

TEST_F(DefaultMedium, OpenMovesItsCounterByThreeWhetherItSucceedsOrNot) {
    std::vector<uint32_t> expected = counters();
    const int32_t fd = open();
    expected[0] += 3;
    EXPECT_EQ(counters(), expected);
    close(fd);
    expected[1] += 3;
    faultPlan().add({.operation = Operation::sysOpen});
    EXPECT_EQ(open(), -1);
    expected[0] += 3;
    EXPECT_EQ(counters(), expected);
}

TEST_F(DefaultMedium, IsReachedAsMediaIdZeroWithoutAnyConfiguration) {
    put(bytesOf(uint32_t{1}, uint32_t{2}, uint32_t{0x40}, uint32_t{0}));
    observe();
    EXPECT_EQ(flst_m_getRoot(&session, 0), 0x40U);
    EXPECT_THAT(eventLog().lines(), ElementsAre("sys.open default.med O_RDWR|O_SYNC|O_CLOEXEC",
                                                "sys.pread default.med 16@0", "sys.close default.med"));
    EXPECT_TRUE(silent());
}

TEST_F(DefaultMedium, IsSyncedAsMediaIdZero) {
    EXPECT_EQ(tavDBMSync(&session, 0, 1), 0);
    EXPECT_THAT(systemCalls(), ElementsAre("sys.open default.med O_RDWR|O_SYNC|O_CLOEXEC", "sys.fsync default.med",
                                           "sys.close default.med"));
}

TEST_F(DefaultMedium, AFailedSyncOfItIsCode26) {
    faultPlan().add({.operation = Operation::sysSync, .fault = returning(-1, EIO)});
    EXPECT_EQ(tavDBMSync(&session, 0, 1), 26);
    EXPECT_EQ(session.errorDetail, static_cast<uint32_t>(EIO));
    EXPECT_EQ(fakeTrace().errors().size(), 2U) << "the medium's own line and the caller's";
}

/// An operation on a media id, with its result when the medium does not open.
struct MediumOperation {
    const char *name;
    int32_t result;
    int32_t (*run)(tavDBMSession *session, int32_t mediaId);
};

void PrintTo(const MediumOperation &operation, std::ostream *stream) {
    *stream << operation.name;
}

constexpr tavDBMFreeBlock kElement = {0, 8};

const MediumOperation kOperationsOfId[] = {
    {"sync", 22, [](tavDBMSession *session, int32_t id) { return tavDBMSync(session, id, 0); }},
    {"getRoot", 0,
     [](tavDBMSession *session, int32_t id) { return static_cast<int32_t>(flst_m_getRoot(session, id)); }},
    {"setRoot", 22, [](tavDBMSession *session, int32_t id) { return flst_m_setRoot(session, id, 16); }},
    {"get", 0, [](tavDBMSession *session, int32_t id) { return static_cast<int32_t>(flst_m_get(session, id, 16)); }},
    {"release", 0, [](tavDBMSession *session, int32_t id) { return flst_m_release(session, id, 16, 16); }},
    {"setFirstOffset", 22, [](tavDBMSession *session, int32_t id) { return flst_m_setFirstOffset(session, id, 16); }},
    {"setElement", 22,
     [](tavDBMSession *session, int32_t id) { return flst_m_setElement(session, id, 16, &kElement); }},
};

class DefaultMediumUnset : public DefaultMedium, public testing::WithParamInterface<MediumOperation> {};

TEST_P(DefaultMediumUnset, FailsWithCode22AndTheErrorWordOfTheCallerWhichStartsAtZero) {
    environment().unset("TAVDB_DEFMEDIA");
    EXPECT_EQ(GetParam().run(&session, 0), GetParam().result);
    EXPECT_EQ(session.errorCode, 22U);
    EXPECT_EQ(session.errorDetail, 0U);
    EXPECT_EQ(fakeTrace().errors().size(), 1U);
    EXPECT_EQ(content(), Bytes(64, 0x55));
}

INSTANTIATE_TEST_SUITE_P(Operations, DefaultMediumUnset, testing::ValuesIn(kOperationsOfId), kRowName);

}  // namespace
}  // namespace tavdb_test
