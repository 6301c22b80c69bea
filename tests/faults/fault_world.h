// SPDX-License-Identifier: Apache-2.0
// What the calls of the fault matrix work on: a small database with one of every
// kind of record, built past the library, in two forms. In the plain one leaves
// have neither hooks nor constraints and each free list is one block; in the
// crowded one they have both, the free lists are in pieces and components are
// locked already.
#pragma once

#include <array>
#include <string>

#include "model/tree_fixture.h"

namespace tavdb_test {

enum class WorldForm : uint8_t { plain, crowded };

/// Keys of the records, and places for what a call makes.
struct World {
    WorldForm form = WorldForm::plain;
    const tavDBMDescription *description = nullptr;
    tavDBMSession *session = nullptr;
    uint32_t root = 0;
    uint32_t node = 0;      ///< with children
    uint32_t leaf = 0;      ///< with the three values
    uint32_t parent = 0;    ///< another node
    uint32_t previous = 0;  ///< its first child
    uint32_t child = 0;     ///< its second child
    uint32_t witness = 0;   ///< a leaf that no call is about
    uint32_t value = 0;     ///< the leaf's current one, 8 bytes
    uint32_t otherValue = 0;
    uint32_t string = 0;
    std::array<uint32_t, 10> ranges = {};
    std::array<uint32_t, 10> enumerations = {};
    uint32_t array = 0;    ///< of each enumeration: three elements of up to 8 bytes
    std::string listFile;  ///< a file with a free list
    std::string mediaPath;

    /// @name Left by a call for what follows it
    /// @{
    tavDBMSession other = {};
    tavDBMSemaphoreSet semaphores = {};
    tavDBMMediaEntry entry = {};
    int32_t descriptor = -1;
    void *block = nullptr;
    /// @}
};

inline constexpr uint32_t kWitnessNumber = 0xC0FFEE42;
inline constexpr uint32_t kWorldHook = 6;

class FaultWorld : public TreeFixture {
protected:
    void makeWorld(WorldForm form);
    /// The locks that the form has, and no others.
    void lockAsTheFormHas();
    /// The file with the free list as it was made.
    void writeListFile() const;
    Bytes readListFile() const;

    World world;

private:
    void putComponents();
    void putValues();
    void putConstraints();
    void breakFreeLists() const;
    void makeListFile();

    Bytes listBytes_;
};

}  // namespace tavdb_test
