// SPDX-License-Identifier: Apache-2.0
// What an application does with the tree as a whole.
#include "workloads.h"

namespace tavdb_benchmark {

namespace {

constexpr int32_t kDataMedium = 5;

/// Visits everything below a node and reads the value of every leaf. @return the leaves that were read
uint32_t readAll(tavDBMSession *session, uint32_t node) {
    uint32_t count = 0;
    for (uint32_t at = tavDBMGetFirstChild(session, node); at != 0; at = tavDBMGetNextChild(session, at)) {
        char value[kTextBytes];
        int32_t length = sizeof value;
        const uint32_t child = tavDBMGetFirstChild(session, at);
        if (child != 0)
            count += readAll(session, at);
        else if (tavDBMGetGeneric(session, at, value, &length) == TAVDB_OK)
            ++count;
    }
    return count;
}

void addFind(Device &device) {
    const Directory &directory = device.directory();
    add(nameOf("find by name", directory.media(), directory.settings()), [&device, &directory](auto &state) {
        std::vector<std::string> paths;
        for (const uint32_t i : shuffled(directory.settings(), Kind::u32))
            paths.push_back(pathOf(i));
        Round<std::string> round(std::move(paths));
        uint32_t value = 0;
        measure(state, [&] {
            const uint32_t leaf = tavDBMSearchByName(device.session(), round.next().c_str());
            return tavDBMGetUint32(device.session(), leaf, &value) == TAVDB_OK;
        });
    });
}

/// A leaf with a value of its own: what a program does for a new entry of a list.
bool makeAndDelete(tavDBMSession *session, uint32_t group) {
    const uint32_t number = 4711;
    const uint32_t value = tavDBMCreateValue(session, TAVDB_TYPE_U32, 0, &number, sizeof number, kDataMedium);
    const uint32_t leaf = tavDBMCreateLeaf(session, 0, group, 0, value, value, value, 0);
    return value != 0 && leaf != 0 && tavDBMDeleteComponent(session, leaf) == TAVDB_OK &&
           tavDBMDeleteValue(session, value) == TAVDB_OK;
}

}  // namespace

void addTree(Device &device) {
    const std::string &media = device.directory().media();
    const uint32_t settings = device.directory().settings();
    addFind(device);
    add(nameOf("walk and read all", media, settings), [&device, settings](auto &state) {
        const uint32_t root = tavDBMGetRoot(device.session());
        measure(state, [&] { return readAll(device.session(), root) == settings; });
    })->Repetitions(kFewRounds);
    add(nameOf("factory reset of all", media, settings), [&device](auto &state) {
        const uint32_t root = tavDBMGetRoot(device.session());
        measure(state, [&] {
            return tavDBMFactoryToDefault(device.session(), root) == TAVDB_OK &&
                   tavDBMDefaultToCurrent(device.session(), root) == TAVDB_OK;
        });
    })->Repetitions(kFewRounds);
    add(nameOf("make and delete", media, settings), [&device](auto &state) {
        const uint32_t group = tavDBMGetParent(device.session(), device.leaf(0));
        measure(state, [&] { return makeAndDelete(device.session(), group); });
    });
}

void addSync(Device &device) {
    addWaiting(nameOf("write and sync", device.directory().media(), device.directory().settings()),
               [&device](auto &state) {
                   const uint32_t leaf = device.leaf(static_cast<uint32_t>(Kind::u32));
                   uint32_t number = 0;
                   measure(state, [&] {
                       number = (number + 1) % kU32Max;
                       return tavDBMSetUint32(device.session(), leaf, number) == TAVDB_OK &&
                              tavDBMSync(device.session(), kDataMedium, 0) == TAVDB_OK;
                   });
               });
}

}  // namespace tavdb_benchmark
