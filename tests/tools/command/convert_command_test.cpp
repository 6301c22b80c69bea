// SPDX-License-Identifier: Apache-2.0
// Databases of the other byte order as people meet them: made by build and convert,
// and refused by every other command.
#include <gmock/gmock.h>
#include <sys/stat.h>

#include <bit>
#include <set>
#include <sstream>

#include "tools/command/command_fixture.h"

namespace tavdb_test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::MatchesRegex;

constexpr bool kIsLittle = std::endian::native == std::endian::little;
const std::string kHere = kIsLittle ? "little" : "big";
const std::string kThere = kIsLittle ? "big" : "little";

const std::string kRefusal = "its numbers are stored " + kThere + "-endian and this machine is " + kHere +
                             "-endian; 'tavdb convert' makes a copy for this machine\n";

class ConvertCommand : public CommandTest {
protected:
    std::map<std::string, std::string> imagesIn(const std::string &name) {
        auto files = filesIn(place / name);
        std::erase_if(files, [](const auto &file) { return !file.first.ends_with(".med"); });
        return files;
    }
};

TEST_F(ConvertCommand, BuildMakesTheOrderThatIsAskedFor) {
    build(kDevice);
    place.write("d.yaml", kDevice);
    const auto there = tavdb({"build", "d.yaml", "-o", "there", "--byte-order", kThere});
    EXPECT_EQ(there.exitCode, 0);
    EXPECT_THAT(there.err, MatchesRegex("tavdb: there: built 2 nodes, 7 leaves, [0-9]+ bytes, " + kThere +
                                        "-endian, in [0-9]+ ms\n"));
    for (const auto &order : {kHere, std::string("native")}) {
        const auto here = tavdb({"build", "d.yaml", "-o", "here", "--replace", "--byte-order", order});
        EXPECT_THAT(here.err, MatchesRegex("tavdb: here: built 2 nodes, 7 leaves, [0-9]+ bytes in [0-9]+ ms\n"));
        EXPECT_EQ(imagesIn("here"), imagesIn("db"));
    }
    EXPECT_NE(imagesIn("there"), imagesIn("db"));
    EXPECT_EQ(imagesIn("there").size(), 6U);
}

TEST_F(ConvertCommand, ThereAndBackIsTheSame) {
    build(kDevice);
    const auto there = tavdb({"convert", "db", "--byte-order", kThere, "-o", "there"});
    EXPECT_EQ(there.exitCode, 0);
    EXPECT_EQ(there.out, "");
    EXPECT_THAT(there.err,
                MatchesRegex("tavdb: there: converted 2 nodes, 7 leaves, [0-9]+ bytes, " + kThere + "-endian\n"));
    const auto back = tavdb({"convert", "there", "-o", "back"});
    EXPECT_THAT(back.err,
                MatchesRegex("tavdb: back: converted 2 nodes, 7 leaves, [0-9]+ bytes, " + kHere + "-endian\n"));
    EXPECT_EQ(imagesIn("back"), imagesIn("db"));
    EXPECT_EQ(tavdb({"tree", "-d", "back", "--secrets"}), tavdb({"tree", "--secrets"}));
    EXPECT_THAT(tavdb({"convert", "db", "-o", "copy", "--byte-order", "native"}).err,
                MatchesRegex("tavdb: copy: copied 2 nodes, 7 leaves, [0-9]+ bytes, " + kHere + "-endian\n"));
}

TEST_F(ConvertCommand, ConvertedDatabaseCanBeUsedAndChanged) {
    build(kDevice, {"--byte-order", kThere});
    ASSERT_EQ(tavdb({"convert", "db", "-o", "here"}).exitCode, 0);
    EXPECT_EQ(tavdb({"set", "-d", "here", "/network/lan/mtu", "1600"}), says(""));
    EXPECT_EQ(tavdb({"get", "-d", "here", "/network/lan/mtu"}), says("1600\n"));
    EXPECT_EQ(tavdb({"get", "-d", "here", "/network/lan/mode"}), says("auto\n")) << "the labels came along";
    ASSERT_EQ(tavdb({"convert", "here", "-o", "db", "--replace", "--byte-order", kThere}).exitCode, 0);
    ASSERT_EQ(tavdb({"convert", "db", "-o", "db", "--replace"}).exitCode, 0) << "also in its own place";
    EXPECT_EQ(tavdb({"get", "/network/lan/mtu"}), says("1600\n"));
}

