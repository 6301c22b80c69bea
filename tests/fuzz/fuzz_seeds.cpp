// SPDX-License-Identifier: Apache-2.0
// Writes inputs for the fuzz targets to begin with: sound images of both byte orders
// with a short script behind them, and texts that are right.
//   fuzz_seeds FOLDER      one folder of it for each target
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include "fuzz/fuzz_images.h"

namespace {

namespace fs = std::filesystem;
using tavdb::image::ByteOrder;

constexpr uint32_t kRootKey = 16;

constexpr const char *kDataModel = R"(<?xml version="1.0"?>
<dm:document xmlns:dm="urn:broadband-forum-org:cwmp:datamodel-1-8" spec="urn:x">
 <model name="Device:2.0">
  <object name="Device." access="readOnly" minEntries="1" maxEntries="1">
   <parameter name="Mode" access="readWrite"><syntax><string>
    <enumeration value="Off"/><enumeration value="On"/></string><default type="factory" value="On"/></syntax></parameter>
   <parameter name="Size" access="readWrite"><syntax><unsignedInt>
    <range minInclusive="1" maxInclusive="9" step="2"/></unsignedInt></syntax></parameter>
  </object>
  <object name="Device.Port.{i}." access="readWrite" minEntries="0" maxEntries="unbounded">
   <parameter name="Enable" access="readWrite"><syntax><boolean/></syntax></parameter>
  </object>
 </model>
</dm:document>
)";

constexpr const char *kMediaConf =
    "# media\n"
    "libtavdbfile.so tavdbMemOpen tavdbMemClose tavdbMemRead tavdbMemWrite tavdbMemSeek "
    "tavdbMemSync1 a.med\n"
    "libtavdbfile.so tavdbFileOpenRom tavdbFileClose tavdbFileRead tavdbFileWrite "
    "tavdbFileSeek tavdbFileSync3 b.med # comment\n"
    "libtavdb.so.1 tavdbFileOpenHD tavdbFileClose tavdbFileRead tavdbFileWrite tavdbFileSeek tavdbFileSync1 c.med\n"
    "plugin.so a b c d e f hint\n\n";

void write(const fs::path &folder, const std::string &name, const std::string &content) {
    fs::create_directories(folder);
    std::ofstream file(folder / name, std::ios::binary);
    file << content;
    if (!file.flush()) {
        std::fprintf(stderr, "%s cannot be written\n", (folder / name).c_str());
        std::exit(1);
    }
}

std::string word16(size_t value) {
    const auto word = static_cast<uint16_t>(value);
    return {reinterpret_cast<const char *>(&word), sizeof word};
}

/// The front of an image: the records, and some of what is free behind them.
std::string section(const std::string &content, size_t most = 2000) {
    const std::string part = content.substr(0, most);
    return word16(part.size()) + part;
}

/// So many functions of a script once each, about one record; the second word is the root's key and a length.
std::string script(uint32_t key, size_t first, size_t functions) {
    std::string steps;
    for (size_t i = first; i < first + functions; ++i)
        steps += static_cast<char>(i) + word16(key) + word16(kRootKey) + word16(0);
    return steps;
}

uint32_t wordAt(const std::string &image, size_t offset, ByteOrder order) {
    uint32_t word = 0;
    memcpy(&word, image.data() + offset, sizeof word);
    return order == tavdb::image::nativeOrder() ? word : __builtin_bswap32(word);
}

/// The keys of the components, which stand one behind the other.
std::vector<uint32_t> keysOf(const std::string &components, ByteOrder order) {
    constexpr size_t kKind = 20;
    constexpr uint32_t kNodeBytes = 28;
    constexpr uint32_t kLeafBytes = 40;
    std::vector<uint32_t> keys;
    for (uint32_t at = kRootKey; at + kLeafBytes <= components.size() && wordAt(components, at, order) == at;
         at += wordAt(components, at + kKind, order) == 0 ? kNodeBytes : kLeafBytes)
        keys.push_back(at);
    return keys;
}

std::vector<std::string> imagesOf(ByteOrder order, const fs::path &place) {
    const fs::path folder = place / "images";
    fs::remove_all(folder);
    const auto sound = tavdb_fuzz::buildSound(folder.string(), order);
    fs::remove_all(folder);
    std::vector<std::string> images;
    for (const auto &medium : tavdb::image::kMediumNames)
        images.push_back(sound.content(medium.id));
    return images;
}

