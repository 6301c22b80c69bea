// SPDX-License-Identifier: Apache-2.0
// An attached database whose records a test puts onto the media itself, past
// the library, and reads back the same way: trees written and shown as one line
// of text, values, texts and ranges. Not for tests of attaching.
#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <concepts>
#include <cstdint>
#include <functional>
#include <map>
#include <ostream>
#include <string>
#include <vector>

#include "fakes/byte_text.h"
#include "fakes/database_fixture.h"
#include "fakes/event_log.h"
#include "fakes/fake_hooks.h"
#include "fakes/fake_media.h"
#include "fakes/fake_memory.h"
#include "fakes/fake_trace.h"
#include "fakes/fault_plan.h"
#include "fakes/fault_runs.h"
#include "tavdb_modules.h"

namespace tavdb_test {

/// @name Hints of the media
/// @{
inline constexpr const char *kComponents = kMediaHints[kComponentMedia - 1];
inline constexpr const char *kValues = kMediaHints[kValueMedia - 1];
inline constexpr const char *kConstraints = kMediaHints[kConstraintMedia - 1];
inline constexpr const char *kStrings = kMediaHints[kStringMedia - 1];
inline constexpr const char *kData = kMediaHints[kDataMedia - 1];
inline constexpr const char *kTexts = kMediaHints[kTextMedia - 1];
/// @}

inline constexpr uint32_t kMinusOne = 0xFFFFFFFF;
/// A database id that nothing is open under.
inline constexpr uint32_t kNotOpenDb = 9;
/// An offset behind the end of every medium.
inline constexpr uint32_t kBeyond = 0x10000;

Bytes bytes(const std::string &text);
/// The bytes of a text with its NUL.
Bytes textBytes(const std::string &text);
std::string textOfBytes(const Bytes &content);

/// The media table as if no medium were configured, until the end of the scope.
class NoMedia {
public:
    NoMedia();
    ~NoMedia();
    NoMedia(const NoMedia &) = delete;
    NoMedia &operator=(const NoMedia &) = delete;

private:
    int32_t count_;
};

/// The row of a table of parametrised tests; its name shows which row a test runs with.
struct Named {
    const char *name;
};
template <std::derived_from<Named> Row>
std::ostream &operator<<(std::ostream &stream, const Row &row) {
    return stream << row.name;
}
inline constexpr auto kRowName = [](const auto &info) { return std::string(info.param.name); };

/// Value keys and hook of a leaf.
struct LeafKeys {
    uint32_t currentValue = 0;
    uint32_t defaultValue = 0;
    uint32_t factoryValue = 0;
    uint32_t hookId = 0;
};

class TreeFixture : public DatabaseFixture {
protected:
    void SetUp() override;

    /// @name Records put past the library
    /// @{
    /// Makes components below a node, behind its children: "a n(b m()) c" are leaf a, node n with leaf b
    /// and the empty node m, leaf c. Each can then be named by its label.
    void build(const std::string &text, uint32_t parent);
    void build(const std::string &text) {
        build(text, root);
    }
    /// As build(); every component also gets its label as its name.
    void buildNamed(const std::string &text);
    uint32_t putNode(const std::string &label, uint32_t parent);
    uint32_t putLeaf(const std::string &label, uint32_t parent, const LeafKeys &keys = {});
    uint32_t putValue(const Bytes &data, int32_t type = TAVDB_TYPE_U32, uint32_t constraintKey = 0);
    uint32_t putString(const std::string &text);
    uint32_t putRange(const tavDBMRangeS32 &range);
    /// Gives a component a name.
    void nameIt(uint32_t componentKey, const std::string &text);
    /// Overwrites the value keys and the hook of a leaf.
    void setKeys(uint32_t leafKey, const LeafKeys &keys);
    /// Gives every labelled component a reserved word of its own.
    void putReservedWords();
    /// @}

    uint32_t key(const std::string &label) const;
    void label(uint32_t componentKey, const std::string &text) {
        labels_[componentKey] = text;
    }

    /// @name Records read past the library
    /// @{
    /// The tree as build() takes it. A component met again in its chain or below itself is "^label" and ends
    /// that chain; one without a label is "?key".
    std::string shape(uint32_t nodeKey) const;
    std::string shape() const {
        return shape(root);
    }
    static tavDBMNode node(uint32_t componentKey);
    static tavDBMLeaf leaf(uint32_t componentKey);
    static tavDBMValue value(uint32_t valueKey);
    static Bytes dataOf(uint32_t valueKey);
    uint32_t parentOf(const std::string &text) const {
        return node(key(text)).component.parent;
    }
    /// The labels of the components that no longer have the reserved word that they were given.
    std::vector<std::string> changedReservedWords() const;
    /// The free blocks of a medium in the order of its list: "44+28 100+16284".
    static std::string freeBlocks(const std::string &hint);
    /// hexText() of the bytes at an offset.
    static std::string hexAt(const std::string &hint, uint32_t offset, uint32_t length);
    /// @}

    /// @name What the library did
    /// @{
    /// The transfers since the log was cleared, as "component read 28@16"; each must stand alone between its
    /// own open and close.
    static std::vector<std::string> transfers();
    /// The same without those of the file list.
    static std::vector<std::string> recordTransfers();
    static size_t accesses();
    /// The session holds that error.
    testing::AssertionResult recorded(uint32_t code, uint32_t detail = 0) const;
    /// Puts an error into the session that a success must leave alone.
    void putOldError();
    testing::AssertionResult oldErrorIsThere() const;
    void clearTraces();

    /// Lets every operation of a run fail in turn, transfers first with -1, then one byte short. Each run
    /// begins with the media as they are now and an empty session error, log and trace, and must give back
    /// memory and descriptors.
    void forEachFault(const std::function<void()> &run);
    /// @}

    uint32_t root = 0;

private:
    static uint32_t takeSlot(const std::string &hint, uint32_t size);
    uint32_t putComponent(const std::string &text, uint32_t parent, int32_t kind, const LeafKeys &keys);
    void showChain(uint32_t first, std::vector<uint32_t> &path, std::string &text) const;
    std::string labelOf(uint32_t componentKey) const;

    std::map<uint32_t, std::string> labels_;
    bool namesGiven_ = false;
};

}  // namespace tavdb_test
