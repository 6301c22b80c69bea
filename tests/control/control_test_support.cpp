// SPDX-License-Identifier: Apache-2.0
#include "control/control_test_support.h"

#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <fstream>
#include <numeric>

#include "fakes/event_log.h"
#include "fakes/fake_semaphores.h"
#include "fakes/fake_trace.h"
#include "file_content.h"

namespace tavdb_test {

namespace {

constexpr int32_t kWholeDump = 99;

/// The object of the set that a wrapper works on.
FakeSemaphores::Kind kindOf(const std::string &wrapper) {
    if (wrapper.ends_with("Mtx"))
        return FakeSemaphores::Kind::mutex;
    return wrapper.ends_with("Count") ? FakeSemaphores::Kind::count : FakeSemaphores::Kind::event;
}

}  // namespace

std::vector<uint32_t> ascending(uint32_t first, uint32_t last) {
    std::vector<uint32_t> numbers(last < first ? 0 : last - first + 1);
    std::iota(numbers.begin(), numbers.end(), first);
    return numbers;
}

Bytes bytesOfFile(const std::string &path) {
    EXPECT_EQ(access(path.c_str(), R_OK), 0) << path << " cannot be read";
    return contentOf<Bytes>(path);
}

void writeFile(const std::string &path, const Bytes &bytes) {
    std::ofstream stream(path, std::ios::binary);
    stream.write(reinterpret_cast<const char *>(bytes.data()), static_cast<std::streamsize>(bytes.size()));
    stream.close();
    EXPECT_TRUE(stream) << path << " cannot be written";
}

ExpectedImage newControlTable() {
    ExpectedImage image(541740);
    image.word(0, 1);
    image.word(4, 31);
    for (uint32_t i = 1; i <= 31; i++) {
        image.word(12 + 16416 * i, i);
        image.word(12 + 16416 * i + 16412, i < 31 ? i + 1 : 0);
    }
    return image;
}

ExpectedImage newSessionTable() {
    ExpectedImage image(16412);
    image.word(0, 1);
    image.word(4, 1023);
    for (uint32_t i = 1; i <= 1023; i++) {
        image.word(12 + 16 * i, i);
        image.word(12 + 16 * i + 12, i < 1023 ? i + 1 : 0);
    }
    return image;
}

ExpectedImage newLockTable() {
    ExpectedImage image(24624);
    image.word(0, 1);
    for (uint32_t i = 1; i <= 1023; i++) {
        image.word(24 + 24 * i + 16, i < 1023 ? i + 1 : 0);
        image.word(24 + 24 * i + 20, i - 1);
    }
    return image;
}

std::vector<std::string> cascade(int32_t firstSite, int32_t code) {
    std::vector<std::string> lines;
    for (const int32_t site : {836, 846, 856, 866, 876, 886, 892})
        if (site >= firstSite)
            lines.push_back(errorLine("tavDBMInit", site, {static_cast<uint32_t>(code)}));
    return lines;
}

std::vector<std::string> controlFailure(int32_t code) {
    return {errorLine("dbs_me_db_control_init", 732, {static_cast<uint32_t>(code)}), errorLine("tavDBMInit", 826, {0})};
}

std::vector<std::string> joined(std::vector<std::string> first, const std::vector<std::string> &second) {
    first.insert(first.end(), second.begin(), second.end());
    return first;
}

tavDBMDescription ControlFixture::database(uint32_t fifthWord) const {
    tavDBMDescription other = description;
    other.fifthWord = fifthWord;
    return other;
}

int32_t ControlFixture::attachMany(uint32_t count) {
    int32_t dbId = -1;
    for (uint32_t i = 1; i <= count; i++)
        dbId = attach(database(i));
    return dbId;
}

void ControlFixture::clearLogs() {
    eventLog().clear();
    fakeTrace().clear();
}

bool tellFromChild(const std::function<bool()> &steps) {
    constexpr int kNo = 0;
    constexpr int kYes = 1;
    constexpr int kFailed = 2;
    fflush(nullptr);  // else the child writes again what stands in the buffers
    const pid_t child = fork();
    if (child == 0) {
        const bool told = steps();
        fflush(nullptr);
        _exit(testing::Test::HasFailure() ? kFailed : told ? kYes : kNo);
    }
    int status = -1;
    EXPECT_EQ(waitpid(child, &status, 0), child);
    const bool ended = WIFEXITED(status) && WEXITSTATUS(status) < kFailed;
    EXPECT_TRUE(ended) << "the child failed (see above) or crashed, status " << status;
    return ended && WEXITSTATUS(status) == kYes;
}

void inChild(const std::function<void()> &steps) {
    tellFromChild([&] {
        steps();
        return true;
    });
}

std::string wrapperLine(const char *wrapper, int32_t site, const std::string &table, int32_t code) {
    const uint32_t handle = fakeSemaphores().handleOf(table, kindOf(wrapper));
    return errorLine(wrapper, site, {static_cast<uint32_t>(code), handle});
}

uint32_t dumped(int32_t (*dump)(int32_t, uint32_t *, uint32_t *), const std::string &name) {
    const size_t before = fakeTrace().texts(kWholeDump).size();
    dump(kWholeDump, nullptr, nullptr);
    const std::vector<std::string> lines = fakeTrace().texts(kWholeDump);
    for (size_t i = before; i < lines.size(); i++) {
        uint32_t value = 0;
        if (lines[i].ends_with(":" + name + "\n") && sscanf(lines[i].c_str(), "[0x%8x]", &value) == 1)
            return value;
    }
    ADD_FAILURE() << "the dump has no line for " << name;
    return 0;
}

}  // namespace tavdb_test