void writeImageSeeds(const fs::path &folder, const std::string &name, ByteOrder order,
                     const std::vector<std::string> &images) {
    constexpr size_t kComponents = 0;
    constexpr size_t kConstraints = 2;
    constexpr size_t kStrings = 3;
    constexpr size_t kTexts = 5;
    constexpr size_t kTreeFunctions = 45;
    std::string all = word16(kRootKey);
    for (const std::string &image : images)
        all += section(image);
    for (const uint32_t key : keysOf(images[kComponents], order))
        for (size_t first = 0; first < kTreeFunctions; first += 9)
            write(folder / "tree", name + std::to_string(key) + '-' + std::to_string(first),
                  all + script(key, first, 9));
    for (const uint32_t key : {16U, 28U, 48U, 68U, 88U})
        write(folder / "constraints", name + std::to_string(key),
              std::string("\x04") + word16(1492) + word16(0) + section(images[kConstraints]) + script(key, 0, 9));
    write(folder / "strings", name,
          section("/network/lan/mtu") + section(images[kComponents]) + section(images[kStrings]) +
              section(images[kTexts]) + script(kRootKey, 0, 7));
    write(folder / "file_list", name, section(images[kStrings]) + script(kRootKey, 0, 11));
}

std::string word32(uint32_t value) {
    return {reinterpret_cast<const char *>(&value), sizeof value};
}

/// Single words of the images and the tables of `repair`, whole images, and cuts in front of its steps.
void writeRepairSeeds(const fs::path &folder, char order, const std::vector<std::string> &images) {
    constexpr char kMadeUp = 2;
    constexpr char kInFolder = 12;
    constexpr int kFiles = 9;
    constexpr char kMissing = 16;
    constexpr char kSteps = 24;
    const auto name = [&](const std::string &what) { return what + (order == 0 ? "" : "-foreign"); };
    const auto put = [&](const std::string &what, char mode, const std::string &edits, char cutBefore = 0) {
        const auto modes = std::string(1, static_cast<char>(order | mode));
        const bool isInFolder = mode >= kInFolder && order == 0;
        write(folder / "repair", name(what), modes + (isInFolder ? std::string(1, cutBefore) : "") + edits);
    };
    for (int file = 0; file < kFiles; ++file)
        for (const uint32_t place : {0U, 8U, 12U, 28U, 64U, 132U})
            put("word" + std::to_string(file) + '-' + std::to_string(place), place == 0 ? 0 : kInFolder,
                static_cast<char>(kFiles + file) + word32(place) + word32(place / 2));
    for (char place = 4; place < 100; place = static_cast<char>(place + 3))
        put("links" + std::to_string(place), 0, {0, place, 4, 1, place, 11, 3, place, 4, 2, place, 14});
    std::string all;
    for (const auto &image : images)
        all += section(image);
    put("whole", kMadeUp, all);
    put("whole-folder", kMadeUp | kInFolder, all);
    for (char file = 0; file < 6; ++file)
        put("missing" + std::to_string(file), kInFolder | kMissing, static_cast<char>(3 * kFiles + file) + word32(0));
    for (char step = 1; order == 0 && step <= kSteps; ++step)
        put("cut" + std::to_string(step), kInFolder, static_cast<char>(kFiles + 1) + word32(8) + word32(7), step);
}

void writeTexts(const fs::path &folder) {
    write(folder / "description", "yaml", tavdb_fuzz::kSoundDescription);
    write(folder / "description", "datamodel", kDataModel);
    write(folder / "media_conf", "lines", kMediaConf);
    write(folder / "path", "relative", section("/var/x") + section("db/a") + section("/var/xdb/a"));
    write(folder / "tables", "links", std::string("\x01\x01") + std::string(8, '\x10') + script(1, 0, 12));
}

}  // namespace

int main(int argc, char **argv) {
    if (argc != 2) {
        std::fprintf(stderr, "usage: fuzz_seeds FOLDER\n");
        return 2;
    }
    const fs::path folder = fs::absolute(argv[1]);
    fs::create_directories(folder);
    for (const auto order : {ByteOrder::big, ByteOrder::little}) {
        const auto images = imagesOf(order, folder);
        writeImageSeeds(folder, order == ByteOrder::big ? "big" : "little", order, images);
        writeRepairSeeds(folder, order == tavdb::image::nativeOrder() ? 0 : 1, images);
    }
    writeTexts(folder);
    return 0;
}
