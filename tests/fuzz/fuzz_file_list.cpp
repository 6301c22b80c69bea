// SPDX-License-Identifier: Apache-2.0
// The free list, on a medium and in a file, with made-up bytes in both.
#include "fuzz/fuzz_database.h"
#include "fuzz/fuzz_memory_file.h"
#include "fuzz/fuzz_target.h"

namespace tavdb_fuzz {
namespace {

const MemoryFile &file() {
    static const MemoryFile one;
    return one;
}

uint32_t offsetOf(const Step &s) {
    return s.a % (2 * kMediumBytes);  // a file has no end where writes fail
}

constexpr StepFunction kSteps[] = {
    [](const Step &s) { flst_m_get(s.session, kStrings, s.a); },
    [](const Step &s) { flst_m_release(s.session, kStrings, s.a, s.b); },
    [](const Step &s) { flst_m_release(s.session, kStrings, s.a << 16, s.b << 16); },
    [](const Step &s) { flst_m_setFirstOffset(s.session, kStrings, s.a); },
    [](const Step &s) { flst_m_getRoot(s.session, kStrings); },
    [](const Step &s) { flst_m_setRoot(s.session, kStrings, s.a); },
    [](const Step &s) {
        const tavDBMFreeBlock block = {s.b, s.c};
        flst_m_setElement(s.session, kStrings, s.a, &block);
    },
    [](const Step &s) { flst_get(s.session, file().path(), s.a); },
    [](const Step &s) { flst_release(s.session, file().path(), offsetOf(s), s.b); },
    [](const Step &s) { flst_setFirstOffset(s.session, file().path(), offsetOf(s)); },
    [](const Step &s) {
        const tavDBMFreeBlock block = {s.b, s.c};
        flst_setElement(s.session, file().path(), offsetOf(s), &block);
    },
};

}  // namespace
}  // namespace tavdb_fuzz

int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    using namespace tavdb_fuzz;
    Input input(data, size);
    const Bytes content = input.section();
    putMedium(kStrings, content);
    file().put({reinterpret_cast<const char *>(content.data()), content.size()});
    runScript(input, kSteps);
    return 0;
}
