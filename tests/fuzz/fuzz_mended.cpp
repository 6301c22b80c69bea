// SPDX-License-Identifier: Apache-2.0
#include "fuzz/fuzz_mended.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>

#include "fuzz/fuzz_database.h"
#include "image/media_image.h"
#include "image/record_map.h"

namespace tavdb_fuzz {

using namespace tavdb::image;

namespace {

void expectMapped(const RawImages &images) {
    const auto map = mapRecords(images);
    if (!map.faults.empty())
        fail("the record map: " + tavdb::image::faultOf(map.faults[0]).sentence);
    for (const auto &medium : kMediumNames)
        for (const auto &gap : unclaimedRanges(images, map, medium.id))
            if (medium.holdsRecords && gap.sizeBytes >= sizeof(tavDBMFreeBlock))
                fail(std::string(medium.kind) + ": nobody's bytes at " + std::to_string(gap.offset));
}

void expectNoError(const tavDBMSession &from, const std::string &what, uint32_t key) {
    if (from.errorCode != 0)
        fail("the library reads " + what + " " + std::to_string(key) + " with error " + std::to_string(from.errorCode));
}

void readValue(uint32_t key) {
    auto &reader = session();
    int32_t length = value_getLength(&reader, key);
    const int32_t expected = length;
    if (length < 0)
        fail("the library finds no length at value " + std::to_string(key));
    Bytes bytes(static_cast<size_t>(length) + 1);  // never none: a value may be empty
    if (value_getGeneric(&reader, key, bytes.data(), &length) != 0 || length != expected)
        fail("the library does not read value " + std::to_string(key));
    expectNoError(reader, "value", key);
}

void readName(uint32_t component) {
    auto &reader = session();
    const uint32_t key = tavDBMGetStringKey(&reader, component);
    char text[65536];
    if (key != 0 && tavdb_getString(&reader, key, text, sizeof text) == nullptr)
        fail("the library does not read the name of " + std::to_string(component));
    expectNoError(reader, "the name of", component);
}

void readLeaf(uint32_t key) {
    tavDBMLeaf leaf = {};
    if (comp_getLeaf(&session(), key, &leaf) == nullptr)
        fail("the library does not read leaf " + std::to_string(key));
    for (const uint32_t value : {leaf.currentValue, leaf.defaultValue, leaf.factoryValue})
        if (value != 0)
            readValue(value);
}

/// @return whether it may have children
bool readComponent(uint32_t key) {
    tavDBMComponent header = {};
    if (comp_getComponent(&session(), key, &header) == nullptr)
        fail("the library does not read component " + std::to_string(key));
    readName(key);
    if (header.kind == TAVDB_KIND_LEAF)
        readLeaf(key);
    return header.kind == TAVDB_KIND_NODE;
}

/// Every link, every name and every value.
void readThroughLibrary(const RawImages &images, size_t components) {
    for (const auto &medium : kMediumNames)
        putImage(medium.id, images.content(medium.id));
    std::vector<uint32_t> keys = {tavDBMGetRoot(&session())};
    for (size_t i = 0; i < keys.size() && keys.size() <= components; ++i) {
        if (!readComponent(keys[i]))
            continue;
        auto &reader = session();
        for (uint32_t child = tavDBMGetFirstChild(&reader, keys[i]); child != 0 && keys.size() <= components;
             child = tavDBMGetNextChild(&reader, child)) {
            if (tavDBMGetParent(&reader, child) != keys[i])
                fail("the library finds another parent of " + std::to_string(child));
            keys.push_back(child);
        }
        expectNoError(reader, "the children of", keys[i]);
    }
    if (keys.size() != components)
        fail("the library finds " + std::to_string(keys.size()) + " components of " + std::to_string(components));
}

}  // namespace

void fail(const std::string &sentence, const std::vector<Finding> &findings) {
    std::fprintf(stderr, "%s\n", sentence.c_str());
    for (const auto &finding : findings)
        std::fprintf(stderr, "  %s\n", formatFinding(finding).c_str());
    std::abort();
}

bool mayStay(const Finding &finding) {
    return finding.gravity == Gravity::oddity && finding.remedy == "it stays as it is";
}

void expectMended(const RawImages &images) {
    const auto again = examine(images);
    if (!std::all_of(again.findings.begin(), again.findings.end(), mayStay))
        fail("found again after a repair:", again.findings);
    if (!again.images.equals(images))
        fail("a second repair changes something", again.findings);
    expectMapped(images);
    constexpr size_t kRoot = 1;
    if (images.order() == nativeOrder())
        readThroughLibrary(images, again.counts.nodes + again.counts.leaves + kRoot);
}

}  // namespace tavdb_fuzz
