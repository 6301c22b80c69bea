// SPDX-License-Identifier: Apache-2.0
// The application interface over a database whose six images are made up.
#include "fuzz/fuzz_database.h"
#include "fuzz/fuzz_target.h"

namespace tavdb_fuzz {
namespace {

constexpr int32_t kNoPrint = INT32_MIN / 2;  // a depth whose width is below 0

char s_buffer[65536];

int32_t lengthOf(uint32_t word) {
    return static_cast<int16_t>(word);
}

constexpr StepFunction kSteps[] = {
    [](const Step &s) { tavDBMSearchByName(s.session, "/network/lan/mtu"); },
    [](const Step &s) { tavDBMSearchByName(s.session, "lan/mtu"); },
    [](const Step &s) { tavDBMSetCurrentComponent(s.session, s.a); },
    [](const Step &s) { tavDBMGetParent(s.session, s.a); },
    [](const Step &s) { tavDBMGetFirstChild(s.session, s.a); },
    [](const Step &s) { tavDBMGetNextChild(s.session, s.a); },
    [](const Step &s) { tavDBMGetChildCount(s.session, s.a); },
    [](const Step &s) { tavDBMGetChildByIndex(s.session, s.a, s.b); },
    [](const Step &s) {
        uint64_t number = 0;
        tavDBMGetUint64(s.session, s.a, &number);
    },
    [](const Step &s) { tavDBMSetUint32(s.session, s.a, s.b); },
    [](const Step &s) { tavDBMSetSint8(s.session, s.a, static_cast<int8_t>(s.b)); },
    [](const Step &s) { tavDBMSetFloat64(s.session, s.a, s.b); },
    [](const Step &s) { tavDBMGetString(s.session, s.a, s_buffer, lengthOf(s.b)); },
    [](const Step &s) { tavDBMSetString(s.session, s.a, "text"); },
    [](const Step &s) {
        int32_t length = lengthOf(s.b);
        tavDBMGetDefaultGeneric(s.session, s.a, s_buffer, &length);
    },
    [](const Step &s) {
        int32_t length = lengthOf(s.b);
        tavDBMGetCreateListGeneric(s.session, s.a, s_buffer, &length);
    },
    [](const Step &s) { tavDBMSetDefaultGeneric(s.session, s.a, s_buffer, lengthOf(s.b)); },
    [](const Step &s) { tavDBMCopy(s.session, s.a, s.b); },
    [](const Step &s) { tavDBMGetType(s.session, s.a); },
    [](const Step &s) { tavDBMGetLength(s.session, s.a); },
    [](const Step &s) { tavDBMGetConstraintData(s.session, s.a, s_buffer, lengthOf(s.b)); },
    [](const Step &s) { tavDBMSetConstraintData(s.session, s.a, s_buffer, lengthOf(s.b)); },
    [](const Step &s) { tavDBMGetConstraintLength(s.session, s.a); },
    [](const Step &s) { tavDBMGetConstraintType(s.session, s.a); },
    [](const Step &s) { tavDBMDefaultToCurrent(s.session, s.a); },
    [](const Step &s) { tavDBMFactoryToDefault(s.session, s.a); },
    [](const Step &s) { tavDBMCurrentToDefault(s.session, s.a); },
    [](const Step &s) { comp_traverseAndPrint(s.session, s.a, kNoPrint); },
    [](const Step &s) { tavDBMCreateNode(s.session, s.a, s.a, s.b, s.c); },
    [](const Step &s) { tavDBMCreateLeaf(s.session, s.a, s.a, s.b, s.c, s.c, s.c, 0); },
    [](const Step &s) { tavDBMCreateValue(s.session, lengthOf(s.a), 0, nullptr, lengthOf(s.b), kData); },
    [](const Step &s) { tavDBMCreateString(s.session, "name", lengthOf(s.a)); },
    [](const Step &s) { tavDBMMoveLeaf(s.session, s.a, s.b, s.c); },
    [](const Step &s) { tavDBMMoveNode(s.session, s.a, s.b, s.c, s.c); },
    [](const Step &s) { tavDBMMoveSubTree(s.session, s.a, s.b, s.c); },
    [](const Step &s) { tavDBMDeleteComponent(s.session, s.a); },
    [](const Step &s) { tavDBMDeleteComponentWithSub(s.session, s.a); },
    [](const Step &s) { tavDBMDeleteValue(s.session, s.a); },
    [](const Step &s) { tavDBMDeleteString(s.session, s.a); },
    [](const Step &s) { tavDBMSetCurrentValueKey(s.session, s.a, s.b); },
    [](const Step &s) { tavDBMSetConstraintKey(s.session, s.a, s.b); },
    [](const Step &s) { tavDBMSetStringKey(s.session, s.a, s.b); },
    [](const Step &s) { comp_setFirstChild(s.session, s.a, s.b); },
    [](const Step &s) { comp_setNextSibling(s.session, s.a, s.b); },
    [](const Step &s) { tavDBMGetRoot(s.session); },
};

}  // namespace
}  // namespace tavdb_fuzz

int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    tavdb_fuzz::Input input(data, size);
    tavdb_fuzz::putMedia(input);
    tavdb_fuzz::runScript(input, tavdb_fuzz::kSteps);
    return 0;
}
