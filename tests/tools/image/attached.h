// SPDX-License-Identifier: Apache-2.0
// A database that the test builds and attaches to as an application does: through
// the library's own functions, without what the tools have to read it.
#pragma once

#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

#include "image/builder.h"
#include "image/directory.h"
#include "tavdb_modules.h"
#include "tools/image/reading.h"

namespace tavdb::image {

/// Builds a description into `path`; a fault is the test's failure.
inline BuildSummary buildText(const std::string &text, const std::string &path, const BuildOptions &options = {}) {
    auto summary = buildDatabase(readGood(text).model, path, options);
    EXPECT_TRUE(summary) << summary.error.sentence;
    return summary.value.value_or(BuildSummary{});
}

class Attached {
public:
    explicit Attached(const std::string &directory) {
        const auto description = describeDirectory(directory);
        int32_t error = 0;
        id = tavDBMInit(description.value->get(), &error);
        EXPECT_GT(id, 0) << "code " << error;
        EXPECT_EQ(tavDBMInitSession(&record, static_cast<uint32_t>(id)), 0);
    }
    Attached(const Attached &) = delete;
    Attached &operator=(const Attached &) = delete;
    ~Attached() {
        EXPECT_EQ(tavDBMTermSession(&record), 0);
        EXPECT_EQ(tavDBMTerm(static_cast<uint32_t>(id)), 0);
    }

    tavDBMSession *session() {
        return &record;
    }
    /// 0, and a failure of the test, when there is no such component.
    uint32_t at(const std::string &path) {
        const uint32_t key = tavDBMSearchByName(&record, path.c_str());
        EXPECT_NE(key, 0U) << path;
        return key;
    }
    std::string nameOf(uint32_t component) {
        char text[300] = "";
        EXPECT_NE(tavdb_getString(&record, tavDBMGetStringKey(&record, component), text, sizeof text - 1), nullptr);
        return text;
    }

    using Read = int32_t (*)(tavDBMSession *, uint32_t, void *, int32_t *);
    std::string bytesBy(Read read, uint32_t leaf) {
        std::string bytes(static_cast<size_t>(tavDBMGetLength(&record, leaf)), '?');
        auto length = static_cast<int32_t>(bytes.size());
        record.errorCode = 0;
        EXPECT_EQ(read(&record, leaf, bytes.data(), &length), 0);
        EXPECT_EQ(record.errorCode, 0U);
        EXPECT_EQ(static_cast<size_t>(length), bytes.size());
        return bytes;
    }
    std::string current(uint32_t leaf) {
        return bytesBy(tavDBMGetGeneric, leaf);
    }
    std::string standard(uint32_t leaf) {
        return bytesBy(tavDBMGetDefaultGeneric, leaf);
    }
    std::string factory(uint32_t leaf) {
        return bytesBy(tavDBMGetFactoryGeneric, leaf);
    }
    std::string constraintData(uint32_t leaf) {
        std::string bytes(static_cast<size_t>(tavDBMGetConstraintLength(&record, leaf)), '?');
        EXPECT_EQ(tavDBMGetConstraintData(&record, leaf, bytes.data(), static_cast<int32_t>(bytes.size())), 0);
        return bytes;
    }

private:
    int32_t id = -1;
    tavDBMSession record = {};
};

/// The bytes of some numbers, one behind the other.
template <typename T>
std::string packed(std::initializer_list<T> numbers) {
    std::string bytes(numbers.size() * sizeof(T), '\0');
    std::memcpy(bytes.data(), numbers.begin(), bytes.size());
    return bytes;
}

}  // namespace tavdb::image
