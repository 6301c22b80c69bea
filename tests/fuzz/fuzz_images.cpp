// SPDX-License-Identifier: Apache-2.0
#include "fuzz/fuzz_images.h"

#include <cstdio>
#include <cstdlib>

#include "image/builder.h"
#include "image/description.h"

namespace tavdb_fuzz {

using namespace tavdb::image;

const char *const kSoundDescription = R"(types:
  port: { type: u16, range: [1, 65535], step: 1, current: 80 }
network:
  lan:
    mtu: { type: u32, range: [576, 9000], step: 4, current: 1492, default: 1500 }
    mode: { type: u8, enum: { off: 0, on: 1, auto: 7 }, current: auto }
    name: { type: text, size: 16, current: eth0 }
  port: { type: port }
limits: { type: f64, range: [-1.5, 2.5], current: 0.5 }
offset: { type: s64, current: -5 }
key: { type: bytes, size: 4, secret: true, current: 00ff7e01 }
)";

RawImages buildSound(const std::string &folder, ByteOrder order) {
    const auto description = readDescriptionText("sound.yaml", kSoundDescription);
    for (const auto &error : description.errors)
        std::fprintf(stderr, "line %u: %s\n", error.position.line, error.sentence.c_str());
    const auto built = buildDatabase(description.model, folder, {.order = order});
    auto images = RawImages::load(folder, order);
    if (description.ok() && built && images)
        return std::move(*images.value);
    std::fprintf(stderr, "the images cannot be built: %s\n", built ? "" : built.error.sentence.c_str());
    std::exit(1);
}

}  // namespace tavdb_fuzz
