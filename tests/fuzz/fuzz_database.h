// SPDX-License-Identifier: Apache-2.0
// The database that fuzz targets work on: attached once, with the platform's own
// libraries, and media that lie in this process and hold whatever an input says.
#pragma once

#include <string_view>

#include "fuzz/fuzz_input.h"
#include "tavdb_modules.h"

namespace tavdb_fuzz {

enum MediumId : int32_t { kComponents = 1, kValues, kConstraints, kStrings, kData, kTexts, kMediaEnd };

/// No medium becomes larger by what is written to it.
inline constexpr size_t kMediumBytes = 8192;

/// The description and the session of the attached database, with the session's error cleared.
const tavDBMDescription &description();
tavDBMSession &session();

/// What a medium holds from now on, cut to kMediumBytes.
void putMedium(int32_t mediumId, const Bytes &content);
/// The same, however large.
void putImage(int32_t mediumId, std::string_view content);
/// The six media as sections of an input.
void putMedia(Input &input);

/// What a step of a script works with: keys, lengths, numbers.
struct Step {
    tavDBMSession *session;
    uint32_t a;
    uint32_t b;
    uint32_t c;
};
using StepFunction = void (*)(const Step &step);

/// Runs the script that an input ends with: a number that chooses the function, then three words of 16 bits.
template <size_t Count>
void runScript(Input &input, const StepFunction (&functions)[Count]) {
    constexpr int kMostSteps = 24;
    for (int i = 0; i < kMostSteps && !input.isEmpty(); ++i) {
        const StepFunction function = functions[input.word<uint8_t>() % Count];
        const uint32_t a = input.word<uint16_t>();
        const uint32_t b = input.word<uint16_t>();
        function({&session(), a, b, input.word<uint16_t>()});
    }
}

}  // namespace tavdb_fuzz
