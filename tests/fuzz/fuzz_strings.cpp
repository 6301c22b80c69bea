// SPDX-License-Identifier: Apache-2.0
// Names and the search by name, with a made-up path, on made-up components and texts.
#include "fuzz/fuzz_database.h"
#include "fuzz/fuzz_target.h"

namespace tavdb_fuzz {
namespace {

std::string s_path;

constexpr StepFunction kSteps[] = {
    [](const Step &s) { tavDBMSearchByName(s.session, s_path.c_str()); },
    [](const Step &s) {
        s.session->currentComponent = s.a;
        tavDBMSearchByName(s.session, s_path.c_str());
    },
    [](const Step &s) { comp_searchByName(s.session, s.a, s_path.c_str()); },
    [](const Step &s) {
        std::string buffer(s.b, '\0');
        tavdb_getString(s.session, s.a, buffer.data(), static_cast<int32_t>(buffer.size()));
    },
    [](const Step &s) { str_create(s.session, s_path.c_str(), static_cast<int16_t>(s.a)); },
    [](const Step &s) { tavDBMDeleteString(s.session, s.a); },
    [](const Step &) { IsCompMedia(s_path.c_str()); },
};

}  // namespace
}  // namespace tavdb_fuzz

int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    using namespace tavdb_fuzz;
    Input input(data, size);
    s_path = input.text();
    for (const int32_t id : {kComponents, kStrings, kTexts})
        putMedium(id, input.section());
    runScript(input, kSteps);
    return 0;
}
