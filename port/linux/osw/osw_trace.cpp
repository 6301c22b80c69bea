// SPDX-License-Identifier: Apache-2.0
// The trace function: decides by the environment which lines pass, and formats
// them. Silent unless TAVDB_TRACE says otherwise. The caller's errno survives.
#include <errno.h>
#include <pthread.h>
#include <stdarg.h>
#include <stdio.h>
#include <stdlib.h>

#include <limits>

#include "osw/trace_sink.h"
#include "tavdb_platform.h"

using namespace tavdb::osw;

namespace {

constexpr int32_t kUnread = std::numeric_limits<int32_t>::max();
constexpr int32_t kOff = std::numeric_limits<int32_t>::min();
constexpr size_t kLineBytes = 1024;

/// Lines up to this level pass. Before the environment was read, all do, as far as the door where it is read.
int32_t passedLevel = kUnread;
pthread_once_t environmentRead = PTHREAD_ONCE_INIT;

/// @return the level, or off unless the text is a plain decimal number
int32_t levelFrom(const char *text) {
    if (text == nullptr || *text == '\0')
        return kOff;
    int64_t level = 0;
    for (; *text != '\0'; ++text) {
        if (*text < '0' || *text > '9')
            return kOff;
        level = level * 10 + (*text - '0');
        if (level > std::numeric_limits<int32_t>::max())
            return kOff;
    }
    return static_cast<int32_t>(level);
}

void readEnvironment() {
    // A privileged program does not let its caller choose a file to write to.
    const int32_t level = levelFrom(secure_getenv("TAVDB_TRACE"));
    if (level != kOff)
        chooseSink(secure_getenv("TAVDB_TRACE_TO"));
    __atomic_store_n(&passedLevel, level, __ATOMIC_RELAXED);
}

bool passes(int32_t level) {
    pthread_once(&environmentRead, readEnvironment);
    const int32_t passed = __atomic_load_n(&passedLevel, __ATOMIC_RELAXED);
    return passed != kOff && level <= passed;
}

__attribute__((format(printf, 2, 0))) void writeFormatted(int32_t level, const char *format, va_list arguments) {
    char line[kLineBytes];
    const int length = vsnprintf(line, sizeof line, format, arguments);
    if (length < 0)
        return;
    if (static_cast<size_t>(length) < sizeof line)
        return writeToSink(level, line, static_cast<size_t>(length));
    line[kLineBytes - 2] = '\n';
    writeToSink(level, line, kLineBytes - 1);
}

}  // namespace

void dbs_me_debug_trace(int32_t level, const char *format, ...) {
    if (level > __atomic_load_n(&passedLevel, __ATOMIC_RELAXED))
        return;
    const int error = errno;
    if (passes(level)) {
        va_list arguments;
        va_start(arguments, format);
        writeFormatted(level, format, arguments);
        va_end(arguments);
    }
    errno = error;
}
