// SPDX-License-Identifier: Apache-2.0
// tavdb build as people call it: what it says, its exit codes, and that a build
// that is refused, starved of space or interrupted leaves nothing behind.
#include <gmock/gmock.h>
#include <signal.h>
#include <time.h>

#include <random>

#include "tools/command/command_fixture.h"

namespace tavdb_test {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::MatchesRegex;

class BuildCommand : public CommandTest {};

TEST_F(BuildCommand, SaysInOneLineWhatWasBuilt) {
    place.write("d.yaml", kDevice);
    const auto built = tavdb({"build", "d.yaml", "-o", "db"});
    EXPECT_EQ(built.exitCode, 0);
    EXPECT_EQ(built.out, "");
    EXPECT_THAT(built.err, MatchesRegex("tavdb: db: built 2 nodes, 7 leaves, [0-9]+ bytes in [0-9]+ ms\n"));
    EXPECT_THAT(place.names(), ElementsAre("d.yaml", "db"));
}

TEST_F(BuildCommand, MediaAreMemoryOrFile) {
    build(kDevice, {"--media", "file"});
    EXPECT_EQ(bytesOf(place / "db/media.conf").substr(0, 32), "libtavdbfile.so tavdbFileOpenHD ");
    EXPECT_EQ(tavdb({"get", "/level"}), says("-3\n"));
    build(kDevice, {"--media", "memory", "--replace"});
    EXPECT_EQ(bytesOf(place / "db/media.conf").substr(0, 29), "libtavdbfile.so tavdbMemOpen ");
    EXPECT_EQ(tavdb({"get", "/level"}), says("-3\n"));
}

TEST_F(BuildCommand, ReportGoesToStandardOutput) {
    place.write("m.xml",
                "<d:document xmlns:d='urn:x'><model name='M'><object name='D.'><parameter name='P'><syntax><string>"
                "<pattern value='x'/></string></syntax></parameter></object></model></d:document>");
    const auto built = tavdb({"build", "m.xml", "-o", "db", "--report"});
    EXPECT_EQ(built.exitCode, 0) << built.err;
    EXPECT_THAT(built.out, HasSubstr("parameters                       1\n"));
    EXPECT_THAT(built.out, HasSubstr("\nD.P: pattern: "));
}

TEST_F(BuildCommand, OptionsOfDataModelsReachTheReader) {
    place.write("m.xml",
                "<d:document xmlns:d='urn:x'><model name='M'><object name='D.L.{i}.'><parameter name='P'><syntax>"
                "<string/></syntax></parameter><parameter name='Q'><syntax><string><size maxLength='999'/></string>"
                "</syntax></parameter></object></model></d:document>");
    const auto built =
        tavdb({"build", "m.xml", "-o", "db", "--instances", "3", "--text-size", "20", "--text-size-max", "100"});
    ASSERT_EQ(built.exitCode, 0) << built.err;
    EXPECT_EQ(tavdb({"list", "/D/L"}), says("1/\n2/\n3/\n"));
    EXPECT_THAT(tavdb({"describe", "/D/L/2/P"}).out, HasSubstr("type         text, 21 bytes\n"));
    EXPECT_THAT(tavdb({"describe", "/D/L/3/Q"}).out, HasSubstr("type         text, 101 bytes\n"));
}

TEST_F(BuildCommand, HeaderAndHooksAreWritten) {
    place.write("h.conf", "# none\n");
    build(kDevice, {"--header", "keys.h", "--hooks", "h.conf"});
    EXPECT_THAT(bytesOf(place / "keys.h"), HasSubstr("#define"));
    EXPECT_EQ(bytesOf(place / "db/hooks.conf"), "# none\n");
}

TEST_F(BuildCommand, MistakesInTheCallAreUsageErrors) {
    place.write("d.yaml", kDevice);
    const std::vector<std::vector<std::string>> calls = {
        {"build"},
        {"build", "d.yaml"},
        {"build", "d.yaml", "-o", "db", "--media", "paper"},
        {"build", "d.yaml", "-o", "db", "--slack", "-1"},
        {"build", "d.yaml", "-o", "db", "--slack", "many"},
        {"build", "d.yaml", "-o", "db", "--instances", "0"},
        {"build", "d.yaml", "-o", "db", "--text-size", "70000"},
        {"build", "d.yaml", "-o", "db", "--what"},
        {"build", "d.yaml", "e.yaml", "-o", "db"},
    };
    for (const auto &call : calls) {
        const auto result = tavdb(call);
        EXPECT_EQ(result.exitCode, 2) << result.err;
        EXPECT_EQ(result.out, "");
        EXPECT_THAT(result.err, MatchesRegex("tavdb: [^\n]+\n"));
    }
    EXPECT_THAT(place.names(), ElementsAre("d.yaml"));
}

TEST_F(BuildCommand, FilesThatCannotBeReadAreNamed) {
    EXPECT_EQ(tavdb({"build", "none.yaml", "-o", "db"}),
              fails(3, "none.yaml: cannot be opened: No such file or directory\n"));
    EXPECT_EQ(tavdb({"build", ".", "-o", "db"}), fails(2, ".: cannot be read: Is a directory\n"));
}

TEST_F(BuildCommand, RefusedValuesAloneAreExitCodeFour) {
    place.write("d.yaml", "a: {type: u8, range: [1, 5], current: 6}\nb: {type: u8, current: 300}\n");
    EXPECT_EQ(tavdb({"build", "d.yaml", "-o", "db"}),
              fails(4,
                    "d.yaml:1:39: value 6 is outside 1..5\n"
                    "d.yaml:2:24: value 300 is not an unsigned 8-bit integer (0..255)\n"));
    place.write("d.yaml", "a: {type: u8, range: [1, 5], current: 6}\nb: {type: u9}\n");
    EXPECT_EQ(tavdb({"build", "d.yaml", "-o", "db"}).exitCode, 2);
    EXPECT_THAT(place.names(), ElementsAre("d.yaml"));
}

TEST_F(BuildCommand, PlaceThatIsTakenIsKept) {
    build(kDevice);
    const auto before = filesIn(place / "db");
    EXPECT_EQ(tavdb({"build", "d.yaml", "-o", "db"}),
              fails(1, "tavdb: db: exists already; --replace puts a new database in its place\n"));
    EXPECT_EQ(filesIn(place / "db"), before);
}

TEST_F(BuildCommand, TwoRunsGiveEqualFiles) {
    build(kDevice);
    ASSERT_EQ(tavdb({"build", "d.yaml", "-o", "other"}).exitCode, 0);
    EXPECT_EQ(filesIn(place / "db"), filesIn(place / "other"));
}

TEST_F(BuildCommand, FullDiskAtAnyPlaceLeavesNothing) {
    place.write("d.yaml", kDevice);
    // A limit on the size of a file fails at other places than a limit on all of them,
    // and it needs no file system of its own. The largest file has 24624 bytes.
    const std::vector<rlim_t> limits = {0,    1,    10,   15,   16,    24,    57,    58,    59,   100,
                                        189,  190,  191,  300,  400,   650,   651,   4096,  4192, 4200,
                                        4300, 4400, 4500, 4600, 10000, 16411, 16412, 20000, 24623};
    for (const rlim_t limit : limits) {
        const auto built = tavdb({"build", "d.yaml", "-o", "db"}, {.input = {}, .fileBytesMax = limit});
        EXPECT_NE(built.exitCode, 0) << limit;
        EXPECT_LE(built.exitCode, 10) << limit << ": " << built.err;
        EXPECT_THAT(place.names(), ElementsAre("d.yaml")) << limit;
    }
}

TEST_F(BuildCommand, FullDiskIsNamed) {
    place.write("d.yaml", kDevice);
    EXPECT_EQ(tavdb({"build", "d.yaml", "-o", "db"}, {.input = {}, .fileBytesMax = 4200}),
              fails(7, "tavdb: db: component.med: cannot be made: File too large\n"));
}

TEST_F(BuildCommand, PlaceWithoutPermissionIsExitCodeSix) {
    place.write("d.yaml", kDevice);
    std::filesystem::permissions(place.path(), std::filesystem::perms(0755));
    const auto built = tavdb({"build", "d.yaml", "-o", "db"}, {.input = {}, .asNobody = true});
    if (built.exitCode == 127 || built.exitCode == 126)
        GTEST_SKIP() << "the command cannot be run by another user here";
    EXPECT_EQ(built, fails(6, "tavdb: db: a directory beside it cannot be made: Permission denied\n"));
}

/// A description that takes a while.
std::string largeDescription() {
    std::string text;
    for (int node = 0; node < 40; node++) {
        text += "n" + std::to_string(node) + ":\n";
        for (int leaf = 0; leaf < 250; leaf++)
            text += "  l" + std::to_string(leaf) + ": {type: u32, range: [0, 9]}\n";
    }
    return text;
}

TEST_F(BuildCommand, SignalsThatEndItLeaveNothing) {
    place.write("d.yaml", largeDescription());
    std::mt19937 random(randomSeed());
    size_t ended = 0;
    for (int round = 0; round < 12; round++) {
        const int number = round % 2 == 0 ? SIGINT : SIGTERM;
        const auto started = start({"build", "d.yaml", "-o", "db"});
        const timespec pause = {0, std::uniform_int_distribution<long>(1'000'000, 300'000'000)(random)};
        nanosleep(&pause, nullptr);
        kill(started.process, number);
        const auto result = finish(started);
        if (result.exitCode == 0) {
            EXPECT_THAT(place.names(), ElementsAre("d.yaml", "db"));
            std::filesystem::remove_all(place / "db");
            continue;
        }
        ended++;
        EXPECT_EQ(result.exitCode, 1000 + number) << result.err;
        // The signal may come when all is done but the command's own end.
        if (std::filesystem::exists(place / "db"))
            std::filesystem::remove_all(place / "db");
        EXPECT_THAT(place.names(), ElementsAre("d.yaml"));
    }
    std::cout << ended << " of 12 builds were ended by their signal\n";
    EXPECT_GT(ended, 0U);
}

}  // namespace
}  // namespace tavdb_test
