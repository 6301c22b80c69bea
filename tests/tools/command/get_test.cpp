// SPDX-License-Identifier: Apache-2.0
// tavdb get: values as scripts take them.
#include <fcntl.h>
#include <gmock/gmock.h>
#include <unistd.h>

#include <nlohmann/json.hpp>

#include "tools/command/command_fixture.h"

namespace tavdb_test {
namespace {

using Json = nlohmann::json;

class Get : public CommandTest {
protected:
    void SetUp() override {
        build(kDevice);
    }
};

TEST_F(Get, OnePathPrintsTheBareValue) {
    EXPECT_EQ(tavdb({"get", "/network/lan/mtu"}), says("1400\n"));
    EXPECT_EQ(tavdb({"get", "network/lan/name"}), says("lan0\n"));
    EXPECT_EQ(tavdb({"get", "/level"}), says("-3\n"));
    EXPECT_EQ(tavdb({"get", "/ratio"}), says("0.1\n"));
}

TEST_F(Get, SeveralPathsPrintLinesThatSetReads) {
    EXPECT_EQ(tavdb({"get", "level", "/network/lan/mode", "/network/lan/name"}),
              says("/level='-3'\n/network/lan/mode='auto'\n/network/lan/name='lan0'\n"));
}

TEST_F(Get, OtherTiersAreAskedForByName) {
    EXPECT_EQ(tavdb({"get", "--default", "/network/lan/mtu"}), says("1400\n"));
    EXPECT_EQ(tavdb({"get", "--factory", "/network/lan/mtu"}), says("1500\n"));
    EXPECT_EQ(tavdb({"get", "/network/lan/mtu", "--factory"}), says("1500\n")) << "options may stand behind";
    EXPECT_EQ(tavdb({"get", "--factory", "--default", "/network/lan/mtu"}).exitCode, 2);
}

TEST_F(Get, EnumerationsPrintTheirLabelOrTheirNumber) {
    EXPECT_EQ(tavdb({"get", "/network/lan/mode"}), says("auto\n"));
    EXPECT_EQ(tavdb({"get", "--raw", "/network/lan/mode"}), says("7\n"));
    EXPECT_EQ(tavdb({"get", "/baud"}), says("9600\n"));
}

TEST_F(Get, SecretsNeedToBeAskedFor) {
    EXPECT_EQ(tavdb({"get", "/network/lan/key"}),
              fails(6, "tavdb: /network/lan/key: is a secret; --secrets shows it\n"));
    EXPECT_EQ(tavdb({"get", "--secrets", "/network/lan/key"}), says("00ff7e01\n"));
}

TEST_F(Get, NodesHaveNoValue) {
    EXPECT_EQ(tavdb({"get", "/network"}), fails(3, "tavdb: /network: is a node; use tree or list\n"));
    EXPECT_EQ(tavdb({"get", "/"}), fails(3, "tavdb: /: is a node; use tree or list\n"));
}

TEST_F(Get, EachFaultIsALineAndTheRestIsPrinted) {
    EXPECT_EQ(tavdb({"get", "/none", "/level", "/network/lan/key", "/baud"}),
              (CommandResult{3, "/level='-3'\n/baud='9600'\n",
                             "tavdb: /none: there is no 'none' in /\n"
                             "tavdb: /network/lan/key: is a secret; --secrets shows it\n"}));
}

TEST_F(Get, ControlCharactersOfAPathDoNotReachTheTerminal) {
    EXPECT_EQ(tavdb({"get", "/\x1B[31m"}), fails(3, "tavdb: /\\x1b[31m: there is no '\\x1b[31m' in /\n"));
}

TEST_F(Get, JsonHasTheSameKeysForEveryLeaf) {
    const auto result = tavdb({"get", "--json", "/network/lan/mode", "/network/lan/name", "/level"});
    EXPECT_EQ(result.exitCode, 0);
    EXPECT_EQ(Json::parse(result.out), Json::parse(R"([
        {"path":"/network/lan/mode","type":"u8","tier":"current","value":7,"label":"auto"},
        {"path":"/network/lan/name","type":"text","tier":"current","value":"lan0","label":null},
        {"path":"/level","type":"s8","tier":"current","value":-3,"label":null}])"));
}

TEST_F(Get, JsonOfOnePathIsAListToo) {
    EXPECT_EQ(Json::parse(tavdb({"--json", "get", "--factory", "/ratio"}).out),
              Json::parse(R"([{"path":"/ratio","type":"f32","tier":"factory","value":0.1,"label":null}])"));
}

TEST_F(Get, TextThatIsNoUtf8IsPrintedAsItIsAndHasHexInJson) {
    ASSERT_EQ(tavdb({"set", "-"}, {.input = "/network/lan/name='a\\xffb'\n"}), says(""));
    EXPECT_EQ(tavdb({"get", "/network/lan/name"}), says("a\xFF"
                                                        "b\n"));
    const auto json = Json::parse(tavdb({"get", "--json", "/network/lan/name"}).out);
    EXPECT_EQ(json[0]["hex"], "61ff62");
}

TEST_F(Get, WorksWithoutTheSchema) {
    std::filesystem::remove(place / "db/schema.json");
    EXPECT_EQ(tavdb({"get", "/network/lan/mode"}), says("7\n"));
    EXPECT_EQ(tavdb({"get", "/network/lan/mtu"}), says("1400\n"));
}

TEST_F(Get, DamagedSchemaIsNotPassedOver) {
    place.write("db/schema.json", "{");
    EXPECT_EQ(tavdb({"get", "/network/lan/mode"}),
              fails(8, "tavdb: /network/lan/mode: schema.json:1:2: this is not JSON\n"));
}

TEST_F(Get, FullStandardOutputIsAnError) {
    const int full = open("/dev/full", O_WRONLY);
    ASSERT_GE(full, 0);
    EXPECT_EQ(tavdb({"get", "/level"}, {.input = {}, .output = full}),
              fails(7, "tavdb: standard output: cannot be written: No space left on device\n"));
    close(full);
}

TEST_F(Get, ClosedStandardOutputIsAnError) {
    EXPECT_EQ(tavdb({"get", "/level"}, {.input = {}, .outputClosed = true}),
              fails(7, "tavdb: standard output: cannot be written: Bad file descriptor\n"));
}

TEST_F(Get, ReaderThatWentAwayIsNoError) {
    int ends[2] = {};
    ASSERT_EQ(pipe(ends), 0);
    close(ends[0]);
    EXPECT_EQ(tavdb({"tree"}, {.input = {}, .output = ends[1]}), says(""));
    close(ends[1]);
}

TEST_F(Get, WithoutPermissionIsExitCodeSix) {
    std::filesystem::permissions(place.path(), std::filesystem::perms(0755));
    std::filesystem::permissions(place / "db/session.tbl", std::filesystem::perms(0600));
    const auto result = tavdb({"get", "/level"}, {.input = {}, .asNobody = true});
    if (result.exitCode == 127 || result.exitCode == 126)
        GTEST_SKIP() << "the command cannot be run by another user here";
    EXPECT_EQ(result, fails(6, "tavdb: db: session.tbl: cannot be written: Permission denied\n"));
}

}  // namespace
}  // namespace tavdb_test
