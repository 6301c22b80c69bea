// SPDX-License-Identifier: Apache-2.0
// A move whose writes fail one after the other: the tree is the old one or the new
// one, never anything between.
#include "image/tree_edit.h"

#include <dlfcn.h>

#include <cerrno>

#include "tools/image/attached.h"
#include "tools/test_place.h"

namespace {

/// Writes left until one fails; none fails below 0.
int writesUntilFailure = -1;

bool failsNow() {
    return writesUntilFailure >= 0 && writesUntilFailure-- == 0;
}

template <typename Function>
Function *next(const char *name) {
    return reinterpret_cast<Function *>(dlsym(RTLD_NEXT, name));
}

}  // namespace

// What a program defines goes before the library's own.
int32_t comp_setComponent(tavDBMSession *session, const void *record) {
    if (failsNow())
        return session_setError(session, TAVDB_ERR_COMPONENT_WRITE, EIO);
    return next<decltype(comp_setComponent)>("comp_setComponent")(session, record);
}

int32_t comp_setNextSibling(tavDBMSession *session, uint32_t key, uint32_t sibling) {
    if (failsNow())
        return session_setError(session, TAVDB_ERR_COMPONENT_WRITE, EIO);
    return next<decltype(comp_setNextSibling)>("comp_setNextSibling")(session, key, sibling);
}

int32_t comp_setFirstChild(tavDBMSession *session, uint32_t key, uint32_t child) {
    if (failsNow())
        return session_setError(session, TAVDB_ERR_COMPONENT_WRITE, EIO);
    return next<decltype(comp_setFirstChild)>("comp_setFirstChild")(session, key, child);
}

namespace tavdb::image {
namespace {

const char *const kTree =
    "a:\n"
    "  one: {type: u8}\n"
    "  two: {type: u8}\n"
    "b:\n"
    "  x: {type: u8}\n";

class TreeEdit : public testing::Test {
protected:
    void SetUp() override {
        buildText(kTree, place / "db");
        auto attached = Database::attach(*openDirectory(place / "db").value->description);
        ASSERT_TRUE(attached) << attached.error.sentence;
        database = std::move(*attached.value);
    }
    std::string children(const std::string &path) {
        std::string text;
        const auto node = locate(*database, path);
        Visited visited;
        const auto fault = forEachChild(*database, node.value->component, visited, [&](const StoredComponent &child) {
            EXPECT_EQ(child.parent, node.value->component.key);
            text += child.name + " ";
            return true;
        });
        EXPECT_FALSE(fault);
        return text;
    }
    std::string shape() {
        return children("/a") + "| " + children("/b");
    }

    tavdb_test::TestPlace place;
    std::unique_ptr<Database> database;
};

TEST_F(TreeEdit, FailedWritesAreTakenBack) {
    bool isMoved = false;
    int failures = 0;
    for (int k = 0; !isMoved; k++) {
        ASSERT_LT(k, 20);
        const auto leaf = locate(*database, "/a/one");
        const auto from = placeOf(*database, *leaf.value);
        ASSERT_TRUE(from);
        const auto target = locate(*database, "/b");
        const auto sibling = locate(*database, "/b/x");
        const Move move{leaf.value->component.key,
                        *from.value,
                        {target.value->component.key, sibling.value->component.key, 0},
                        leaf.value->component.nameKey};
        writesUntilFailure = k;
        const auto fault = moveComponent(*database, move);
        const bool wasUntouched = writesUntilFailure >= 0;
        writesUntilFailure = -1;
        isMoved = !fault;
        EXPECT_EQ(isMoved, wasUntouched);
        EXPECT_EQ(shape(), isMoved ? "two | x one " : "one two | x ") << "write " << k;
        failures += fault ? 1 : 0;
    }
    EXPECT_EQ(failures, 3) << "unlinking, the record, and linking";
}

TEST_F(TreeEdit, PlacesOfFirstAndLastChild) {
    const auto first = locate(*database, "/a/one");
    const auto last = locate(*database, "/a/two");
    const auto parent = locate(*database, "/a");
    EXPECT_EQ(*placeOf(*database, *first.value).value,
              (Place{parent.value->component.key, 0, last.value->component.key}));
    EXPECT_EQ(*placeOf(*database, *last.value).value,
              (Place{parent.value->component.key, first.value->component.key, 0}));
}

}  // namespace
}  // namespace tavdb::image
