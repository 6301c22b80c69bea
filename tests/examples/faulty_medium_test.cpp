// SPDX-License-Identifier: Apache-2.0
// The example plug-in under a real database: it serves the images like a built-in
// medium, and its delays and faults reach the caller as docs/PLUGINS.md says.
#include <gmock/gmock.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <chrono>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <memory>
#include <thread>

#include "file_content.h"
#include "gateway_test_support.h"
#include "tavdb_modules.h"

extern "C" {
#include "gateway/directory.h"
}

namespace tavdb::test {

namespace {

using tavdb_test::contentOf;
using testing::AllOf;
using testing::HasSubstr;
using testing::StartsWith;

constexpr int32_t kDataMedium = 5;
constexpr char kLeaf[] = "/network/lan/mtuBytes";

size_t openDescriptors() {
    const std::filesystem::directory_iterator all("/proc/self/fd");
    return static_cast<size_t>(std::distance(begin(all), end(all)));
}

class FaultyMedium : public GatewayTest {
protected:
    void SetUp() override {
        GatewayTest::SetUp();
        unsetenv("FAULTY_MEDIUM");
        build(false);
        builtInLines = linesOf(contentOf(database() + "/media.conf"));
        ASSERT_EQ(builtInLines.size(), 6U);
    }
    void TearDown() override {
        detach();
        unsetenv("FAULTY_MEDIUM");
        GatewayTest::TearDown();
    }

    static void ask(const std::string &settings) {
        setenv("FAULTY_MEDIUM", settings.c_str(), 1);
    }
    /// Puts the plug-in's line in place of those from one medium to another.
    void replaceLines(int32_t first, int32_t last) {
        auto lines = builtInLines;
        for (int32_t id = first; id <= last; id++) {
            std::string &line = lines[static_cast<size_t>(id) - 1];
            const std::string image = line.substr(line.rfind(' ') + 1);
            line = TAVDB_TEST_FAULTY_MEDIUM " faultyOpen faultyClose faultyRead faultyWrite faultySeek faultySync " +
                   database() + "/" + image;
        }
        writeLines(lines);
    }
    void writeLines(const std::vector<std::string> &lines) {
        std::ofstream file(database() + "/media.conf", std::ios::trunc);
        for (const auto &line : lines)
            file << line << '\n';
    }

    /// Attaches this process to the database, with the plug-in for the values' data.
    void attach() {
        replaceLines(kDataMedium, kDataMedium);
        tavDBMDescription description;
        ASSERT_EQ(describeDirectory(database().c_str(), &description), 0);
        attached = tavDBMInit(&description, nullptr);
        ASSERT_GT(attached, 0);
        ASSERT_EQ(tavDBMInitSession(&session, static_cast<uint32_t>(attached)), 0);
        leaf = tavDBMSearchByName(&session, kLeaf);
        ASSERT_NE(leaf, 0U);
        session.errorCode = 0;
        session.errorDetail = 0;
    }
    void detach() {
        if (attached <= 0)
            return;
        EXPECT_EQ(tavDBMTermSession(&session), 0);
        EXPECT_EQ(tavDBMTerm(static_cast<uint32_t>(attached)), 0);
        attached = 0;
    }
    void attachWith(const std::string &settings) {
        ask(settings);
        attach();
    }
    void expectError(uint32_t code, int detail) {
        EXPECT_EQ(session.errorCode, code);
        EXPECT_EQ(session.errorDetail, static_cast<uint32_t>(detail));
    }
    /// The value as another process reads it, without faults.
    std::string valueElsewhere() {
        const char *const settings = getenv("FAULTY_MEDIUM");
        const std::string before = settings != nullptr ? settings : "";
        unsetenv("FAULTY_MEDIUM");
        const auto got = tavdb({"get", kLeaf});
        ask(before);
        return got.output;
    }

