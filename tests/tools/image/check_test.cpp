// SPDX-License-Identifier: Apache-2.0
// What the check says of one damage each, and what is left of the database when it
// was put right. A row changes words of sound images; the first line of the findings
// and the paths afterwards are compared.
#include <filesystem>

#include "image/check_names.h"
#include "tools/image/check_support.h"

namespace tavdb::image {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

/// Keys: root 16, /a 44, /b 84, /c 124, /c/d 152; three values for each leaf from 16
/// on, constraints: range of /a 16, elements 36, enumeration 42 of /c/d; names in
/// the order of the tree from 16 on.
constexpr int32_t C = kComponentMedium;
constexpr int32_t V = kValueMedium;
constexpr int32_t K = kConstraintMedium;
constexpr int32_t S = kStringMedium;
constexpr int32_t D = kDataMedium;
constexpr int32_t T = kTextMedium;

struct Change {
    int32_t medium;
    uint32_t offset;
    uint32_t word;
};

struct Row {
    const char *name;
    std::vector<Change> changes;
    std::vector<std::string> lines;  ///< what is found, those about free lists left out
    const char *shape;               ///< paths afterwards
    bool isOdd = false;              ///< and no damage
};

/// So that a failing test is named.
void PrintTo(const Row &row, std::ostream *stream) {
    *stream << row.name;
}

/// The paths below a node, in the order of the tree.
std::string shapeOf(const RawImages &images, uint32_t node, const std::string &path, size_t depth = 0) {
    std::string shape;
    for (uint32_t child = wordOf(images, C, node + 24); child != 0 && depth < 20;
         child = wordOf(images, C, child + 16)) {
        const auto name = path + textOf(images, wordOf(images, C, child + 4));
        shape += (shape.empty() ? "" : " ") + name;
        if (wordOf(images, C, child + 20) == TAVDB_KIND_NODE)
            if (const auto below = shapeOf(images, child, name, depth + 1); !below.empty())
                shape += " " + below;
    }
    return shape;
}

std::string shapeOf(const RawImages &images) {
    return shapeOf(images, wordOf(images, C, 8), "/");
}

class CheckTable : public testing::TestWithParam<Row> {
protected:
    tavdb_test::TestPlace place;
};

const char *const kWhole = "/a /b /c/ /c/d";
const Row kRows[] = {
    {"Sound", {}, {}, kWhole},

    // Headers
    {"Magic", {{V, 0, 7}}, {"value.med: the header: it does not begin with TAVD (damage): it does"}, kWhole},
    {"Role",
     {{S, 4, 0x10001}},
     {"string.med: the header: it does not say that it is the string medium (damage): it does"},
     kWhole},
    {"RootOfAnotherMedium",
     {{D, 8, 16}},
     {"data.med: the header: it names a root, which only the component medium has (damage): it names none"},
     kWhole},
    {"FreeBlockOfTexts",
     {{T, 12, 16}},
     {"text.med: the header: it names a free block, which this medium does not have (damage): it names none"},
     kWhole},

    // The tree
    {"NoRoot", {{C, 8, 0}}, {"component.med: the header: it names no root (damage): it names the node at 16"}, kWhole},
    {"RootAtALeaf",
     {{C, 8, 44}},
     {"component.med: the header: its root, at 44, is none (damage): it names the node at 16"},
     kWhole},
    {"RootAtAnotherNode",
     {{C, 8, 124}},
     {"component.med: the header: its root, at 124, is none (damage): it names the node at 16"},
     kWhole},
    {"RootNamesAParent",
     {{C, 16 + 12, 44}},
     {"component.med: the node at 16 of /: it is the root and names a parent or a sibling (damage): it names neither "
      "of "
      "them"},
     kWhole},
    {"RootNamesASibling",
     {{C, 16 + 16, 44}},
     {"component.med: the node at 16 of /: it is the root and names a parent or a sibling (damage): it names neither "
      "of "
      "them"},
     kWhole},
    {"KeyOfALeaf",
     {{C, 44, 45}},
     {"component.med: the leaf at 44 of /a: it says that it lies at 45 (damage): it says where it lies"},
     kWhole},
    {"KeyOfANode",
     {{C, 124, 0}},
     {"component.med: the node at 124 of /c: it says that it lies at 0 (damage): it says where it lies"},
     kWhole},
    {"ParentOutside",
     {{C, 84 + 12, 0x7FFFFFF0}},
     {"component.med: the leaf at 84 of /b: it names 2147483632 as its parent and hangs below the node at 16 (damage): "
      "it names that node"},
     kWhole},
    {"KindOfALeaf",
     {{C, 44 + 20, 9}},
     {"component.med: the leaf at 44 of /a: it says that it is of kind 9 (damage): it is a leaf"},
     kWhole},
    {"KindOfANode",
     {{C, 124 + 20, 0x80000000}},
     {"component.med: the node at 124 of /c: it says that it is of kind -2147483648 (damage): it is a node"},
     kWhole},
    {"NodeThatSaysItIsALeaf",
     {{C, 124 + 20, TAVDB_KIND_LEAF}},
     {"component.med: the node at 124 of /c: it says that it is of kind 1 (damage): it is a node"},
     kWhole},
    {"LeafThatSaysItIsANode",
     {{C, 84 + 20, TAVDB_KIND_NODE}},
     {"component.med: the leaf at 84 of /b: it says that it is of kind 0 (damage): it is a leaf"},
     kWhole},
    {"FirstChildOutside",
     {{C, 16 + 24, 0x00FFFFFF}},
     {"component.med: the node at 16 of /: its first child, at 16777215, lies outside of its medium (damage): the "
      "chain "
      "goes on with the component at 44"},
     kWhole},
    {"SiblingIsNoRecord",
     {{C, 44 + 16, 88}},
     {"component.med: the leaf at 44 of /a: its next sibling, at 88, is no record: it does not name itself (damage): "
      "the "
      "chain goes on with the component at 84"},
     kWhole},
    {"SiblingLoop",
     {{C, 124 + 16, 44}},
     {"component.med: the node at 124 of /c: its next sibling, at 44, stands elsewhere in the tree as well (damage): "
      "the "
      "chain ends there"},
     kWhole},
    {"NodeBelowItself",
     {{C, 124 + 24, 124}},
     {"component.med: the node at 124 of /c: its first child, at 124, stands elsewhere in the tree as well (damage): "
      "the "
      "chain goes on with the component at 152"},
     kWhole},
    {"RecordIsGone",
     {{C, 84, 0}, {C, 84 + 4, 0}, {C, 84 + 12, 0}, {C, 84 + 24, 0}, {C, 84 + 28, 0}, {C, 84 + 32, 0}},
     {"component.med: the leaf at 44 of /a: its next sibling, at 84, is no record: it does not name itself (damage): "
      "the "
      "chain goes on with the component at 124; lost: the component at 84"},
     "/a /c/ /c/d"},
    {"NoLinkLeadsToALeaf",
     {{C, 124 + 24, 0}},
     {"component.med: the leaf at 152 of /lost+found/d: no link leads to it (damage): it comes to stand below "
      "/lost+found"},
     "/a /b /c/ /lost+found/ /lost+found/d"},
    {"NoLinkLeadsToANode",
     {{C, 84 + 16, 0}},
     {"component.med: the node at 124 of /lost+found/c: no link leads to it (damage): it comes to stand below "
      "/lost+found"},
     "/a /b /lost+found/ /lost+found/c/ /lost+found/c/d"},

    // What the library's own stated behaviour leaves behind
    {"FirstLeafWasMovedToAnotherNode",
     {{C, 124 + 24, 44}, {C, 44 + 12, 124}, {C, 44 + 16, 152}},
     {"component.med: the node at 16 of /: its first child, at 44, stands below its own parent as well (oddity): the "
      "chain goes on with the component at 84"},
     "/b /c/ /c/a /c/d",
     true},
    {"FirstLeafWasMovedBehindASibling",
     {{C, 84 + 16, 44}, {C, 44 + 16, 124}},
     {"component.med: the node at 16 of /: no link leads to its children from 84 on, which stand in front of 44 "
      "(oddity): they come first"},
     "/b /a /c/ /c/d",
     true},
    {"FirstLeafWasMovedToItsOwnPlace",
     {{C, 44 + 16, 44}},
     {"component.med: the leaf at 44 of /a: its next sibling, at 44, stands elsewhere in the tree as well (oddity): "
      "the "
      "chain goes on with the component at 84"},
     kWhole,
     true},
    {"NodeWasDeletedAboveItsChildren",
     {{C, 84 + 16, 152}, {C, 124, 0}},
     {"component.med: the leaf at 152 of /d: it names 124 as its parent and hangs below the node at 16 (oddity): it "
      "names "
      "that node"},
     "/a /b /d",
     true},
    {"NameWasDeleted",
     {{S, 32, 96}, {S, 36, 16}, {S, 12, 32}},
     {"component.med: the leaf at 44 of /recovered-44: its name, at 32, was deleted (oddity): it gets a new name; "
      "lost: "
      "its name"},
     "/recovered-44 /b /c/ /c/d",
     true},
    {"ValueIsNotAdmitted",
     {{D, 16, 77}},
     {"value.med: the value at 16 of /a: value 77 is outside 1..9 (oddity): it stays as it is"},
     kWhole,
     true},
    {"ConstraintOfAnotherType",
     {{V, 16 + 24, 42}},
     {"value.med: the value at 16 of /a: its constraint, at 42, is for values of another type, so every write is "
      "refused "
      "(oddity): it stays as it is"},
     kWhole,
     true},

    // Names
    {"NameOutside",
     {{C, 44 + 4, 0xFFFFFFF0}},
     {"component.med: the leaf at 44 of /recovered-44: its name, at 4294967280, lies outside of its medium (damage): "
      "it "
      "gets a new name; lost: its name"},
     "/recovered-44 /b /c/ /c/d"},
    {"NameIsNoEntry",
     {{C, 124 + 4, 20}},
     {"component.med: the node at 124 of /recovered-124: its name, at 20, is no record: it does not name itself "
      "(damage): it gets a new name; lost: its name"},
     "/a /b /recovered-124/ /recovered-124/d"},
    {"NameOfTheRoot",
     {{C, 16 + 4, 2}},
     {"component.med: the node at 16 of /: its name, at 2, lies outside of its medium "
      "(damage): it gets a new name; lost: its name"},
     kWhole},
    {"KeyOfAName",
     {{S, 32, 7}},
     {"string.med: the name at 32 of /a: it says that it lies at 7 (damage): it says where it lies"},
     kWhole},
    {"MediumOfAName",
     {{S, 32 + 4, 9}},
     {"string.med: the name at 32 of /a: it names medium 9, which is none (damage): it is put right"},
     kWhole},
    {"LengthOfAName",
     {{S, 32 + 12, 0x80000000}},
     {"string.med: the name at 32 of /a: it says that it has -2147483648 bytes (damage): it is put right"},
     kWhole},
    {"TextOutside",
     {{S, 32 + 8, 0xFFFFFFF}},
     {"string.med: the name at 32 of /recovered-44: its text, at 268435455, lies outside of its medium (damage): the "
      "component gets a new name; lost: the name"},
     "/recovered-44 /b /c/ /c/d"},
    {"TextsOverlap",
     {{S, 32 + 8, 16}},
     {"string.med: the name at 32 of /@44: its text, 2 bytes at 16, overlaps something else (damage): it is copied"},
     "// /b /c/ /c/d"},

    // Values
    {"ValueOutside",
     {{C, 44 + 24, 0x7FFFFFF0}},
     {"component.med: the leaf at 44 of /a: its current value, at 2147483632, lies outside of its medium (damage): a "
      "copy of its default value takes its place; lost: its current value"},
     kWhole},
    {"KeyOfAValue",
     {{V, 16, 0}},
     {"value.med: the value at 16 of /a: it says that it lies at 0 (damage): it says where it lies"},
     kWhole},
    {"MediumOfAValue",
     {{V, 16 + 8, 0}},
     {"value.med: the value at 16 of /a: it names medium 0, which is none (damage): it is put right"},
     kWhole},
    {"LengthOfAValue",
     {{V, 16 + 16, 0xFFFFFFFF}},
     {"value.med: the value at 16 of /a: it says that it has -1 bytes (damage): it is put right"},
     kWhole},
    {"LengthOfAValueReachesIntoOthers",
     {{V, 16 + 16, 9}},
     {"value.med: the value at 16 of /a: its data overlap something else (damage): they have 4 bytes, as its type "
      "says"},
     kWhole},
    {"TypeThatIsNone",
     {{V, 16 + 4, 22616}},
     {"value.med: the value at 16 of /a: it says that it is of type 22616 (damage): it is of type 8"},
     kWhole},
    {"TypeOfAText",
     {{V, 100 + 4, 4097}},
     {"value.med: the value at 100 of /b: it says that it is of type 4097 (damage): it is of type 1"},
     kWhole},
    {"TypeThatConstraintAndOtherValuesDeny",
     {{V, 44 + 4, TAVDB_TYPE_F32}},
     {"value.med: the value at 44 of /a: it says that it is of type 10 (damage): it is of type 8"},
     kWhole},
    {"DataOutside",
     {{V, 44 + 12, 0x7000000}},
     {"component.med: the leaf at 44 of /a: its default value, at 44, is damaged: its data, at 117440512, lie outside "
      "of "
      "their medium (damage): a copy of its factory value takes its place; lost: its default value"},
     kWhole},
    {"DataOverlap",
     {{V, 16 + 12, 20}},
     {"value.med: the value at 44 of /a: its data, 4 bytes at 20, overlaps something else (damage): they are copied to "
      "52"},
     kWhole},

    // Constraints
    {"KeyOfAConstraint",
     {{K, 16, 1}},
     {"constraint.med: the range at 16 of /a: it says that it lies at 1 (damage): it says where it lies"},
     kWhole},
    {"ConstraintOfOneValue",
     {{V, 16 + 24, 20}},
     {"value.med: the value at 16 of /a: its constraint, at 20, is no record: it does not name itself (damage): it "
      "takes "
      "that of another value of the leaf"},
     kWhole},
    {"ConstraintOutsideOfOneValue",
     {{V, 16 + 24, 0xFFFFFFFC}},
     {"value.med: the value at 16 of /a: its constraint, at 4294967292, lies outside of its medium (damage): it takes "
      "that of another value of the leaf"},
     kWhole},
    {"TypeOfAConstraint",
     {{K, 16 + 4, 1}},
     {"value.med: the value at 16 of /a: its constraint, at 16, is of type 1, which is none (damage): it has none any "
      "more; lost: its constraint",
      "value.med: the value at 44 of /a: its constraint, at 16, is of type 1, which is none (damage): it has none any "
      "more; lost: its constraint",
      "value.med: the value at 72 of /a: its constraint, at 16, is of type 1, which is none (damage): it has none any "
      "more; lost: its constraint"},
     kWhole},
    {"SizeOfElements",
     {{K, 42 + 12, 8}},
     {"constraint.med: the enumeration at 42 of /c/d: its elements have 8 bytes (damage): they have 2"},
     kWhole},
};

INSTANTIATE_TEST_SUITE_P(Rows, CheckTable, testing::ValuesIn(kRows),
                         [](const auto &row) { return std::string(row.param.name); });

TEST_P(CheckTable, IsFoundAndPutRight) {
    auto images = imagesOf(place, kSmall);
    for (const auto &change : GetParam().changes)
        setWord(images, change.medium, change.offset, change.word);
    const auto examination = examine(images);
    auto lines = linesOf(examination);
    std::erase_if(lines, [](const std::string &line) { return line.ends_with("the free list is made anew"); });
    EXPECT_EQ(lines, GetParam().lines);
    EXPECT_EQ(shapeOf(examination.images), GetParam().shape);
    const bool isWhole = GetParam().changes.empty();
    EXPECT_EQ(examination.isDamaged(), !isWhole && !GetParam().isOdd) << testing::PrintToString(linesOf(examination));
    EXPECT_EQ(examination.images.equals(images), isWhole || examination.findings.back().remedy == "it stays as it is");
    expectSound(examination);
}

class CheckFreeLists : public testing::Test {
protected:
    std::vector<std::string> check() {
        const auto examination = examine(images);
        expectSound(examination);
        return linesOf(examination);
    }

