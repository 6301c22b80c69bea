// SPDX-License-Identifier: Apache-2.0
// tavdb list, tree, describe and info: what people see, to the byte, and what
// programs see, key by key.
#include <gmock/gmock.h>

#include <nlohmann/json.hpp>

#include "tools/command/command_fixture.h"
#include "tools/image/attached.h"

namespace tavdb_test {
namespace {

using Json = nlohmann::json;
using testing::ElementsAre;
using testing::HasSubstr;

std::vector<std::string> keysOf(const Json &object) {
    std::vector<std::string> keys;
    for (const auto &[key, value] : object.items())
        keys.push_back(key);
    return keys;
}

class LookAround : public CommandTest {
protected:
    void SetUp() override {
        build(kDevice);
    }
    Json json(std::vector<std::string> arguments) {
        arguments.push_back("--json");
        const auto result = tavdb(arguments);
        EXPECT_EQ(result.exitCode, 0) << result.err;
        return Json::parse(result.out);
    }
};

using List = LookAround;

TEST_F(List, ChildrenStandOneOnALine) {
    EXPECT_EQ(tavdb({"list"}), says("network/\nlevel\nratio\nbaud\n"));
    EXPECT_EQ(tavdb({"list", "/network/lan/"}), says("mtu\nmode\nname\nkey\n"));
    EXPECT_EQ(tavdb({"list", "/level"}), says("level\n"));
    EXPECT_EQ(tavdb({"list", "/none"}), fails(3, "tavdb: /none: there is no 'none' in /\n"));
}

TEST_F(List, LongFormHasTypeConstraintAndValue) {
    EXPECT_EQ(tavdb({"list", "-l", "network/lan"}), says("mtu   u32    300..4000000 step 100      1400\n"
                                                         "mode  u8     0 (off), 1 (on), 7 (auto)  auto\n"
                                                         "name  text   -                          'lan0'\n"
                                                         "key   bytes  -                          ***\n"));
    EXPECT_EQ(tavdb({"list", "-l"}), says("network/  node\n"
                                          "level     s8    -5..5        -3\n"
                                          "ratio     f32   -            0.1\n"
                                          "baud      u32   9600, 19200  9600\n"));
    EXPECT_THAT(tavdb({"list", "-l", "--secrets", "network/lan"}).out, HasSubstr("00ff7e01\n"));
}

TEST_F(List, JsonKeysAreStable) {
    const auto list = json({"list", "/network/lan"});
    ASSERT_EQ(list.size(), 4U);
    for (const auto &leaf : list)
        EXPECT_THAT(keysOf(leaf),
                    ElementsAre("constraint", "kind", "label", "name", "path", "secret", "type", "value"));
    EXPECT_EQ(list[0]["constraint"], Json::parse(R"({"minimum":300,"maximum":4000000,"step":100})"));
    EXPECT_EQ(list[1]["constraint"]["values"][2], Json::parse(R"({"value":7,"label":"auto"})"));
    EXPECT_EQ(list[2]["constraint"], Json());
    EXPECT_EQ(list[3]["value"], Json()) << "a secret";
    EXPECT_EQ(json({"list"})[0], Json::parse(R"({"name":"network","path":"/network","kind":"node"})"));
}

using Tree = LookAround;

TEST_F(Tree, EverythingIsIndentedWithItsValue) {
    EXPECT_EQ(tavdb({"tree"}), says("/\n"
                                    "  network/\n"
                                    "    lan/\n"
                                    "      mtu = 1400\n"
                                    "      mode = auto\n"
                                    "      name = 'lan0'\n"
                                    "      key = ***\n"
                                    "  level = -3\n"
                                    "  ratio = 0.1\n"
                                    "  baud = 9600\n"));
    EXPECT_EQ(tavdb({"tree", "/level"}), says("level = -3\n"));
}

TEST_F(Tree, DepthAndStartAndTierAndSecrets) {
    EXPECT_EQ(tavdb({"tree", "--depth", "1"}), says("/\n  network/\n  level = -3\n  ratio = 0.1\n  baud = 9600\n"));
    EXPECT_EQ(tavdb({"tree", "--depth", "0"}), says("/\n"));
    EXPECT_EQ(tavdb({"tree", "/network/lan", "--factory", "--secrets"}),
              says("lan/\n  mtu = 1500\n  mode = auto\n  name = 'lan0'\n  key = 00ff7e01\n"));
    EXPECT_EQ(tavdb({"tree", "--depth", "-1"}).exitCode, 2);
}

TEST_F(Tree, PathsAreLinesForSet) {
    EXPECT_EQ(tavdb({"tree", "--paths"}), says("/network/lan/mtu='1400'\n"
                                               "/network/lan/mode='auto'\n"
                                               "/network/lan/name='lan0'\n"
                                               "# /network/lan/key is a secret; --secrets shows it\n"
                                               "/level='-3'\n"
                                               "/ratio='0.1'\n"
                                               "/baud='9600'\n"));
}

TEST_F(Tree, JsonIsNested) {
    const auto tree = json({"tree"});
    EXPECT_THAT(keysOf(tree), ElementsAre("children", "kind", "name", "path"));
    EXPECT_EQ(tree["name"], "/");
    const auto &lan = tree["children"][0]["children"][0];
    EXPECT_EQ(lan["path"], "/network/lan");
    EXPECT_THAT(keysOf(lan["children"][1]), ElementsAre("kind", "label", "name", "path", "secret", "type", "value"));
    EXPECT_EQ(lan["children"][1]["label"], "auto");
    EXPECT_EQ(lan["children"][3]["value"], Json());
}

using Describe = LookAround;

TEST_F(Describe, LeafIsToldInFull) {
    const auto described = tavdb({"describe", "/network/lan/mtu"});
    EXPECT_EQ(described.exitCode, 0);
    EXPECT_THAT(described.out, testing::StartsWith("path         /network/lan/mtu\n"
                                                   "kind         leaf\n"
                                                   "type         u32, 4 bytes\n"
                                                   "constraint   300..4000000 step 100\n"
                                                   "current      1400\n"
                                                   "default      1400\n"
                                                   "factory      1500\n"
                                                   "units        bytes\n"
                                                   "hook         none\n"
                                                   "secret       no\n"
                                                   "keys         component "));
    EXPECT_THAT(tavdb({"describe", "/network/lan/mode"}).out, HasSubstr("description  How it is used\n"));
}

TEST_F(Describe, SecretIsMasked) {
    EXPECT_THAT(tavdb({"describe", "/network/lan/key"}).out,
                HasSubstr("current      ***\ndefault      ***\nfactory      ***\n"));
    EXPECT_THAT(tavdb({"describe", "--secrets", "/network/lan/key"}).out, HasSubstr("current      00ff7e01\n"));
    EXPECT_EQ(json({"describe", "/network/lan/key"})["current"]["value"], Json());
}

TEST_F(Describe, NodeHasItsChildrenCounted) {
    EXPECT_THAT(tavdb({"describe", "/network"}).out,
                testing::StartsWith("path         /network\nkind         node\nchildren     1\n"
                                    "description  Everything about interfaces\nkeys         component "));
    const auto root = json({"describe", "/"});
    EXPECT_THAT(keysOf(root), ElementsAre("children", "description", "keys", "kind", "path"));
    EXPECT_EQ(root["children"], 4);
    EXPECT_EQ(root["description"], "A small device");
}

TEST_F(Describe, JsonKeysAreStable) {
    for (const auto *path : {"/network/lan/mtu", "/network/lan/mode", "/network/lan/key", "/ratio"}) {
        const auto leaf = json({"describe", path});
        EXPECT_THAT(keysOf(leaf), ElementsAre("bytes", "constraint", "current", "default", "description", "factory",
                                              "hook", "keys", "kind", "path", "secret", "type", "units"));
        EXPECT_THAT(keysOf(leaf["current"]), ElementsAre("label", "value"));
        EXPECT_THAT(keysOf(leaf["keys"]),
                    ElementsAre("component", "constraint", "current", "default", "factory", "name"));
    }
}

using Info = LookAround;

TEST_F(Info, TellsWhatTheDirectoryIs) {
    const auto info = tavdb({"info"});
    EXPECT_EQ(info.exitCode, 0);
    EXPECT_EQ(info.err, "");
    for (const auto *line :
         {"\nvalue        memory value.med, ", "\ntext         memory text.med, 67 bytes\n",
          "\nholds        2 nodes, 7 leaves, 21 values, 4 constraints, 10 strings\n", "\nsource       d.yaml (yaml)\n",
          "\nattached     by nobody\n", "\nsessions     none\n", "\nlocks        none\n"})
        EXPECT_THAT(info.out, HasSubstr(line));
    EXPECT_THAT(info.out, testing::StartsWith("directory    " + place / "db" + "\nbyte order   "));
}

TEST_F(Info, JsonKeysAreStable) {
    const auto info = json({"info"});
    EXPECT_THAT(keysOf(info), ElementsAre("byteOrder", "counts", "database", "directory", "format", "locks", "media",
                                          "sessions", "source"));
    EXPECT_EQ(info["counts"], Json::parse(R"({"nodes":2,"leaves":7,"values":21,"constraints":4,"strings":10})"));
    ASSERT_EQ(info["media"].size(), 6U);
    for (const auto &medium : info["media"]) {
        EXPECT_THAT(keysOf(medium), ElementsAre("bytes", "freeBytes", "hint", "holds", "id", "kind", "largestFree"));
        const auto image = medium["hint"].get<std::string>();
        EXPECT_EQ(medium["bytes"], bytesOf((place / "db") + "/" + image).size());
    }
    EXPECT_GE(info["media"][0]["freeBytes"], 4096);
    EXPECT_EQ(info["media"][4]["freeBytes"], Json());
}

TEST_F(Info, OthersWhoUseTheDatabaseAreListed) {
    tavdb::image::Attached other(place / "db");
    ASSERT_EQ(tavDBMLock(other.session(), other.at("/level"), TAVDB_LOCK_TRY), 0);
    ASSERT_EQ(tavDBMLock(other.session(), other.at("/baud"), TAVDB_LOCK_TRY | TAVDB_LOCK_SHARED), 0);
    const auto info = tavdb({"info"});
    const auto session = std::to_string(other.session()->sessionId);
    const auto process = std::to_string(getpid());
    EXPECT_THAT(info.out, HasSubstr("attached     as database 1, 1 reference\n"));
    EXPECT_THAT(info.out, HasSubstr("sessions     1\n             session " + session + ", process " + process + "\n"));
    const auto holder = " by session " + session + " (process " + process + ")\n";
    EXPECT_THAT(info.out, HasSubstr("locks        2\n"));
    EXPECT_THAT(info.out, HasSubstr("             /level exclusive" + holder));
    EXPECT_THAT(info.out, HasSubstr("             /baud shared" + holder));
    const auto facts = json({"info"});
    EXPECT_EQ(facts["database"], Json::parse(R"({"id":1,"references":1})"));
    EXPECT_EQ(facts["sessions"].size(), 1U);
    EXPECT_THAT(keysOf(facts["locks"][0]), ElementsAre("component", "holder", "mode", "path", "session"));
    EXPECT_EQ(tavDBMUnlock(other.session(), other.at("/level")), 0);
    EXPECT_EQ(tavDBMUnlock(other.session(), other.at("/baud")), 0);
}

TEST_F(Info, CommandsLeaveNoSessionAndNoReferenceBehind) {
    for (const auto *path : {"/level", "/none"})
        tavdb({"get", path});
    tavdb({"set", "/level", "1"});
    tavdb({"set", "/level", "99"});
    tavdb({"tree"});
    const auto info = json({"info"});
    EXPECT_EQ(info["database"], Json());
    EXPECT_EQ(info["sessions"].size(), 0U);
    EXPECT_EQ(info["locks"].size(), 0U);
}

TEST_F(Info, DatabaseWithoutASchemaIsSaidToBe) {
    std::filesystem::remove(place / "db/schema.json");
    EXPECT_THAT(tavdb({"info"}).out, HasSubstr("source       unknown: there is no schema.json\n"));
}

}  // namespace
}  // namespace tavdb_test
