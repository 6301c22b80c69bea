// SPDX-License-Identifier: Apache-2.0
// The fakes of the unit tests under the contract tests: what they do must be what
// a platform does, or the unit tests prove little.
#include "fakes/fake_hooks.h"
#include "fakes/fake_media.h"
#include "fakes/fakes.h"
#include "port/contract/platform_under_test.h"

namespace tavdb::test {
namespace {

void prepare(const std::string &) {
    tavdb_test::resetFakes();
}

std::string makeMedium(const std::string &, const std::string &name, const std::string &content) {
    tavdb_test::fakeMedia().create(name, {content.begin(), content.end()});
    return name;
}

void installHook(uint32_t id, const tavDBMHook &hook) {
    tavdb_test::fakeHooks().put(id, hook);
}

}  // namespace

const PlatformUnderTest &platformUnderTest() {
    static const PlatformUnderTest platform = {
        .whyOneProcessOnly = "the fakes live in the memory of one process",
        .whyNoSleep = "a fake wait never sleeps, it runs the test's action instead",
        .hookPath = "hooks.conf",
        .prepare = prepare,
        .makeMedium = makeMedium,
        .installHook = installHook,
    };
    return platform;
}

}  // namespace tavdb::test