    tavdb_test::TestPlace place;
    RawImages images = imagesOf(place, kSmall);
    const uint32_t first = wordOf(images, V, 12);
    const std::string at = std::to_string(first);
    const std::string size = std::to_string(wordOf(images, V, first + 4));
};

TEST_F(CheckFreeLists, ListThatLeadsOutside) {
    setWord(images, V, 12, 0xFFFFFF);
    EXPECT_THAT(check(), ElementsAre("value.med: the header: its first free block, at 16777215, lies outside of its "
                                     "medium (damage): the free list is made anew"));
}

TEST_F(CheckFreeLists, BlockThatIsTooShortOrTooLong) {
    setWord(images, V, first + 4, 7);
    EXPECT_THAT(check(), ElementsAre("value.med: the header: its first free block, at " + at +
                                     ", says that it has 7 bytes (damage): the free list is made anew"));
    setWord(images, V, first + 4, 0x100000);
    EXPECT_THAT(check(), ElementsAre("value.med: the header: its first free block, at " + at +
                                     ", does not end on its medium (damage): the free list is made anew"));
}

TEST_F(CheckFreeLists, Circle) {
    setWord(images, V, first, first);
    EXPECT_THAT(check(), ElementsAre("value.med: the free block at " + at + ": its next free block, at " + at +
                                     ", does not lie behind it (damage): the free list is made anew"));
}

TEST_F(CheckFreeLists, RecordInUseThatIsFreeAsWell) {
    // The values of /b are given up, and their place together with the next one.
    for (const uint32_t tier : {24U, 28U, 32U})
        setWord(images, C, 84 + tier, 0);
    setWord(images, V, 12, 100);
    setWord(images, V, 100, first);
    setWord(images, V, 104, 4 * 28);
    EXPECT_THAT(check(),
                ElementsAre("component.med: the leaf at 152 of /c/d: its current value, at 184, is free as well "
                            "(damage): it is taken out of the free list",
                            "value.med: the free block at 100: it is free, and what lies at 184 is in use "
                            "(damage): the free list is made anew"));
}

TEST_F(CheckFreeLists, BlocksThatWereNotMergedAreAnOddity) {
    setWord(images, V, first, first + 16);
    setWord(images, V, first + 4, 16);
    setWord(images, V, first + 16, 0);
    setWord(images, V, first + 20, static_cast<uint32_t>(images.content(V).size()) - first - 16);
    EXPECT_THAT(check(),
                ElementsAre("value.med: the free block at " + std::to_string(first + 16) +
                            ": it begins where the block before it ends (oddity): the free list is made anew"));
    EXPECT_FALSE(examine(images).isDamaged());
}

TEST_F(CheckFreeLists, LeakedBytesAreAnOddity) {
    setWord(images, V, 12, 0);
    EXPECT_THAT(check(), ElementsAre("value.med: the header: " + size + " bytes, from " + at +
                                     " on, are neither in use nor free (oddity): the free list is made anew"));
    EXPECT_FALSE(examine(images).isDamaged());
    const auto mended = examine(images).images;
    EXPECT_EQ(wordOf(mended, V, 12), first);
    EXPECT_EQ(wordOf(mended, V, first + 4), std::stoul(size)) << "what the library itself would have";
}

TEST_F(CheckFreeLists, RestsOfLessThanABlockAreNothing) {
    // As an allocation leaves them that found a block a little longer than asked for.
    setWord(images, V, 12, first + 4);
    setWord(images, V, first + 8, static_cast<uint32_t>(images.content(V).size()) - first - 4);
    setWord(images, V, first + 4, 0);
    setWord(images, V, first, 0xADDEADDE);
    EXPECT_THAT(check(), IsEmpty());
}

TEST_F(CheckFreeLists, DeletedComponentsStayDeleted) {
    // Its record looks as it did, but it stands in the free list.
    {
        Attached database(place / "built");
        ASSERT_EQ(tavDBMDeleteComponent(database.session(), database.at("/b")), 0);
    }
    const auto examination = examine(*RawImages::load(place / "built", nativeOrder()).value);
    EXPECT_FALSE(examination.isDamaged());
    EXPECT_EQ(shapeOf(examination.images), "/a /c/ /c/d");
    EXPECT_THAT(
        linesOf(examination),
        ElementsAre("value.med: the header: 84 bytes, from 100 on, are neither in use nor free (oddity): the free "
                    "list is made anew",
                    "string.med: the header: 16 bytes, from 48 on, are neither in use nor free (oddity): the free "
                    "list is made anew"));
    expectSound(examination);
}

TEST(Check, OrphansWithNamesThatAreTakenGetOthers) {
    const tavdb_test::TestPlace place;
    auto images = imagesOf(place, "a: {x: {type: u8}}\nb: {x: {type: u8}}\n");
    const uint32_t a = wordOf(images, C, 16 + 24);
    const uint32_t b = wordOf(images, C, a + 16);
    const uint32_t secondX = wordOf(images, C, b + 24);
    setWord(images, C, a + 24, 0);
    setWord(images, C, b + 24, 0);
    const auto examination = examine(images);
    EXPECT_EQ(shapeOf(examination.images),
              "/a/ /b/ /lost+found/ /lost+found/x /lost+found/x-" + std::to_string(secondX));
    expectSound(examination);
    EXPECT_THAT(examination.displaced, ElementsAre("/lost+found/x", "/lost+found/x-" + std::to_string(secondX)));
}

TEST(Check, LostAndFoundIsUsedAgain) {
    const tavdb_test::TestPlace place;
    auto images = imagesOf(place, "a: {x: {type: u8}}\nb: {y: {type: u8}}\n");
    const uint32_t a = wordOf(images, C, 16 + 24);
    setWord(images, C, a + 24, 0);
    images = examine(images).images;
    setWord(images, C, wordOf(images, C, a + 16) + 24, 0);
    EXPECT_EQ(shapeOf(examine(images).images), "/a/ /b/ /lost+found/ /lost+found/x /lost+found/y");
}

TEST(Check, ImagesOfTheOtherOrderAreLookedAtToo) {
    const tavdb_test::TestPlace place;
    buildText(kSmall, place / "db", {.order = opposite(nativeOrder())});
    auto images = *RawImages::load(place / "db", opposite(nativeOrder())).value;
    EXPECT_THAT(linesOf(examine(images)), IsEmpty());
    images.write(C, 16 + 24, uint32_t{7});
    const auto examination = examine(images);
    EXPECT_TRUE(examination.isDamaged());
    EXPECT_EQ(shapeOf(examination.images), kWhole);
}

TEST(Check, EmptyImagesBecomeAnEmptyDatabase) {
    const auto examination = examine({nativeOrder(), {}});
    EXPECT_TRUE(examination.isDamaged());
    EXPECT_EQ(shapeOf(examination.images), "");
    expectSound(examination);
}

}  // namespace
}  // namespace tavdb::image
