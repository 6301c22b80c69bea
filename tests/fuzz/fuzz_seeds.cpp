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
#include <iterator>
#include <string>
#include <vector>

#include "image/builder.h"
#include "image/description.h"

namespace {

namespace fs = std::filesystem;
using tavdb::image::ByteOrder;

constexpr uint32_t kRootKey = 16;

constexpr const char *kDescription = R"(types:
  port: { type: u16, range: [1, 65535], step: 1, current: 80 }
network:
  lan:
    mtu: { type: u32, range: [576, 9000], step: 4, current: 1492, default: 1500 }
    mode: { type: u8, enum: { off: 0, on: 1, auto: 7 }, current: auto }
    name: { type: text, size: 16, current: eth0 }
  port: { type: port }
limits: { type: f64, range: [-1.5, 2.5], current: 0.5 }
offset: { type: s64, current: -5 }
)";

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

const std::vector<std::string> kImages = {"component.med", "value.med", "constraint.med",
                                          "string.med",    "data.med",  "text.med"};

std::string read(const fs::path &path) {
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
}

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
    const auto description = tavdb::image::readDescriptionText("seed.yaml", kDescription);
    for (const auto &error : description.errors)
        std::fprintf(stderr, "line %u: %s\n", error.position.line, error.sentence.c_str());
    const fs::path folder = place / "images";
    fs::remove_all(folder);
    const auto built = tavdb::image::buildDatabase(description.model, folder.string(), {.order = order});
    if (!description.ok() || !built) {
        std::fprintf(stderr, "the images cannot be built: %s\n", built ? "" : built.error.sentence.c_str());
        std::exit(1);
    }
    std::vector<std::string> images;
    for (const std::string &name : kImages)
        images.push_back(read(folder / name));
    fs::remove_all(folder);
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

void writeTexts(const fs::path &folder) {
    write(folder / "description", "yaml", kDescription);
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
    writeImageSeeds(folder, "big", ByteOrder::big, imagesOf(ByteOrder::big, folder));
    writeImageSeeds(folder, "little", ByteOrder::little, imagesOf(ByteOrder::little, folder));
    writeTexts(folder);
    return 0;
}
