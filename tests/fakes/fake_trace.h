// SPDX-License-Identifier: Apache-2.0
// The platform's trace in a test: keeps every line with its level and format,
// checks that lines of the form "function():[...]" use one of the library's
// formats at its level, and compares lines with expected ones.
#pragma once

#include <gtest/gtest.h>

#include <cstdarg>
#include <cstdint>
#include <initializer_list>
#include <mutex>
#include <string>
#include <vector>

namespace tavdb_test {

/// One traced line; the text ends where the format ends, as a rule with a line end.
struct TraceLine {
    int32_t level;
    std::string text;
    std::string format;
};

/// @name Expected texts
/// @{
std::string enterLine(const std::string &function);
std::string returnLine(const std::string &function);
/// "function():[Error]:[site][0x%8x]...\n" with up to seven words.
std::string errorLine(const std::string &function, int32_t site, std::initializer_list<uint32_t> words = {});
std::string errorTextLine(const std::string &function, int32_t site, const std::string &text);
std::string errorCodeTextLine(const std::string &function, int32_t site, uint32_t code, const std::string &text);
std::string debugTextLine(const std::string &function, int32_t site, const std::string &text);
/// A dump's line: "[0x%8x]:name\n".
std::string dumpLine(uint32_t value, const std::string &name);
/// @}

class FakeTrace {
public:
    static constexpr int32_t kErrorLevel = 0;
    static constexpr int32_t kRemarkLevel = 2;

    std::vector<TraceLine> lines() const;
    std::vector<std::string> texts(int32_t level) const;
    /// The texts of level 0.
    std::vector<std::string> errors() const;
    void clear();

    /// @name Comparisons, for EXPECT_TRUE: a difference shows both lists
    /// @{
    testing::AssertionResult onlyError(const std::string &line) const;
    testing::AssertionResult errorsAre(const std::vector<std::string> &expected) const;
    testing::AssertionResult noErrors() const;
    testing::AssertionResult textsAre(int32_t level, const std::vector<std::string> &expected) const;
    /// @}

    __attribute__((format(printf, 3, 0))) void write(int32_t level, const char *format, va_list arguments);

private:
    mutable std::mutex mutex_;
    std::vector<TraceLine> lines_;
};

/// The trace of this process.
FakeTrace &fakeTrace();

}  // namespace tavdb_test
