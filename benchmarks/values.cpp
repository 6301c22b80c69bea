// SPDX-License-Identifier: Apache-2.0
// Reads and writes of values, in the order of no tree: each next one is another
// setting. The floor goes through the same records in the same order.
#include <cstring>
#include <memory>

#include "floor.h"
#include "workloads.h"

namespace tavdb_benchmark {

namespace {

template <auto Get, typename T>
void addRead(Device &device, Kind kind, const char *what) {
    addFor(device.directory(), nameOf(what, device.directory().media(), device.directory().settings()),
           [&device, kind](auto &state) {
               Round<uint32_t> leaves(device.leaves(kind));
               T value = {};
               measure(state, [&] { return Get(device.session(), leaves.next(), &value) == TAVDB_OK; });
               benchmark::DoNotOptimize(value);
           });
}

template <auto Set, typename T>
void addWrite(Device &device, Kind kind, const char *what) {
    addFor(device.directory(), nameOf(what, device.directory().media(), device.directory().settings()),
           [&device, kind](auto &state) {
               Round<uint32_t> leaves(device.leaves(kind));
               uint32_t number = 0;
               measure(state, [&] {
                   number = (number + 1) % 200;
                   return Set(device.session(), leaves.next(), static_cast<T>(number)) == TAVDB_OK;
               });
           });
}

void addTexts(Device &device) {
    const std::string &media = device.directory().media();
    const uint32_t settings = device.directory().settings();
    addFor(device.directory(), nameOf("read text", media, settings), [&device](auto &state) {
        Round<uint32_t> leaves(device.leaves(Kind::text));
        char text[kTextBytes];
        measure(state, [&] { return tavDBMGetString(device.session(), leaves.next(), text, kTextBytes) == TAVDB_OK; });
    });
    addFor(device.directory(), nameOf("write text", media, settings), [&device](auto &state) {
        Round<uint32_t> leaves(device.leaves(Kind::text));
        const std::string text(kTextBytes - 1, 'x');
        measure(state, [&] { return tavDBMSetString(device.session(), leaves.next(), text.c_str()) == TAVDB_OK; });
    });
}

/// The same setting again and again: everything is in the processor's caches.
void addOne(Device &device) {
    const std::string &media = device.directory().media();
    const uint32_t settings = device.directory().settings();
    addFor(device.directory(), nameOf("read one u32", media, settings), [&device](auto &state) {
        const uint32_t leaf = device.leaf(static_cast<uint32_t>(Kind::u32));
        uint32_t value = 0;
        measure(state, [&] { return tavDBMGetUint32(device.session(), leaf, &value) == TAVDB_OK; });
    });
    addFor(device.directory(), nameOf("write one u32", media, settings), [&device](auto &state) {
        const uint32_t leaf = device.leaf(static_cast<uint32_t>(Kind::u32));
        measure(state, [&] { return tavDBMSetUint32(device.session(), leaf, 1492) == TAVDB_OK; });
    });
}

using MakeFloor = std::unique_ptr<Floor> (*)(const Directory &);

void addFloorOf(Device &device, MakeFloor make, const char *prefix, bool isOne) {
    const std::string who = device.directory().media() + " floor";
    const uint32_t settings = device.directory().settings();
    const auto leaves = [&device, isOne] {
        auto all = device.leaves(Kind::u32);
        all.resize(isOne ? 1 : all.size());
        return Round<uint32_t>(std::move(all));
    };
    addFor(device.directory(), nameOf(std::string("read ") + prefix, who, settings),
           [&device, make, leaves](auto &state) {
               const auto floor = make(device.directory());
               auto round = leaves();
               uint32_t value = 0;
               measure(state, [&] {
                   floor->read(round.next(), &value, sizeof value);
                   return true;
               });
               benchmark::DoNotOptimize(value);
           });
    addFor(device.directory(), nameOf(std::string("write ") + prefix, who, settings),
           [&device, make, leaves](auto &state) {
               const auto floor = make(device.directory());
               auto round = leaves();
               const uint32_t value = 1492;
               measure(state, [&] {
                   floor->write(round.next(), &value, sizeof value);
                   return true;
               });
           });
}

MakeFloor floorOf(const std::string &media) {
    if (media == "memory")
        return memoryFloor;
    return media == "file" ? fileFloor : messageFloor;
}

}  // namespace

void addValues(Device &device) {
    addRead<tavDBMGetUint8, uint8_t>(device, Kind::u8, "read u8");
    addRead<tavDBMGetUint32, uint32_t>(device, Kind::u32, "read u32");
    addRead<tavDBMGetUint64, uint64_t>(device, Kind::u64, "read u64");
    addRead<tavDBMGetFloat64, double>(device, Kind::f64, "read f64");
    addWrite<tavDBMSetUint8, uint8_t>(device, Kind::u8, "write u8");
    addWrite<tavDBMSetUint32, uint32_t>(device, Kind::u32, "write u32");
    addWrite<tavDBMSetUint64, uint64_t>(device, Kind::u64, "write u64");
    addWrite<tavDBMSetFloat64, double>(device, Kind::f64, "write f64");
    addTexts(device);
    addOne(device);
    if (device.directory().media() == "counted")
        return;
    const MakeFloor make = floorOf(device.directory().media());
    addFloorOf(device, make, "u32", false);
    addFloorOf(device, make, "one u32", true);
}

}  // namespace tavdb_benchmark
