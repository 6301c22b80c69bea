// SPDX-License-Identifier: Apache-2.0
#include "storage/storage_test_support.h"

#include <dlfcn.h>

#include <cstdio>
#include <fstream>

namespace tavdb_test {

void MediaTest::SetUp() {
    DatabaseFixture::SetUp();
    observe();
}

void MediaTest::TearDown() {
    faultPlan().endFaults();
    while (loads_ > 0)
        unload();
    while (loads_ < 0)
        load();
    DatabaseFixture::TearDown();
}

void MediaTest::writeConfText(const std::string &text) const {
    std::ofstream conf(confPath(), std::ios::binary);
    conf << text;
    conf.close();
    ASSERT_TRUE(conf) << "the media configuration file cannot be written";
}

int32_t MediaTest::load(uint32_t arg) {
    const Recording recording;
    ++loads_;
    return media_init(confPath().c_str(), arg);
}

int32_t MediaTest::load(const std::vector<std::string> &lines) {
    writeMediaConf(lines);
    return load();
}

int32_t MediaTest::unload() {
    const Recording recording;
    --loads_;
    return media_term();
}

void MediaTest::observe() {
    session.errorCode = kStaleCode;
    session.errorDetail = kStaleDetail;
    eventLog().clear();
    fakeTrace().clear();
    before_ = fakeMedia().snapshotAll();
}

testing::AssertionResult MediaTest::failedWith(int32_t code, uint32_t detail,
                                               const std::vector<std::string> &lines) const {
    if (session.errorCode != static_cast<uint32_t>(code) || session.errorDetail != detail)
        return testing::AssertionFailure() << "the session holds code " << session.errorCode << " detail "
                                           << session.errorDetail << ", expected " << code << " and " << detail;
    return fakeTrace().errorsAre(lines);
}

testing::AssertionResult MediaTest::silent() const {
    return failedWith(kStaleCode, kStaleDetail, {});
}

testing::AssertionResult MediaTest::sessionUntouched() const {
    return failedWith(kStaleCode, kStaleDetail, fakeTrace().errors());
}

testing::AssertionResult MediaTest::mediaUnchanged() const {
    const std::vector<std::string> changes = fakeMedia().changesSince(before_);
    if (changes.empty())
        return testing::AssertionSuccess();
    return testing::AssertionFailure() << "changed: " << testing::PrintToString(changes);
}

void LoadedMediaTest::SetUp() {
    MediaTest::SetUp();
    ASSERT_EQ(load(), 0) << eventLog().text();
    observe();
}

uint32_t addressInLibrary(const std::string &name) {
    // Looked up in the library itself: the test program may have stand-ins for addresses of functions it calls.
    void *const library = dlopen("libtavdb.so.1", RTLD_NOW | RTLD_NOLOAD);
    if (library == nullptr)
        return 0;
    const void *const address = dlsym(library, name.c_str());
    dlclose(library);
    return static_cast<uint32_t>(reinterpret_cast<uintptr_t>(address));
}

std::vector<DumpedWord> dumpedWords(int32_t level) {
    std::vector<DumpedWord> words;
    for (const std::string &text : fakeTrace().texts(level)) {
        uint32_t value = 0;
        char name[128] = "";
        if (sscanf(text.c_str(), "[0x%x]:%127s", &value, name) == 2)
            words.push_back({value, name});
    }
    return words;
}

}  // namespace tavdb_test
