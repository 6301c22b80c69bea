// SPDX-License-Identifier: Apache-2.0
// tavdb mv: the tree afterwards, as an application walks it, and what schema.json
// says about the moved paths.
#include <sys/stat.h>

#include "tools/verbs/verbs_fixture.h"

namespace tavdb_test {
namespace {

using testing::ElementsAre;
using testing::UnorderedElementsAre;

const char *const kTwoNodes =
    "a:\n"
    "  one: {type: u8, current: 1}\n"
    "  two: {type: u8, current: 2}\n"
    "  three: {type: u8, current: 3}\n"
    "b:\n"
    "  x: {type: u8, current: 10}\n"
    "  y: {type: u8, current: 11}\n"
    "c:\n"
    "  only: {type: u8, current: 20}\n"
    "d: {}\n";

class MoveLeaf : public VerbTest {
protected:
    void SetUp() override {
        build(kTwoNodes);
    }
    void move(std::vector<std::string> arguments) {
        arguments.insert(arguments.begin(), "mv");
        EXPECT_EQ(tavdb(arguments), says(""));
    }
};

TEST_F(MoveLeaf, FirstChildLeavesItsOldPlace) {
    move({"/a/one", "/b"});
    EXPECT_THAT(shape(),
                ElementsAre("/a/", "/a/two", "/a/three", "/b/", "/b/x", "/b/y", "/b/one", "/c/", "/c/only", "/d/"));
    EXPECT_EQ(value("/b/one"), "1\n");
}

TEST_F(MoveLeaf, MiddleChild) {
    move({"/a/two", "/b", "--first"});
    EXPECT_THAT(shape(),
                ElementsAre("/a/", "/a/one", "/a/three", "/b/", "/b/two", "/b/x", "/b/y", "/c/", "/c/only", "/d/"));
}

TEST_F(MoveLeaf, LastChild) {
    move({"/a/three", "/b/", "--after", "x"});
    EXPECT_THAT(shape(),
                ElementsAre("/a/", "/a/one", "/a/two", "/b/", "/b/x", "/b/three", "/b/y", "/c/", "/c/only", "/d/"));
}

TEST_F(MoveLeaf, OnlyChildToAnEmptyNode) {
    move({"/c/only", "/d"});
    EXPECT_THAT(shape(),
                ElementsAre("/a/", "/a/one", "/a/two", "/a/three", "/b/", "/b/x", "/b/y", "/c/", "/d/", "/d/only"));
}

TEST_F(MoveLeaf, WithinItsParent) {
    move({"/a/one", "/a"});
    EXPECT_THAT(shape(), testing::Contains("/a/one"));
    EXPECT_EQ(tavdb({"list", "/a"}), says("two\nthree\none\n"));
    move({"/a/one", "/a", "--first"});
    EXPECT_EQ(tavdb({"list", "/a"}), says("one\ntwo\nthree\n"));
    move({"/a/one", "/a", "--after", "/a/two"});
    EXPECT_EQ(tavdb({"list", "/a"}), says("two\none\nthree\n"));
    move({"/a/three", "/a", "--last"});
    EXPECT_EQ(tavdb({"list", "/a"}), says("two\none\nthree\n")) << "it is there already";
    EXPECT_EQ(shape().size(), 10U);
}

TEST_F(MoveLeaf, OtherNameInTheSamePlace) {
    const auto before = freeBytes();
    move({"/a/two", "/a", "--name", "zwei"});
    EXPECT_EQ(tavdb({"list", "/a"}), says("one\nzwei\nthree\n"));
    EXPECT_EQ(value("/a/zwei"), "2\n");
    EXPECT_EQ(freeBytes(), before) << "the old name is given back";
    move({"/a/zwei", "/a", "--name", "zwei", "--last"});
    EXPECT_EQ(tavdb({"list", "/a"}), says("one\nthree\nzwei\n"));
}

TEST_F(MoveLeaf, NameThatAnotherComponentBearsTooIsKept) {
    {
        tavdb::image::Attached attached(directory());
        auto *const session = attached.session();
        const auto name = tavDBMGetStringKey(session, attached.at("/a/two"));
        ASSERT_EQ(tavDBMSetStringKey(session, attached.at("/b/x"), name), 0);
    }
    move({"/a/two", "/a", "--name", "zwei"});
    EXPECT_EQ(value("/b/two"), "10\n");
}

using MoveNode = MoveLeaf;

TEST_F(MoveNode, WithEverythingBelowItAndAnotherName) {
    move({"/a", "/d", "--name", "inner"});
    EXPECT_THAT(shape(), ElementsAre("/b/", "/b/x", "/b/y", "/c/", "/c/only", "/d/", "/d/inner/", "/d/inner/one",
                                     "/d/inner/two", "/d/inner/three"));
    EXPECT_EQ(value("/d/inner/three"), "3\n");
}

TEST_F(MoveNode, FindByNameStillWorks) {
    move({"/a", "/d"});
    tavdb::image::Attached attached(directory());
    EXPECT_NE(attached.at("/d/a/two"), 0U);
}

using MoveRefused = MoveLeaf;

TEST_F(MoveRefused, SaysWhyAndChangesNothing) {
    expectRefusal({"mv", "/", "/a"}, 2, "/: the root cannot be moved");
    expectRefusal({"mv", "/a", "/a"}, 1, "/a: cannot be moved below itself");
    expectRefusal({"mv", "/a", "/b/x"}, 1, "/a: /b/x is a leaf, nothing can be moved there");
    expectRefusal({"mv", "/a/one", "/b", "--name", "x"}, 1, "/a/one: there is a 'x' in /b already");
    expectRefusal({"mv", "/a/one", "/", "--name", "b"}, 1, "/a/one: there is a 'b' in / already");
    expectRefusal({"mv", "/none", "/b"}, 3, "/none: there is no 'none' in /");
    expectRefusal({"mv", "/a/one", "/none"}, 3, "/a/one: /none: there is no 'none' in /");
    expectRefusal({"mv", "/a/one", "/b", "--after", "two"}, 3, "/a/one: there is no other 'two' in /b to stand behind");
    expectRefusal({"mv", "/a/one", "/a", "--after", "one"}, 3, "/a/one: there is no other 'one' in /a to stand behind");
    expectRefusal({"mv", "/a/one", "/b", "--name", "p/q"}, 2, "mv: the name 'p/q' holds a '/'");
    EXPECT_EQ(tavdb({"mv", "/a/one", "/b", "--first", "--last"}).exitCode, 2);
    EXPECT_EQ(tavdb({"mv", "/a/one"}).exitCode, 2);
}

TEST_F(MoveRefused, NodeBelowItsOwnChild) {
    move({"/b", "/a"});
    expectRefusal({"mv", "/a", "/a/b"}, 1, "/a: cannot be moved below itself");
}

TEST_F(MoveRefused, WhileSomebodyHoldsALock) {
    for (const auto *locked : {"/", "/a", "/a/two", "/a/one", "/b", "/b/y"})
        EXPECT_EQ(tavdb({"lock", locked, "--", TAVDB_COMMAND, "mv", "/a/two", "/b", "--timeout", "0.03"}).exitCode, 5)
            << locked;
    EXPECT_EQ(shape().size(), 10U);
    EXPECT_EQ(tavdb({"lock", "/", "--", TAVDB_COMMAND, "mv", "/a/two", "/b", "--no-lock"}), says(""));
}

TEST_F(MoveRefused, FullStringMediumLeavesTheOldName) {
    {
        tavdb::image::Attached attached(directory());
        const auto size = freeBytes()["string"];
        ASSERT_NE(flst_m_get(attached.session(), 4, static_cast<uint32_t>(size)), 0U);
    }
    EXPECT_EQ(tavdb({"mv", "/a/one", "/b", "--name", "eins"}).exitCode, 7);
    EXPECT_EQ(value("/a/one"), "1\n");
    EXPECT_EQ(shape().size(), 10U);
}

TEST_F(MoveRefused, LeafThatIsLinkedTwice) {
    // What the library's own move does to a first child.
    {
        tavdb::image::Attached attached(directory());
        ASSERT_EQ(tavDBMMoveLeaf(attached.session(), attached.at("/a/one"), attached.at("/b/"), 0), 0);
    }
    EXPECT_EQ(tavdb({"mv", "/a", "/d"}).exitCode, 0) << "what hangs below it is no concern of a move";
    EXPECT_EQ(tavdb({"rm", "-r", "/c"}).exitCode, 8);
}

class MoveSchema : public VerbTest {
protected:
    void SetUp() override {
        build(kDevice);
    }
};

TEST_F(MoveSchema, SecretsStaySecretAndLabelsStay) {
    EXPECT_EQ(tavdb({"mv", "/network/lan", "/", "--name", "wan"}), says(""));
    EXPECT_EQ(value("/wan/key"), "tavdb: /wan/key: is a secret; --secrets shows it\n");
    EXPECT_EQ(value("/wan/mode"), "auto\n");
    EXPECT_THAT(schemaPaths(), UnorderedElementsAre("/", "/network", "/wan/key", "/wan/mode", "/wan/mtu"));
    EXPECT_EQ(tavdb({"mv", "/wan/key", "/network", "--name", "k"}), says(""));
    EXPECT_EQ(value("/network/k"), "tavdb: /network/k: is a secret; --secrets shows it\n");
    EXPECT_EQ(tavdb({"get", "--secrets", "/network/k"}), says("00ff7e01\n"));
}

TEST_F(MoveSchema, PathsThatOnlyBeginAlikeAreLeftAlone) {
    std::filesystem::remove_all(directory());
    build("lan: {type: text, size: 4, description: A}\nlan2: {type: text, size: 4, secret: true}\nn: {}\n");
    EXPECT_EQ(tavdb({"mv", "/lan", "/n"}), says(""));
    EXPECT_THAT(schemaPaths(), UnorderedElementsAre("/lan2", "/n/lan"));
}

TEST_F(MoveSchema, FileKeepsItsRightsAndNothingIsLeftBesideIt) {
    const auto schema = place / "db/schema.json";
    ASSERT_EQ(chmod(schema.c_str(), 0640), 0);
    place.write("db/schema.json.new", "left by a run that was killed");
    EXPECT_EQ(tavdb({"mv", "/network/lan/key", "/"}), says(""));
    struct stat status = {};
    ASSERT_EQ(stat(schema.c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 0777, 0640U);
    EXPECT_FALSE(std::filesystem::exists(schema + ".new"));
}

TEST_F(MoveSchema, WithoutTheFileTheTreeIsMoved) {
    std::filesystem::remove(place / "db/schema.json");
    EXPECT_EQ(tavdb({"mv", "/network/lan/key", "/"}), says(""));
    EXPECT_EQ(value("/key"), "00ff7e01\n");
    EXPECT_FALSE(std::filesystem::exists(place / "db/schema.json"));
}

TEST_F(MoveSchema, DamagedFileStopsTheMove) {
    place.write("db/schema.json", "{");
    EXPECT_EQ(tavdb({"mv", "/network/lan/key", "/"}).exitCode, 8);
    EXPECT_THAT(shape(), testing::Contains("/network/lan/key"));
}

TEST_F(MoveSchema, FolderThatCannotBeWrittenStopsTheMove) {
    ASSERT_EQ(tavdb({"info"}).exitCode, 0) << "which makes the control table";
    std::filesystem::permissions(place.path(), std::filesystem::perms(0755));
    for (const auto &[name, content] : filesIn(directory()))
        std::filesystem::permissions(directory() + "/" + name, std::filesystem::perms(0666));
    std::filesystem::permissions(place / "control.tbl", std::filesystem::perms(0666));
    std::filesystem::permissions(place / "control.tbl.sem", std::filesystem::perms(0666));
    std::filesystem::permissions(directory(), std::filesystem::perms(0555));
    Surroundings surroundings;
    surroundings.asNobody = true;
    const auto result = tavdb({"mv", "/network/lan/key", "/"}, surroundings);
    EXPECT_EQ(result, fails(6, "tavdb: /network/lan/key: schema.json: cannot be made: Permission denied\n"));
    EXPECT_THAT(shape(), testing::Contains("/network/lan/key"));
    std::filesystem::permissions(directory(), std::filesystem::perms(0755));
}

}  // namespace
}  // namespace tavdb_test
