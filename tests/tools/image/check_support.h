// SPDX-License-Identifier: Apache-2.0
// Images to check: built, read back, damaged word by word, and compared.
#pragma once

#include <gmock/gmock.h>

#include <cstring>
#include <string>
#include <vector>

#include "image/check.h"
#include "image/record_map.h"
#include "tools/image/attached.h"
#include "tools/test_place.h"

namespace tavdb::image {

/// A description with a record of every kind.
inline const char *const kSmall =
    "a: {type: u32, range: [1, 9], current: 5}\n"
    "b: {type: text, size: 5, current: xy}\n"
    "c:\n  d: {type: u16, enum: [1, 2, 300], current: 2}\n";

/// The images of a description, built into `place`.
inline RawImages imagesOf(const tavdb_test::TestPlace &place, const std::string &text) {
    buildText(text, place / "built", {.replace = true});
    return *RawImages::load(place / "built", nativeOrder()).value;
}

inline void setWord(RawImages &images, int32_t medium, uint32_t offset, uint32_t word) {
    std::memcpy(images.bytes(medium, {offset, sizeof word}).data(), &word, sizeof word);
}

inline uint32_t wordOf(const RawImages &images, int32_t medium, uint32_t offset) {
    return images.read<uint32_t>(medium, offset).value_or(0);
}

inline std::vector<std::string> linesOf(const Examination &examination) {
    std::vector<std::string> lines;
    for (const auto &finding : examination.findings)
        lines.push_back(formatFinding(finding));
    return lines;
}

/// What must hold of images that were put right, whatever they were before.
inline void expectSound(const Examination &examination) {
    const auto again = examine(examination.images);
    for (const auto &finding : again.findings)
        if (finding.gravity == Gravity::damage || finding.remedy != "it stays as it is")
            ADD_FAILURE() << "found again: " << formatFinding(finding);
    EXPECT_TRUE(again.images.equals(examination.images)) << "a second repair changes something";
    const auto map = mapRecords(examination.images);
    for (const auto &fault : map.faults)
        ADD_FAILURE() << "the record map: " << faultOf(fault).sentence;
    for (const auto &medium : kMediumNames)
        for (const auto &gap : unclaimedRanges(examination.images, map, medium.id))
            EXPECT_TRUE(!medium.holdsRecords || gap.sizeBytes < sizeof(tavDBMFreeBlock))
                << medium.kind << ": " << gap.sizeBytes << " bytes at " << gap.offset << " are nobody's";
}

}  // namespace tavdb::image
