// SPDX-License-Identifier: Apache-2.0
// Several threads open, read, write and grow the same images at the same time.
// Each works on bytes of its own: who shares bytes keeps them apart himself.
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <filesystem>
#include <thread>

#include "media_test_support.h"

namespace {

constexpr uint32_t kThreads = 4;

class MediaThreads : public MediaTest {
protected:
    /// Runs work(0) to work(3) at once.
    static void inThreads(const std::function<void(uint32_t number)> &work) {
        std::vector<std::thread> threads;
        for (uint32_t number = 0; number < kThreads; number++)
            threads.emplace_back(work, number);
        for (std::thread &thread : threads)
            thread.join();
    }
};

TEST_F(MediaThreads, FirstOpenByAllAtOnceMapsOnce) {
    for (int round = 0; round < 200; round++) {
        writeFile("a.med", "0123456789");
        initialise();
        const int maps = openDescriptors();
        std::atomic<uint32_t> wrong{0};
        inThreads([&](uint32_t) { wrong += openMedium(memoryMedium, "a.med") != success(0); });
        EXPECT_EQ(wrong, 0U);
        EXPECT_EQ(openDescriptors(), maps + 1);
    }
}

TEST_F(MediaThreads, ManyMediaOpenedAtOnce) {
    for (int i = 0; i < 100; i++)
        writeFile(std::to_string(i), std::to_string(i));
    std::atomic<uint32_t> wrong{0};
    inThreads([&](uint32_t number) {
        for (uint32_t i = 0; i < 400; i++) {
            const std::string hint = std::to_string((i * 7 + number * 25) % 100);
            const int32_t fd = openMedium(memoryMedium, hint).result;
            std::string bytes;
            readMedium(memoryMedium, fd, 10, 0, &bytes);
            wrong += bytes != hint;
        }
    });
    EXPECT_EQ(wrong, 0U);
}

void growAll(uint32_t number, uint32_t records, std::atomic<uint32_t> *wrong) {
    const std::string record(256, static_cast<char>('a' + number));
    std::string bytes;
    for (uint32_t i = number; i < records; i += kThreads) {
        const int32_t fd = openMedium(memoryMedium, "a.med").result;
        *wrong += writeMedium(memoryMedium, fd, record, i * 256) != success(256);
        // What this thread wrote earlier may lie in a mapping that another thread has replaced since.
        const uint32_t earlier = number + i / 2 / kThreads * kThreads;
        readMedium(memoryMedium, fd, 256, earlier * 256, &bytes);
        *wrong += bytes != record;
        *wrong += seekMedium(memoryMedium, fd, 0, SEEK_END).result < static_cast<int32_t>((i + 1) * 256);
        *wrong += closeMedium(memoryMedium, fd) != success(0);
    }
}

TEST_F(MediaThreads, GrowthByAllAtOnceLosesNothing) {
    constexpr uint32_t kRecords = 40000;
    for (const int fallocateError : {0, EOPNOTSUPP}) {
        writeFile("a.med", "");
        initialise();
        faultPlan.fallocateError = fallocateError;
        std::atomic<uint32_t> wrong{0};
        inThreads([&](uint32_t number) { growAll(number, kRecords, &wrong); });
        EXPECT_EQ(wrong, 0U);
        const std::string content = readFile("a.med");
        ASSERT_EQ(content.size(), kRecords * 256);
        for (uint32_t i = 0; i < kRecords; i++)
            ASSERT_EQ(content[i * 256 + 255], static_cast<char>('a' + i % kThreads)) << "record " << i;
    }
}

TEST_F(MediaThreads, ReadersCopyWhileAnotherThreadGrows) {
    writeFile("a.med", std::string(100000, 'r'));
    mapped("a.med");
    std::atomic<bool> isDone{false};
    std::atomic<uint32_t> wrong{0};
    inThreads([&](uint32_t number) {
        const int32_t fd = openMedium(memoryMedium, "a.med").result;
        std::string bytes;
        if (number == 0) {
            for (uint32_t offset = 100000; offset < 20000000; offset += 50000)
                wrong += writeMedium(memoryMedium, fd, "grown", offset) != success(5);
            isDone = true;
        }
        while (!isDone) {
            readMedium(memoryMedium, fd, 100000, 0, &bytes);
            wrong += bytes != std::string(100000, 'r');
        }
    });
    EXPECT_EQ(wrong, 0U);
}

TEST_F(MediaThreads, ForkWhileAThreadGrowsLeavesAUsableChild) {
    writeFile("a.med", "");
    const int32_t fd = mapped("a.med");
    std::atomic<bool> isDone{false};
    std::thread grower([&] {
        for (uint32_t i = 0; !isDone; i++)
            writeMedium(memoryMedium, fd, "x", i % 4000000);
    });
    for (int i = 0; i < 100; i++)
        EXPECT_EQ(inChild([&] { return seekMedium(memoryMedium, fd, 0, SEEK_END).result >= 0 ? 0 : 1; }), 0);
    isDone = true;
    grower.join();
}

}  // namespace
