// SPDX-License-Identifier: Apache-2.0
#include "fakes/fakes.h"

#include "fakes/event_log.h"
#include "fakes/fake_hooks.h"
#include "fakes/fake_media.h"
#include "fakes/fake_memory.h"
#include "fakes/fake_semaphores.h"
#include "fakes/fake_trace.h"
#include "fakes/fault_plan.h"
#include "fakes/libc_recorder.h"

namespace tavdb_test {

void resetFakes() {
    faultPlan().clear();
    fakeMemory().reset();
    fakeSemaphores().reset();
    fakeTrace().clear();
    fakeMedia().reset();
    fakeHooks().reset();
    LibcRecorder::instance().reset();
    eventLog().clear();
}

std::vector<std::string> leftInFakes() {
    std::vector<std::string> sentences;
    if (fakeMemory().liveBlocks() != 0)
        sentences.push_back("memory is still allocated: " + fakeMemory().liveText());
    for (const std::string &hint : fakeMedia().openDescriptors())
        sentences.push_back("a descriptor of the medium " + hint + " is still open");
    for (const std::string &table : fakeSemaphores().heldMutexes())
        sentences.push_back("the mutex of " + table + " is still held");
    return sentences;
}

}  // namespace tavdb_test