    std::vector<std::string> builtInLines;
    tavDBMSession session = {};
    int32_t attached = 0;
    uint32_t leaf = 0;
};

TEST_F(FaultyMedium, AWholeDatabaseOnItIsLikeAnyOther) {
    const auto before = tavdb({"tree", "--secrets"});
    replaceLines(1, 6);
    const auto after = tavdb({"tree", "--secrets"});
    EXPECT_EQ(after.code, 0);
    EXPECT_EQ(after.output, before.output);
    EXPECT_EQ(tavdb({"set", kLeaf, "1400"}).code, 0);
    const auto written = run({TAVDB_TEST_WRITER, database(), "0"});
    EXPECT_EQ(written.code, 0) << written.output;
    const auto tree = tavdb({"tree"});
    writeLines(builtInLines);
    EXPECT_EQ(tavdb({"tree"}).output, tree.output) << "the images are the same for both media";
}

TEST_F(FaultyMedium, SeveralProcessesShareIt) {
    attachWith("write=2000");
    std::vector<std::unique_ptr<Program>> others;
    for (int i = 0; i < 3; i++)
        others.push_back(
            std::make_unique<Program>(Words{TAVDB_TEST_WRITER, database(), "0"}, place(std::to_string(i))));
    for (int i = 0; i < 50; i++) {
        EXPECT_EQ(tavDBMSetUint16(&session, leaf, 1400), 0);
        expectError(0, 0);
    }
    for (const auto &other : others)
        EXPECT_EQ(other->wait(), 0) << other->output();
    EXPECT_EQ(tavdb({"set", kLeaf, "1404"}).code, 0);
    uint16_t value = 0;
    EXPECT_EQ(tavDBMGetUint16(&session, leaf, &value), 0);
    EXPECT_EQ(value, 1404) << "what another process wrote";
}

TEST_F(FaultyMedium, DelaysAreFelt) {
    attachWith("read=150000 sync=100000");
    uint16_t value = 0;
    auto start = std::chrono::steady_clock::now();
    const auto passed = [&] { return std::chrono::steady_clock::now() - start; };
    EXPECT_EQ(tavDBMGetUint16(&session, leaf, &value), 0);
    EXPECT_GE(passed(), std::chrono::milliseconds(150));
    start = std::chrono::steady_clock::now();
    EXPECT_EQ(tavDBMSync(&session, kDataMedium, 0), 0);
    EXPECT_GE(passed(), std::chrono::milliseconds(100));
    EXPECT_EQ(value, 1500);
}

TEST_F(FaultyMedium, AFailedOpenIsTheCallersCode) {
    attachWith("open=0,EACCES,1");
    EXPECT_EQ(tavDBMSetUint16(&session, leaf, 1400), TAVDB_ERR_MEDIUM_OPEN);
    expectError(TAVDB_ERR_MEDIUM_OPEN, EACCES);
    EXPECT_EQ(tavDBMSync(&session, kDataMedium, 0), TAVDB_ERR_MEDIUM_OPEN);
    expectError(TAVDB_ERR_MEDIUM_OPEN, EACCES);
}

TEST_F(FaultyMedium, AFailedTransferStandsInTheSessionWithItsErrorNumber) {
    attachWith("read=0,EIO,1 write=0,ENOSPC,1");
    tavDBMSetUint16(&session, leaf, 1400);
    expectError(TAVDB_ERR_MEDIUM_WRITE, ENOSPC);
    uint16_t value = 0;
    tavDBMGetUint16(&session, leaf, &value);
    expectError(TAVDB_ERR_MEDIUM_READ, EIO);
    EXPECT_EQ(valueElsewhere(), "1500\n") << "nothing was written";
}

TEST_F(FaultyMedium, AFailedSyncIsTheCallersCode) {
    attachWith("sync=0,EIO,2");
    EXPECT_EQ(tavDBMSync(&session, kDataMedium, 0), 0);
    EXPECT_EQ(tavDBMSync(&session, kDataMedium, 0), TAVDB_ERR_MEDIUM_SYNC);
    expectError(TAVDB_ERR_MEDIUM_SYNC, EIO);
}

TEST_F(FaultyMedium, AFailedCloseFailsTheCallThoughTheBytesAreWritten) {
    attachWith("close=0,EIO,1");
    EXPECT_EQ(tavDBMSetUint16(&session, leaf, 1400), -1);
    EXPECT_EQ(valueElsewhere(), "1400\n");
}

TEST_F(FaultyMedium, AShortWriteOfAValueGoesUnnoticed) {
    attachWith("write=0,short,1");
    const uint16_t before = 0x05DC;
    const uint16_t wanted = 0x0A80;
    EXPECT_EQ(tavDBMSetUint16(&session, leaf, wanted), 0);
    expectError(0, 0);
    uint16_t torn = before;
    memcpy(&torn, &wanted, 1);
    EXPECT_EQ(valueElsewhere(), std::to_string(torn) + "\n");
}

TEST_F(FaultyMedium, EachSoManiethCallFails) {
    attachWith("write=0,EIO,3");
    int failures = 0;
    for (int i = 1; i <= 12; i++) {
        session.errorCode = 0;
        tavDBMSetUint16(&session, leaf, 1400);
        failures += session.errorCode != 0;
        EXPECT_EQ(session.errorCode != 0, i % 3 == 0) << i;
    }
    EXPECT_EQ(failures, 4);
}

TEST_F(FaultyMedium, WhatIsNotUnderstoodFailsEveryOpen) {
    for (const std::string settings :
         {"raed=5", "read", "read=", "read=x", "read=-5", "read=5x", "read=5,EIO", "read=5,EIO,", "read=5,EIO,0",
          "read=5,EWHAT,1", "read=5,EIO,1x", "sync=0,short,1", "read=9999999999", "write=0 raed=5"}) {
        attachWith(settings);
        uint16_t value = 0;
        EXPECT_EQ(tavDBMGetUint16(&session, leaf, &value), TAVDB_ERR_MEDIUM_OPEN) << settings;
        expectError(TAVDB_ERR_MEDIUM_OPEN, EINVAL);
        detach();
    }
    setenv("TAVDB_TRACE", "0", 1);
    ask("raed=5");
    const auto got = tavdb({"get", kLeaf});
    EXPECT_EQ(got.code, 7);
    EXPECT_THAT(got.output, StartsWith("faulty_medium: FAULTY_MEDIUM: \"raed=5\" is not understood\n"));
    unsetenv("TAVDB_TRACE");
}

TEST_F(FaultyMedium, SettingsAreReadAgainWithTheLibrary) {
    attachWith("write=0,EIO,1");
    ask("");
    tavDBMSetUint16(&session, leaf, 1400);
    expectError(TAVDB_ERR_MEDIUM_WRITE, EIO);
    detach();
    attach();
    EXPECT_EQ(tavDBMSetUint16(&session, leaf, 1400), 0);
    expectError(0, 0);
}

TEST_F(FaultyMedium, NoDescriptorIsLostWhateverFails) {
    const auto useIt = [&](int rounds) {
        for (int i = 0; i < rounds; i++) {
            uint16_t value = 0;
            tavDBMSetUint16(&session, leaf, 1400);
            tavDBMGetUint16(&session, leaf, &value);
            tavDBMSync(&session, kDataMedium, 0);
        }
    };
    for (const std::string function : {"open", "close", "read", "write", "seek", "sync"}) {
        attachWith(function + "=0,EIO,2");
        useIt(4);  // the built-in media keep one descriptor each from now on
        const size_t before = openDescriptors();
        useIt(20);
        EXPECT_EQ(openDescriptors(), before) << function;
        detach();
    }
    EXPECT_EQ(valueElsewhere(), "1400\n");
}

TEST_F(FaultyMedium, ThreadsCountEveryCallOnce) {
    constexpr uint32_t kThreads = 4;
    constexpr uint32_t kReads = 250;
    attachWith("read=0,EIO,10");
    std::atomic<uint32_t> failures = 0;
    std::vector<std::thread> threads;
    for (uint32_t i = 0; i < kThreads; i++)
        threads.emplace_back([&] {
            tavDBMSession own = session;
            for (uint32_t j = 0; j < kReads; j++) {
                uint16_t value = 0;
                own.errorCode = 0;
                tavDBMGetUint16(&own, leaf, &value);
                failures += own.errorCode != 0;
            }
        });
    for (std::thread &thread : threads)
        thread.join();
    EXPECT_EQ(failures, kThreads * kReads / 10);
}

TEST_F(FaultyMedium, ItsDebugFunctionPrintsThroughTheTrace) {
    setenv("TAVDB_TRACE", "5", 1);
    setenv("TAVDB_TRACE_TO", place("trace").c_str(), 1);
    attachWith("read=0,EIO,2");
    for (int i = 0; i < 5; i++) {
        uint16_t value = 0;
        tavDBMGetUint16(&session, leaf, &value);
    }
    uint32_t debugSize = 10;
    uint32_t ramSize = 10;
    const tavDBMMediaEntry *const medium = getMedia(&session, kDataMedium);
    EXPECT_EQ(medium->debug(5, &debugSize, &ramSize), 0);
    EXPECT_EQ(medium->debug(5, nullptr, nullptr), 0);
    EXPECT_GT(ramSize, 10U);
    EXPECT_THAT(contentOf(place("trace")),
                AllOf(HasSubstr("====(faulty_medium)\n"), HasSubstr("[         5][         2]:read\n"),
                      HasSubstr("[         0][         0]:write\n")));
}

}  // namespace

}  // namespace tavdb::test
