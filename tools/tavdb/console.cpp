// SPDX-License-Identifier: Apache-2.0
#include "console.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>

#include "ending_signals.h"
#include "image/files.h"
#include "image/text_util.h"

namespace tavdb::command {

namespace {

constexpr size_t kFlushBytes = 1 << 16;

void writeLine(std::string_view text) {
    // There is nobody left to tell when standard error fails.
    static_cast<void>(image::writeAll(STDERR_FILENO, image::escapeControls(text) + "\n"));
}

std::string sentenceLine(std::string_view subject, std::string_view sentence) {
    std::string line = "tavdb: ";
    if (!subject.empty())
        line.append(subject).append(": ");
    return line.append(sentence);
}

}  // namespace

void Console::print(std::string_view text) {
    if (failed)
        return;
    pending += text;
    if (pending.size() >= kFlushBytes)
        flush();
}

bool Console::isOpen() const {
    return !failed && !isEnding();
}

void Console::flush() {
    std::string text;
    text.swap(pending);
    if (failed || text.empty())
        return;
    const auto fault = image::writeAll(STDOUT_FILENO, text);
    failed = fault.has_value();
    if (!fault || fault->detail == EPIPE)
        return;
    report("standard output", {image::FaultKind::medium, fault->sentence});
}

void Console::report(std::string_view subject, const image::Fault &fault) {
    reportAt(sentenceLine(subject, fault.sentence), fault.kind);
}

void Console::reportAt(std::string_view line, image::FaultKind kind) {
    writeLine(line);
    if (exitCode == 0)
        exitCode = static_cast<int>(kind);
}

void Console::remark(std::string_view subject, std::string_view sentence) {
    writeLine(sentenceLine(subject, sentence));
}

int Console::finish() {
    flush();
    return exitCode;
}

void occupyStandardDescriptors() {
    for (const int descriptor : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO})
        // The lowest free number is given, so each opening fills the gap. For reading
        // only: what is written there must fail.
        if (fcntl(descriptor, F_GETFD) < 0 && open("/dev/null", O_RDONLY) < 0)
            return;
}

}  // namespace tavdb::command
