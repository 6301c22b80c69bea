// SPDX-License-Identifier: Apache-2.0
#include "fakes/fake_trace.h"

#include <algorithm>
#include <cstdio>
#include <iterator>
#include <string_view>

#include "fakes/errno_keeper.h"
#include "fakes/event_log.h"
#include "fakes/misuse.h"
#include "tavdb_platform.h"

namespace tavdb_test {

namespace {

constexpr size_t kMostWords = 7;
constexpr std::string_view kWord = "[0x%8x]";

struct KnownFormat {
    std::string_view format;
    int32_t level;
};

// Lines with a function's name; the error line with words is checked by its parts.
constexpr KnownFormat kKnownFormats[] = {
    {"%s():[Enter]\n", FakeTrace::kRemarkLevel},
    {"%s():[Return]\n", FakeTrace::kRemarkLevel},
    {"%s():[Debug]:[%d][%s]\n", FakeTrace::kRemarkLevel},
    {"%s():[Debug]:[%d][0x%8x][0x%8x][0x%8x]", FakeTrace::kRemarkLevel},
    {"%s():[Error]:[%d][%s]\n", FakeTrace::kErrorLevel},
    {"%s():[Error]:[%d][0x%8x][%s]\n", FakeTrace::kErrorLevel},
};
constexpr std::string_view kFunctionPrefix = "%s():[";
constexpr std::string_view kErrorPrefix = "%s():[Error]:[%d]";

bool isErrorWithWords(std::string_view format) {
    if (!format.starts_with(kErrorPrefix) || !format.ends_with('\n'))
        return false;
    format.remove_prefix(kErrorPrefix.size());
    format.remove_suffix(1);
    size_t words = 0;
    for (; format.starts_with(kWord); ++words)
        format.remove_prefix(kWord.size());
    return format.empty() && words <= kMostWords;
}

bool isKnown(int32_t level, std::string_view format) {
    if (!format.starts_with(kFunctionPrefix))
        return true;
    if (isErrorWithWords(format))
        return level == FakeTrace::kErrorLevel;
    return std::any_of(std::begin(kKnownFormats), std::end(kKnownFormats),
                       [&](const KnownFormat &known) { return known.format == format && known.level == level; });
}

__attribute__((format(printf, 1, 0))) std::string formatted(const char *format, va_list arguments) {
    va_list again;
    va_copy(again, arguments);
    const int length = vsnprintf(nullptr, 0, format, again);
    va_end(again);
    if (length < 0)
        return "(a line that cannot be formatted)";
    std::string text(static_cast<size_t>(length) + 1, '\0');
    vsnprintf(text.data(), text.size(), format, arguments);
    text.pop_back();
    return text;
}

std::string hexWord(uint32_t word) {
    char text[16];
    snprintf(text, sizeof(text), "[0x%8x]", word);
    return text;
}

std::string errorStart(const std::string &function, int32_t site) {
    return function + "():[Error]:[" + std::to_string(site) + ']';
}

std::string quotedList(const std::vector<std::string> &lines) {
    return testing::PrintToString(lines);
}

}  // namespace

std::string enterLine(const std::string &function) {
    return function + "():[Enter]\n";
}

std::string returnLine(const std::string &function) {
    return function + "():[Return]\n";
}

std::string errorLine(const std::string &function, int32_t site, std::initializer_list<uint32_t> words) {
    std::string line = errorStart(function, site);
    for (const uint32_t word : words)
        line += hexWord(word);
    return line + '\n';
}

std::string errorTextLine(const std::string &function, int32_t site, const std::string &text) {
    return errorStart(function, site) + '[' + text + "]\n";
}

std::string errorCodeTextLine(const std::string &function, int32_t site, uint32_t code, const std::string &text) {
    return errorStart(function, site) + hexWord(code) + '[' + text + "]\n";
}

std::string debugTextLine(const std::string &function, int32_t site, const std::string &text) {
    return function + "():[Debug]:[" + std::to_string(site) + "][" + text + "]\n";
}

std::string dumpLine(uint32_t value, const std::string &name) {
    return hexWord(value) + ':' + name + '\n';
}

std::vector<TraceLine> FakeTrace::lines() const {
    const std::lock_guard guard(mutex_);
    return lines_;
}

std::vector<std::string> FakeTrace::texts(int32_t level) const {
    std::vector<std::string> chosen;
    for (const TraceLine &line : lines()) {
        if (line.level == level)
            chosen.push_back(line.text);
    }
    return chosen;
}

std::vector<std::string> FakeTrace::errors() const {
    return texts(kErrorLevel);
}

void FakeTrace::clear() {
    const std::lock_guard guard(mutex_);
    lines_.clear();
}

testing::AssertionResult FakeTrace::onlyError(const std::string &line) const {
    return errorsAre({line});
}

testing::AssertionResult FakeTrace::errorsAre(const std::vector<std::string> &expected) const {
    return textsAre(kErrorLevel, expected);
}

testing::AssertionResult FakeTrace::noErrors() const {
    return errorsAre({});
}

testing::AssertionResult FakeTrace::textsAre(int32_t level, const std::vector<std::string> &expected) const {
    const std::vector<std::string> actual = texts(level);
    if (actual == expected)
        return testing::AssertionSuccess();
    return testing::AssertionFailure() << "level " << level << " traced " << quotedList(actual) << "\n  expected "
                                       << quotedList(expected);
}

void FakeTrace::write(int32_t level, const char *format, va_list arguments) {
    const ErrnoKeeper keeper;
    if (format == nullptr)
        return reportMisuse("trace", "a line without a format");
    const std::string text = formatted(format, arguments);
    if (!isKnown(level, format))
        reportMisuse("trace", "level " + std::to_string(level) + " does not have lines of the form \"" + format + '"');
    std::string shown = text;
    if (shown.ends_with('\n'))
        shown.pop_back();
    eventLog().add({.operation = Operation::trace, .details = std::to_string(level) + ' ' + shown, .argument = level});
    const std::lock_guard guard(mutex_);
    lines_.push_back({level, text, format});
}

FakeTrace &fakeTrace() {
    static auto *const trace = new FakeTrace;
    return *trace;
}

}  // namespace tavdb_test

extern "C" void dbs_me_debug_trace(int32_t level, const char *format, ...) {
    va_list arguments;
    va_start(arguments, format);
    tavdb_test::fakeTrace().write(level, format, arguments);
    va_end(arguments);
}