TEST_F(ConvertCommand, DatabaseWithRemovedComponentsComesBackToo) {
    build(kDevice);
    ASSERT_EQ(tavdb({"rm", "/network/lan/mtu"}), says(""));
    ASSERT_EQ(tavdb({"rm", "/level"}), says(""));
    const auto there = tavdb({"convert", "db", "--byte-order", kThere, "-o", "there"});
    EXPECT_THAT(there.err, testing::HasSubstr("tavdb: db: data.med: 15 bytes that nothing refers to were copied as "
                                              "they are\ntavdb: db: text.med: 10 bytes that nothing refers to were "));
    ASSERT_EQ(tavdb({"convert", "there", "-o", "back"}).exitCode, 0);
    EXPECT_EQ(imagesIn("back"), imagesIn("db"));
}

TEST_F(ConvertCommand, EveryOtherCommandRefusesTheOtherOrder) {
    build(kDevice, {"--byte-order", kThere});
    const std::vector<std::vector<std::string>> calls = {{"get", "/level"},
                                                         {"set", "/level", "1"},
                                                         {"list"},
                                                         {"tree"},
                                                         {"describe", "/level"},
                                                         {"info"},
                                                         {"find", "*"},
                                                         {"reset", "/level"},
                                                         {"save", "/level"},
                                                         {"mv", "/level", "/network"},
                                                         {"rm", "/level"},
                                                         {"lock", "/level", "--", "true"},
                                                         {"unlock", "/level"},
                                                         {"locks"},
                                                         {"sessions"},
                                                         {"serve-media", "db"},
                                                         {"check"},
                                                         {"repair"},
                                                         {"dump"},
                                                         {"debug"}};
    const auto before = filesIn(place / "db");
    std::set<std::string> called = {"build", "completion", "convert", "help"};
    for (const auto &call : calls) {
        EXPECT_EQ(tavdb(call), fails(9, "tavdb: db: " + kRefusal)) << call[0];
        called.insert(call[0]);
    }
    EXPECT_EQ(filesIn(place / "db"), before) << "no table was made";
    std::set<std::string> known;
    const auto help = tavdb({"help"}).out;
    std::istringstream lines(help.substr(help.find("Subcommands:\n") + 13));
    for (std::string line; std::getline(lines, line) && line.starts_with("  ");)
        known.insert(line.substr(2, line.find(' ', 2) - 2));
    EXPECT_EQ(called, known) << "all commands were called";
}

TEST_F(ConvertCommand, DatabaseOfMessageMediaIsConvertedAndNotServed) {
    build(kDevice);
    const auto expected = imagesIn("db");
    build(kDevice, {"--replace", "--media", "message", "--byte-order", kThere});
    EXPECT_EQ(tavdb({"serve-media", "db"}), fails(9, "tavdb: db: " + kRefusal));
    ASSERT_EQ(tavdb({"convert", "db", "-o", "here"}).exitCode, 0);
    EXPECT_EQ(imagesIn("here"), expected);
    EXPECT_EQ(bytesOf(place / "here/media.conf"), bytesOf(place / "db/media.conf"));
    std::filesystem::remove(place / "db/text.med");
    EXPECT_EQ(tavdb({"convert", "db", "-o", "x"}),
              fails(8, "tavdb: db: text.med: the database is incomplete: this image is missing\n"));
}

TEST_F(ConvertCommand, HeaderThatTellsNoOrderIsDamage) {
    build(kDevice);
    for (const auto &[name, content] : imagesIn("db"))
        patch((place / "db/") + name, 0, std::string(16, '\0'));
    const auto expected = "tavdb: db: component.med: the header is damaged: it does not begin with TAVD\n";
    EXPECT_EQ(tavdb({"get", "/level"}), fails(8, expected));
    EXPECT_EQ(tavdb({"convert", "db", "-o", "there"}), fails(8, expected));
    EXPECT_THAT(place.names(), testing::Not(testing::Contains("there")));
}

