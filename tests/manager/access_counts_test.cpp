// SPDX-License-Identifier: Apache-2.0
// What each function of the application interface costs: how often it opens each
// medium and what it transfers there, on one known tree. The numbers are part of
// what the library promises; a change of one of them is a change of behaviour.
// Failing calls are not looked at here.
#include <algorithm>
#include <array>
#include <fstream>
#include <regex>
#include <set>

#include "manager/access_text.h"
#include "manager/manager_calls.h"

namespace tavdb_test {
namespace {

/// The tree "/" (n/ (a b) p/ (x y) leaf ranged listed e() f g() h last), each component with that name. Leaf a and b
/// have three values of 4 bytes each, leaf one of 8 bytes, ranged and listed one of 4 bytes with its constraint.
class KnownTree : public TreeFixture {
public:
    void prepare();

    /// Leaves the free list of components as two blocks of 28 bytes in front of the rest of the medium.
    void freeTwoNodes() {
        tavDBMDeleteComponent(&session, key("e"));
        tavDBMDeleteComponent(&session, key("g"));
    }
    /// Attaches once more, as a program with two databases does.
    void attachAgain() {
        attach();
    }
    int64_t detachAgain() {
        return detach();
    }
    uint32_t at(const std::string &label) const {
        return key(label);
    }

