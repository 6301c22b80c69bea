// SPDX-License-Identifier: Apache-2.0
#include "faults/fault_world.h"

#include <fstream>

#include "constraint/db_value_types.h"
#include "file_content.h"

namespace tavdb_test {

namespace {

constexpr uint32_t kConstraintsAt = 8000;  // behind everything that a call takes from the free list

constexpr uint32_t kPieces[] = {8, 30, 16};
constexpr uint32_t kGap = 10;  // so that no two blocks touch

void putBlock(const std::string &hint, uint32_t at, uint32_t next, uint32_t size) {
    fakeMedia().setRecordAt(hint, at, tavDBMFreeBlock{next, size});
}

/// Cuts the first free block into pieces that fit badly; the last one is the rest.
void breakFirstBlock(const std::string &hint) {
    uint32_t at = fakeMedia().recordAt<tavDBMMediumHeader>(hint, 0).firstFree;
    const uint32_t end = at + fakeMedia().recordAt<tavDBMFreeBlock>(hint, at).size;
    for (const uint32_t size : kPieces) {
        const uint32_t next = at + size + kGap;
        putBlock(hint, at, next, size);
        at = next;
    }
    putBlock(hint, at, 0, end - at);
}

template <typename T>
void putRangeOf(uint32_t key) {
    typename tavdb::ValueType<T>::Range range{};
    range.key = key;
    range.type = tavdb::ValueType<T>::code;
    range.minimum = T{0};
    range.maximum = T{10};
    range.step = T{1};
    fakeMedia().setRecordAt(kConstraints, key, range);
}

template <typename T>
void putEnumerationOf(uint32_t key, uint32_t array) {
    fakeMedia().setRecordAt(kConstraints, key,
                            tavDBMEnumeration{.key = key,
                                              .type = tavdb::ValueType<T>::enumerationCode,
                                              .arrayKey = array,
                                              .elementSize = tavdb::ValueType<T>::width,
                                              .elementCount = 3});
    const T elements[] = {7, 1, 3};
    fakeMedia().setRecordAt(kConstraints, array, elements);
}

}  // namespace

void FaultWorld::makeWorld(WorldForm form) {
    world = {};
    world.form = form;
    world.description = &description;
    world.session = &session;
    world.root = root;
    world.listFile = file("list.bin");
    world.mediaPath = description.mediaPath;
    putConstraints();
    putValues();
    putComponents();
    makeListFile();
    writeListFile();
    misc_getSems(&world.semaphores, world.listFile.c_str());
    lockAsTheFormHas();
    if (form == WorldForm::plain)
        return;
    fakeHooks().putReady(kWorldHook);
    breakFreeLists();
}

void FaultWorld::putConstraints() {
    uint32_t at = kConstraintsAt;
    size_t i = 0;
#define TAVDB_PUT_CONSTRAINTS(suffix, apiSuffix, type) \
    world.ranges[i] = at;                              \
    putRangeOf<type>(at);                              \
    world.enumerations[i] = at + 40;                   \
    putEnumerationOf<type>(at + 40, at + 80);          \
    at += 120;                                         \
    i += 1;
    TAVDB_VALUE_TYPES(TAVDB_PUT_CONSTRAINTS)
#undef TAVDB_PUT_CONSTRAINTS
    world.array = kConstraintsAt + 80;
}

void FaultWorld::putValues() {
    constexpr size_t kU64 = 7;
    const bool isPlain = world.form == WorldForm::plain;
    const uint64_t number = 1;
    world.value = putValue(bytesOf(number), TAVDB_TYPE_U64, isPlain ? 0 : world.ranges[kU64]);
    world.otherValue = putValue(bytesOf(number), TAVDB_TYPE_U64, isPlain ? 0 : world.enumerations[kU64]);
    world.string = putString("a text");
}

void FaultWorld::putComponents() {
    const LeafKeys keys = {.currentValue = world.value,
                           .defaultValue = world.otherValue,
                           .factoryValue = world.value,
                           .hookId = world.form == WorldForm::plain ? 0 : kWorldHook};
    const bool isPlain = world.form == WorldForm::plain;
    world.witness = putLeaf("witness", root, {.currentValue = putValue(bytesOf(kWitnessNumber), TAVDB_TYPE_U32)});
    world.parent = putNode("parent", root);
    world.previous = putLeaf("previous", world.parent);
    world.child = putNode("child", world.parent);
    if (!isPlain)
        world.leaf = putLeaf("leaf", root, keys);  // in front of the node
    world.node = putNode("node", root);
    const uint32_t first = putLeaf("first", world.node, keys);
    const uint32_t inner = putNode("inner", world.node);
    if (isPlain)
        world.leaf = putLeaf("leaf", world.node, keys);
    nameIt(root, "/");
    nameIt(world.node, "node/");
    nameIt(first, "first");
    nameIt(inner, "inner/");
    nameIt(world.witness, "witness");
    nameIt(world.parent, "parent/");
    nameIt(world.leaf, "leaf");
}

void FaultWorld::breakFreeLists() const {
    for (const char *const hint : {kComponents, kValues, kConstraints, kStrings})
        breakFirstBlock(hint);
}

void FaultWorld::lockAsTheFormHas() {
    lock_compUnlockAll();
    if (world.form == WorldForm::plain)
        return;
    lock_compLock(&session, world.leaf, TAVDB_LOCK_TRY | TAVDB_LOCK_SHARED);
    lock_compLock(&session, world.node, TAVDB_LOCK_TRY);
}

void FaultWorld::makeListFile() {
    constexpr uint32_t kFileSize = 1024;
    fakeMedia().createForRecords("list.bin", kFileSize);
    if (world.form == WorldForm::crowded)
        breakFirstBlock("list.bin");
    listBytes_ = fakeMedia().snapshot("list.bin");
    fakeMedia().remove("list.bin");
}

void FaultWorld::writeListFile() const {
    if (readListFile() == listBytes_)
        return;  // writing a file anew costs more than anything else here
    std::ofstream(world.listFile, std::ios::binary)
        .write(reinterpret_cast<const char *>(listBytes_.data()), static_cast<std::streamsize>(listBytes_.size()));
}

Bytes FaultWorld::readListFile() const {
    return contentOf<Bytes>(world.listFile);
}

}  // namespace tavdb_test
