// SPDX-License-Identifier: Apache-2.0
// Ranges, enumerations and the check of a value, on a constraint medium whose bytes
// are made up. The value that is checked has exactly the bytes it claims to have.
#include "fuzz/fuzz_database.h"
#include "fuzz/fuzz_target.h"
#include "tavdb_platform.h"

namespace tavdb_fuzz {
namespace {

Bytes s_value;

uint32_t keyOf(const Step &s) {
    return s.a % kMediumBytes;
}

int32_t small(uint32_t word) {
    return static_cast<int8_t>(word);
}

constexpr StepFunction kSteps[] = {
    [](const Step &s) {
        constraint_check(s.session, keyOf(s), static_cast<int32_t>(s.b % 14), s_value.data(),
                         static_cast<int32_t>(s_value.size()));
    },
    [](const Step &s) {
        Bytes buffer(s.b);
        constraint_getData(s.session, keyOf(s), buffer.data(), static_cast<int32_t>(buffer.size()));
    },
    [](const Step &s) {
        const Bytes data(s.b);
        constraint_setData(s.session, keyOf(s), data.data(), static_cast<int32_t>(data.size()));
    },
    [](const Step &s) { constraint_getLength(s.session, keyOf(s)); },
    [](const Step &s) { constraint_getType(s.session, keyOf(s)); },
    [](const Step &s) {
        void *const elements = constraint_getEnumArray(s.session, keyOf(s), small(s.b), small(s.c));
        if (elements != nullptr)
            tavOSWOrgFreeMemPart(0, elements);
    },
    [](const Step &s) { constraint_newEnumArray(s.session, small(s.b), small(s.c)); },
    [](const Step &s) {
        uint32_t key = 0;
        constraint_new(s.session, &key);
    },
    [](const Step &s) {
        tavDBMRangeS64 range = {};
        rangeS64_get(s.session, keyOf(s), &range);
        rangeS64_new(s.session, &range);
    },
};

}  // namespace
}  // namespace tavdb_fuzz

int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    using namespace tavdb_fuzz;
    Input input(data, size);
    s_value = input.bytes(input.word<uint8_t>() % 17);
    putMedium(kConstraints, input.section());
    runScript(input, kSteps);
    return 0;
}