    CallArguments arguments{};
    tavDBMSession other{};  ///< a second session
    int32_t number[3] = {};
    int32_t length = sizeof number;
    uint32_t string = 0;

private:
    uint32_t putEnumeration(const std::array<int32_t, 3> &elements);
};

void KnownTree::prepare() {
    build("n(a b) p(x y) leaf ranged listed e() f g() h last");
    nameIt(root, "/");
    for (const char *const node : {"n", "p", "e", "g"})
        nameIt(key(node), std::string(node) + '/');
    for (const char *const leaf : {"a", "b", "x", "y", "leaf", "ranged", "listed", "f", "h", "last"})
        nameIt(key(leaf), leaf);
    for (const char *const leaf : {"a", "b"})
        setKeys(key(leaf), {putValue({1, 0, 0, 0}), putValue({2, 0, 0, 0}), putValue({3, 0, 0, 0})});
    const uint32_t value = putValue({1, 2, 3, 4, 5, 6, 7, 8});
    setKeys(key("leaf"), {.currentValue = value, .defaultValue = value, .factoryValue = value});
    const uint32_t range = putRange({.key = 0, .type = 0, .minimum = 0, .maximum = 100, .step = 5});
    setKeys(key("ranged"), {.currentValue = putValue({0, 0, 0, 0}, TAVDB_TYPE_S32, range)});
    setKeys(key("listed"), {.currentValue = putValue({0, 0, 0, 0}, TAVDB_TYPE_S32, putEnumeration({10, 20, 30}))});
    string = putString("a text");
    arguments = {.session = &session,
                 .node = key("n"),
                 .leaf = key("leaf"),
                 .parent = key("p"),
                 .previous = key("x"),
                 .child = key("y"),
                 .value = value,
                 .word = string};
}

uint32_t KnownTree::putEnumeration(const std::array<int32_t, 3> &elements) {
    tavDBMEnumeration record = {.key = 0,
                                .type = TAVDB_TYPE_S32 << TAVDB_ENUMERATION_SHIFT,
                                .arrayKey = static_cast<uint32_t>(constraint_newEnumArray(&session, 4, 3)),
                                .elementSize = 4,
                                .elementCount = 3};
    EXPECT_NE(enum_new(&session, &record), nullptr);
    EXPECT_EQ(constraint_setEnumArray(&session, record.arrayKey, 4, 3, elements.data()), TAVDB_OK);
    return record.key;
}

using Tree = KnownTree;
using Session = tavDBMSession;
using Step = int64_t (*)(Tree &t, Session *s);

/// A call of an exported function and what it costs.
struct Cost : Named {
    const char *function;
    Step call;
    const char *accesses;
    Step before = nullptr;  ///< not counted
};

int64_t freeTwoNodes(Tree &t, Session *) {
    t.freeTwoNodes();
    return 0;
}

int64_t attachAgain(Tree &t, Session *) {
    t.attachAgain();
    return 0;
}

int64_t openOther(Tree &t, Session *s) {
    return tavDBMInitSession(&t.other, s->dbId);
}

int64_t lockLeaf(Tree &t, Session *s) {
    return tavDBMLock(s, t.arguments.leaf, TAVDB_LOCK_TRY);
}

/// A search that passes other names leaves their mismatch in the session although it finds what it is asked for.
int64_t finds(Tree &t, Session *s, const char *path, const char *label) {
    const uint32_t found = tavDBMSearchByName(s, path);
    s->errorCode = found == t.at(label) ? 0 : s->errorCode;
    return found;
}

// clang-format off
constexpr Cost kCosts[] = {
    {"Init", "tavDBMInit",
     [](Tree &t, Session *) -> int64_t { t.attachAgain(); return 0; },
     ""},
    {"Term", "tavDBMTerm",
     [](Tree &t, Session *) -> int64_t { return t.detachAgain(); },
     "", attachAgain},
    {"InitSession", "tavDBMInitSession",
     [](Tree &t, Session *s) -> int64_t { return tavDBMInitSession(&t.other, s->dbId); },
     "component 1 read 1/16"},
    {"TermSession", "tavDBMTermSession",
     [](Tree &t, Session *) -> int64_t { return tavDBMTermSession(&t.other); },
     "", openOther},
    {"GetGeneric", "tavDBMGetGeneric",
     [](Tree &t, Session *s) -> int64_t { return tavDBMGetGeneric(s, t.at("leaf"), t.number, &t.length); },
     "component 1 read 1/40; value 1 read 1/28; data 1 read 1/8"},
    {"GetDefaultGeneric", "tavDBMGetDefaultGeneric",
     [](Tree &t, Session *s) -> int64_t { return tavDBMGetDefaultGeneric(s, t.at("leaf"), t.number, &t.length); },
     "component 1 read 1/40; value 1 read 1/28; data 1 read 1/8"},
    {"GetFactoryGeneric", "tavDBMGetFactoryGeneric",
     [](Tree &t, Session *s) -> int64_t { return tavDBMGetFactoryGeneric(s, t.at("leaf"), t.number, &t.length); },
     "component 1 read 1/40; value 1 read 1/28; data 1 read 1/8"},
    {"GetCreateListGeneric", "tavDBMGetCreateListGeneric",
     [](Tree &t, Session *s) -> int64_t { return tavDBMGetCreateListGeneric(s, t.at("leaf"), t.number, &t.length); },
     "component 1 read 1/40; value 1 read 1/28; data 1 read 1/12"},
    {"SetGeneric", "tavDBMSetGeneric",
     [](Tree &t, Session *s) -> int64_t { return tavDBMSetGeneric(s, t.at("leaf"), t.number, 12); },
     "component 1 read 1/40; value 1 read 1/28; data 1 written 1/8"},
    {"SetDefaultGeneric", "tavDBMSetDefaultGeneric",
     [](Tree &t, Session *s) -> int64_t { return tavDBMSetDefaultGeneric(s, t.at("leaf"), t.number, 3); },
     "component 1 read 1/40; value 1 read 1/28; data 1 written 1/3"},
    {"SetSint32UnderARange", "tavDBMSetSint32",
     [](Tree &t, Session *s) -> int64_t { return tavDBMSetSint32(s, t.at("ranged"), 15); },
     "component 1 read 1/40; value 1 read 1/28; constraint 2 read 2/28; data 1 written 1/4"},
    {"SetSint32UnderAnEnumeration", "tavDBMSetSint32",
     [](Tree &t, Session *s) -> int64_t { return tavDBMSetSint32(s, t.at("listed"), 20); },
     "component 1 read 1/40; value 1 read 1/28; constraint 3 read 3/40; data 1 written 1/4"},
    {"GetType", "tavDBMGetType",
     [](Tree &t, Session *s) -> int64_t { return tavDBMGetType(s, t.at("leaf")); },
     "component 1 read 1/40; value 1 read 1/28"},
    {"GetLength", "tavDBMGetLength",
     [](Tree &t, Session *s) -> int64_t { return tavDBMGetLength(s, t.at("leaf")); },
     "component 1 read 1/40; value 1 read 1/28"},
    {"Copy", "tavDBMCopy",
     [](Tree &t, Session *s) -> int64_t { return tavDBMCopy(s, t.at("a"), t.at("leaf")); },
     "component 4 read 4/160; value 4 read 4/112; data 2 read 1/4 written 1/8"},
    {"SetCurrentComponent", "tavDBMSetCurrentComponent",
     [](Tree &t, Session *s) -> int64_t { return tavDBMSetCurrentComponent(s, t.at("n")); },
     "component 1 read 1/24"},
    {"SearchByNameFromTheRoot", "tavDBMSearchByName",
     [](Tree &t, Session *s) -> int64_t { return finds(t, s, "/n/b", "b"); },
     "component 8 read 8/192; string 4 read 4/64; text 4 read 4/9"},
    {"SearchByNameFromTheCurrentComponent", "tavDBMSearchByName",
     [](Tree &t, Session *s) -> int64_t { return finds(t, s, "n/b", "b"); },
     "component 6 read 6/152; string 3 read 3/48; text 3 read 3/7"},
    {"SearchByNameBehindSixSiblings", "tavDBMSearchByName",
     [](Tree &t, Session *s) -> int64_t { return finds(t, s, "f", "f"); },
     "component 14 read 14/340; string 7 read 7/112; text 7 read 7/30"},
    {"GetConstraintData", "tavDBMGetConstraintData",
     [](Tree &t, Session *s) -> int64_t { return tavDBMGetConstraintData(s, t.at("ranged"), t.number, 12); },
     "component 1 read 1/40; value 1 read 1/28; constraint 2 read 2/28"},
    {"GetConstraintDataOfAnEnumeration", "tavDBMGetConstraintData",
     [](Tree &t, Session *s) -> int64_t { return tavDBMGetConstraintData(s, t.at("listed"), t.number, 12); },
     "component 1 read 1/40; value 1 read 1/28; constraint 3 read 3/40"},
    {"SetConstraintData", "tavDBMSetConstraintData",
     [](Tree &t, Session *s) -> int64_t { return tavDBMSetConstraintData(s, t.at("ranged"), t.number, 12); },
     "component 1 read 1/40; value 1 read 1/28; constraint 3 read 2/28 written 1/20"},
    {"SetConstraintDataOfAnEnumeration", "tavDBMSetConstraintData",
     [](Tree &t, Session *s) -> int64_t { return tavDBMSetConstraintData(s, t.at("listed"), t.number, 12); },
     "component 1 read 1/40; value 1 read 1/28; constraint 3 read 2/28 written 1/12"},
    {"GetConstraintLength", "tavDBMGetConstraintLength",
     [](Tree &t, Session *s) -> int64_t { return tavDBMGetConstraintLength(s, t.at("ranged")); },
     "component 1 read 1/40; value 1 read 1/28; constraint 1 read 1/8"},
    {"GetConstraintType", "tavDBMGetConstraintType",
     [](Tree &t, Session *s) -> int64_t { return tavDBMGetConstraintType(s, t.at("ranged")); },
     "component 1 read 1/40; value 1 read 1/28; constraint 1 read 1/8"},
    {"Lock", "tavDBMLock",
     [](Tree &t, Session *s) -> int64_t { return lockLeaf(t, s); },
     ""},
    {"Unlock", "tavDBMUnlock",
     [](Tree &t, Session *s) -> int64_t { return tavDBMUnlock(s, t.at("leaf")); },
     "", lockLeaf},
    {"Sync", "tavDBMSync",
     [](Tree &, Session *s) -> int64_t { return tavDBMSync(s, kDataMedia, 0); },
     "data 1 sync 1"},
    {"DeleteString", "tavDBMDeleteString",
     [](Tree &t, Session *s) -> int64_t { return tavDBMDeleteString(s, t.string); },
     "string 5 read 3/28 written 2/12"},
    {"FactoryToDefaultOfANode", "tavDBMFactoryToDefault",
     [](Tree &t, Session *s) -> int64_t { return tavDBMFactoryToDefault(s, t.at("n")); },
     "component 8 read 8/228; value 8 read 8/224; data 4 read 2/8 written 2/8"},
    {"DefaultToCurrentOfANode", "tavDBMDefaultToCurrent",
     [](Tree &t, Session *s) -> int64_t { return tavDBMDefaultToCurrent(s, t.at("n")); },
     "component 8 read 8/228; value 8 read 8/224; data 4 read 2/8 written 2/8"},
    {"CurrentToDefaultOfANode", "tavDBMCurrentToDefault",
     [](Tree &t, Session *s) -> int64_t { return tavDBMCurrentToDefault(s, t.at("n")); },
     "component 8 read 8/228; value 8 read 8/224; data 4 read 2/8 written 2/8"},
    {"CreateLeafBehindTwoFreeBlocksTooSmall", "tavDBMCreateLeaf",
     [](Tree &t, Session *s) -> int64_t { return tavDBMCreateLeaf(s, 0, t.at("p"), 0, 0, 0, 0, 0); },
     "component 9 read 5/56 written 4/80", freeTwoNodes},
    {"CreateNodeInAFreeBlockOfItsSize", "tavDBMCreateNode",
     [](Tree &t, Session *s) -> int64_t { return tavDBMCreateNode(s, 0, t.at("p"), 0, 0); },
     "component 6 read 3/40 written 3/60", freeTwoNodes},
    {"DeleteComponentBehindTwoFreeBlocks", "tavDBMDeleteComponent",
     [](Tree &t, Session *s) -> int64_t { return tavDBMDeleteComponent(s, t.at("last")); },
     "component 19 read 15/300 written 4/64", freeTwoNodes},
    {"DeleteComponentBetweenTwoFreeBlocks", "tavDBMDeleteComponent",
     [](Tree &t, Session *s) -> int64_t { return tavDBMDeleteComponent(s, t.at("f")); },
     "component 15 read 12/244 written 3/60", freeTwoNodes},
    {"DeleteComponentInFrontOfTwoFreeBlocks", "tavDBMDeleteComponent",
     [](Tree &t, Session *s) -> int64_t { return tavDBMDeleteComponent(s, t.at("listed")); },
     "component 14 read 10/212 written 4/64", freeTwoNodes},
    {"MoveLeafToTheFront", "tavDBMMoveLeaf",
     [](Tree &t, Session *s) -> int64_t { return tavDBMMoveLeaf(s, t.at("y"), t.at("n"), 0); },
     "component 9 read 5/144 written 4/120"},
    {"TraverseAndPrintOfTheWholeTree", "tavDBMtraverseAndPrint",
     [](Tree &, Session *s) -> int64_t { tavDBMtraverseAndPrint(s, 0); return 0; },
     "component 45 read 45/1252"},
};
// clang-format on

/// What the functions with a counter cost, called as countedFunctions() does.
struct CountedCost {
    const char *function;
    const char *accesses;
};
constexpr CountedCost kCountedCosts[] = {
    {"CurrentToDefault", "component 2 read 2/64; value 4 read 4/112; data 2 read 1/8 written 1/8"},
    {"FactoryToDefault", "component 2 read 2/64; value 4 read 4/112; data 2 read 1/8 written 1/8"},
    {"DefaultToCurrent", "component 2 read 2/64; value 4 read 4/112; data 2 read 1/8 written 1/8"},
    {"GetRoot", "component 1 read 1/16"},
    {"GetParent", "component 1 read 1/24"},
    {"GetFirstChild", "component 2 read 2/52"},
    {"GetNextChild", "component 1 read 1/24"},
    {"GetChildCount", "component 4 read 4/100"},
    {"GetChildByIndex", "component 3 read 3/76"},
    {"GetString", "component 1 read 1/40; value 1 read 1/28; data 1 read 1/4"},
    {"SetString", "component 1 read 1/40; value 1 read 1/28; data 1 written 1/2"},
    {"GetSint8", "component 1 read 1/40; value 1 read 1/28; data 1 read 1/1"},
    {"GetSint16", "component 1 read 1/40; value 1 read 1/28; data 1 read 1/2"},
    {"GetSint32", "component 1 read 1/40; value 1 read 1/28; data 1 read 1/4"},
    {"GetSint64", "component 1 read 1/40; value 1 read 1/28; data 1 read 1/8"},
    {"GetUint8", "component 1 read 1/40; value 1 read 1/28; data 1 read 1/1"},
    {"GetUint16", "component 1 read 1/40; value 1 read 1/28; data 1 read 1/2"},
    {"GetUint32", "component 1 read 1/40; value 1 read 1/28; data 1 read 1/4"},
    {"GetUint64", "component 1 read 1/40; value 1 read 1/28; data 1 read 1/8"},
    {"GetFloat32", "component 1 read 1/40; value 1 read 1/28; data 1 read 1/4"},
    {"GetFloat64", "component 1 read 1/40; value 1 read 1/28; data 1 read 1/8"},
    {"SetSint8", "component 1 read 1/40; value 1 read 1/28; data 1 written 1/1"},
    {"SetSint16", "component 1 read 1/40; value 1 read 1/28; data 1 written 1/2"},
    {"SetSint32", "component 1 read 1/40; value 1 read 1/28; data 1 written 1/4"},
    {"SetSint64", "component 1 read 1/40; value 1 read 1/28; data 1 written 1/8"},
    {"SetUint8", "component 1 read 1/40; value 1 read 1/28; data 1 written 1/1"},
    {"SetUint16", "component 1 read 1/40; value 1 read 1/28; data 1 written 1/2"},
    {"SetUint32", "component 1 read 1/40; value 1 read 1/28; data 1 written 1/4"},
    {"SetUint64", "component 1 read 1/40; value 1 read 1/28; data 1 written 1/8"},
    {"SetFloat32", "component 1 read 1/40; value 1 read 1/28; data 1 written 1/4"},
    {"SetFloat64", "component 1 read 1/40; value 1 read 1/28; data 1 written 1/8"},
    {"CreateString", "string 6 read 2/12 written 3/28; text 1 written 1/5 seek 1"},
    {"CreateValue", "value 5 read 2/12 written 3/40; data 1 written 1/3 seek 1"},
    {"CreateLeaf", "component 7 read 3/36 written 4/76"},
    {"CreateNode", "component 9 read 4/60 written 5/88"},
    {"MoveLeaf", "component 10 read 6/164 written 4/116"},
    {"MoveNode", "component 17 read 12/304 written 5/128"},
    {"MoveSubTree", "component 6 read 3/80 written 3/80"},
    {"GetCurrentValueKey", "component 1 read 1/40"},
    {"GetDefaultValueKey", "component 1 read 1/40"},
    {"GetFactoryValueKey", "component 1 read 1/40"},
    {"SetCurrentValueKey", "component 2 read 1/40 written 1/40"},
    {"SetDefaultValueKey", "component 2 read 1/40 written 1/40"},
    {"SetFactoryValueKey", "component 2 read 1/40 written 1/40"},
    {"GetConstraintKey", "value 1 read 1/28"},
    {"SetConstraintKey", "value 2 read 1/28 written 1/28"},
    {"GetStringKey", "component 1 read 1/24"},
    {"SetStringKey", "component 2 read 1/24 written 1/24"},
    {"DeleteComponent", "component 17 read 13/292 written 4/64"},
    {"DeleteComponentWithSub", "component 27 read 20/404 written 7/64"},
    {"DeleteValue", "value 5 read 3/40 written 2/12"},
    {"traverseAndPrint", "component 8 read 8/228"},
};

class AccessCounts : public KnownTree {
protected:
    void SetUp() override {
        TreeFixture::SetUp();
        prepare();
    }
    /// Counts what a call does; the tree print goes nowhere.
    template <typename Call>
    std::string costOf(Call call) {
        clearTraces();
        session.errorCode = 0;
        testing::internal::CaptureStdout();
        call();
        testing::internal::GetCapturedStdout();
        const std::string text = accessText();
        EXPECT_EQ(session.errorCode, 0U) << "the call failed, so this is not what it costs";
        return text;
    }
};

class AccessCountTest : public AccessCounts, public testing::WithParamInterface<Cost> {};

INSTANTIATE_TEST_SUITE_P(All, AccessCountTest, testing::ValuesIn(kCosts), kRowName);

TEST_P(AccessCountTest, IsExact) {
    if (GetParam().before != nullptr)
        GetParam().before(*this, &session);
    EXPECT_EQ(costOf([this] { GetParam().call(*this, &session); }), GetParam().accesses);
}

class CountedAccessCountTest : public AccessCounts, public testing::WithParamInterface<CountedFunction> {};

INSTANTIATE_TEST_SUITE_P(All, CountedAccessCountTest,
                         testing::ValuesIn(countedFunctions().begin(), countedFunctions().end()), kRowName);

TEST_P(CountedAccessCountTest, IsExact) {
    const std::string name = GetParam().name;
    const auto *const cost = std::find_if(std::begin(kCountedCosts), std::end(kCountedCosts),
                                          [&](const CountedCost &row) { return row.function == name; });
    const std::string found = costOf([this] { GetParam().call(arguments); });
    ASSERT_NE(cost, std::end(kCountedCosts)) << "what " << name << " costs is not written down: " << found;
    EXPECT_EQ(found, cost->accesses);
}

TEST(AccessCountTable, HoldsEveryFunctionOfTheApplicationInterface) {
    std::set<std::string> counted;
    for (const Cost &row : kCosts)
        counted.insert(row.function);
    for (const CountedCost &row : kCountedCosts)
        counted.insert(std::string("tavDBM") + row.function);
    std::ifstream file(TAVDB_TEST_SOURCE "/src/tavdb.map");
    std::set<std::string> exported;
    std::smatch match;
    for (std::string line; std::getline(file, line);) {
        if (std::regex_match(line, match, std::regex(" +(tavDBM\\w+);")))
            exported.insert(match[1]);
    }
    EXPECT_GT(exported.size(), 70U);
    EXPECT_EQ(counted, exported);
}

}  // namespace
}  // namespace tavdb_test