TEST_F(ConvertCommand, DamagedSourceIsRefusedInOneLine) {
    build(kDevice, {"--byte-order", kThere});
    patch(place / "db/value.med", 16, "abcd");
    EXPECT_EQ(tavdb({"convert", "db", "-o", "here"}),
              fails(8,
                    "tavdb: db: component.med: the leaf at 72: its current value, at 16, is no record: it does not "
                    "name itself\n"));
    EXPECT_THAT(place.names(), testing::Not(testing::Contains("here")));
}

TEST_F(ConvertCommand, PlaceThatIsTakenIsReplacedOnlyWhenAsked) {
    build(kDevice);
    std::filesystem::create_directory(place / "there");
    EXPECT_EQ(tavdb({"convert", "db", "-o", "there"}),
              fails(1, "tavdb: there: exists already; --replace puts a new database in its place\n"));
    EXPECT_EQ(tavdb({"convert", "db", "-o", "there", "--replace"}),
              fails(1, "tavdb: there: exists and is no database directory, so it is not replaced\n"));
    EXPECT_THAT(filesIn(place / "there"), IsEmpty());
}

TEST_F(ConvertCommand, DatabaseInUseIsRefused) {
    build(kDevice);
    const auto result =
        tavdb({"lock", "/level", "--", TAVDB_COMMAND, "convert", "db", "-o", "there", "--byte-order", kThere});
    EXPECT_EQ(result.exitCode, 5);
    EXPECT_THAT(result.err, MatchesRegex("tavdb: db: is in use by process [0-9]+, which could write meanwhile\n"));
}

TEST_F(ConvertCommand, FilesOfOthersAreRemarked) {
    build(kDevice);
    place.write("db/letter", "dear");
    EXPECT_THAT(tavdb({"convert", "db", "-o", "there"}).err,
                testing::StartsWith("tavdb: db: 'letter' is no part of a database and was not copied\n"));
}

TEST_F(ConvertCommand, PipeInPlaceOfAFileIsNotWaitedFor) {
    for (const auto *name : {"media.conf", "schema.json"}) {
        build(kDevice, {"--replace"});
        std::filesystem::remove((place / "db/") + name);
        ASSERT_EQ(mkfifo(((place / "db/") + name).c_str(), 0600), 0);
        const auto expected = fails(8, "tavdb: db: " + std::string(name) + ": is no regular file\n");
        EXPECT_EQ(tavdb({"convert", "db", "-o", "x"}), expected);
        EXPECT_EQ(tavdb({"tree"}), expected);
        std::filesystem::remove_all(place / "db");
    }
    build(kDevice);
    std::filesystem::remove(place / "db/data.med");
    ASSERT_EQ(mkfifo((place / "db/data.med").c_str(), 0600), 0);
    EXPECT_EQ(tavdb({"convert", "db", "-o", "x"}), fails(7, "tavdb: db: data.med: cannot be read: Illegal seek\n"));
}

TEST_F(ConvertCommand, FullDiskLeavesNothing) {
    build(kDevice);
    Surroundings starved;
    starved.fileBytesMax = 300;
    const auto result = tavdb({"convert", "db", "-o", "there", "--byte-order", kThere}, starved);
    EXPECT_EQ(result, fails(7, "tavdb: there: component.med: cannot be written: File too large\n"));
    EXPECT_THAT(place.names(), ElementsAre("d.yaml", "db"));
}

TEST_F(ConvertCommand, MistakesInTheCallAreUsageErrors) {
    build(kDevice);
    const std::vector<std::vector<std::string>> calls = {{"convert"},
                                                         {"convert", "db"},
                                                         {"convert", "-o", "x"},
                                                         {"convert", "db", "-o", "x", "--byte-order", "middle"},
                                                         {"convert", "db", "-o", "x", "--byte-order", "1"},
                                                         {"convert", "db", "-o", "x", "--byte-order"},
                                                         {"convert", "db", "db", "-o", "x"},
                                                         {"build", "d.yaml", "-o", "x", "--byte-order", "pdp"}};
    for (const auto &call : calls) {
        const auto result = tavdb(call);
        EXPECT_EQ(result.exitCode, 2) << result.err;
        EXPECT_EQ(std::count(result.err.begin(), result.err.end(), '\n'), 1) << result.err;
    }
    EXPECT_THAT(place.names(), testing::Not(testing::Contains("x")));
}

}  // namespace
}  // namespace tavdb_test
