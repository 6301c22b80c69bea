// SPDX-License-Identifier: Apache-2.0
// System errors: one line for syslog, one for the trace. This file also holds
// the stand-in for syslog(), which the OS wrapper calls like any other program's.
#include <stdarg.h>
#include <stdio.h>
#include <syslog.h>

#include <atomic>

#include "port/osw/osw_trace_support.h"

namespace tavdb::test {
const char *systemLogPath = nullptr;
std::atomic<int> systemLogDelayMs = 0;
}  // namespace tavdb::test

namespace {

__attribute__((format(printf, 2, 0))) void logLine(int priority, const char *format, va_list arguments) {
    if (tavdb::test::systemLogPath == nullptr)
        return;
    usleep(static_cast<useconds_t>(tavdb::test::systemLogDelayMs.load()) * 1000);
    FILE *const file = fopen(tavdb::test::systemLogPath, "a");
    fprintf(file, "<%d>", priority);
    vfprintf(file, format, arguments);
    fclose(file);
    errno = EDOM;
}

}  // namespace

// Which of the two an optimised library calls is the compiler's business.
extern "C" {

__attribute__((visibility("default"))) void syslog(int priority, const char *format, ...) {
    va_list arguments;
    va_start(arguments, format);
    logLine(priority, format, arguments);
    va_end(arguments);
}

__attribute__((visibility("default"), format(printf, 3, 4))) void __syslog_chk(int priority, int, const char *format,
                                                                               ...) {
    va_list arguments;
    va_start(arguments, format);
    logLine(priority, format, arguments);
    va_end(arguments);
}
}

namespace tavdb::test {
namespace {

const std::string kLine = "tavdb: system error: module 62672 event 400 detail 13 (0xd)\n";
const std::string kLogLine = "<" + std::to_string(LOG_ERR) + ">" + kLine;

TEST(OswSystemError, ItGoesToSyslogAlsoWhenTheTraceIsOff) {
    const TraceOutput output = traced(nullptr, nullptr, [] {
        errno = 77;
        return dbs_me_syserr_notify_system_error(62672, 400, 13) == 0 && errno == 77 ? 0 : 1;
    });
    EXPECT_EQ(output.exitStatus, 0);
    EXPECT_EQ(output.systemLog, kLogLine);
    EXPECT_EQ(output.standardError, "");
}

TEST(OswSystemError, ItGoesToTheTraceAtLevelZero) {
    const TraceOutput output =
        traced("0", nullptr, [] { return dbs_me_syserr_notify_system_error(62672, 400, 13) == 0 ? 0 : 1; });
    EXPECT_EQ(output.exitStatus, 0);
    EXPECT_EQ(output.systemLog, kLogLine);
    EXPECT_EQ(output.standardError, kLine);
}

TEST(OswSystemError, TheAsynchronousOneReportsTheSame) {
    const TraceOutput output = traced("0", nullptr, [] {
        errno = 77;
        return dbs_me_syserr_notify_system_error_async(62672, 400, 13, 1, 2, 3) == 0 && errno == 77 ? 0 : 1;
    });
    EXPECT_EQ(output.exitStatus, 0);
    EXPECT_EQ(output.systemLog, kLogLine);
    EXPECT_EQ(output.standardError, kLine);
}

TEST(OswSystemError, NegativeNumbersArePrintedAsSuch) {
    const TraceOutput output =
        traced("0", nullptr, [] { return dbs_me_syserr_notify_system_error(-1, -2147483647 - 1, -3) == 0 ? 0 : 1; });
    EXPECT_EQ(output.standardError, "tavdb: system error: module -1 event -2147483648 detail -3 (0xfffffffd)\n");
}

TEST(OswSystemError, AForkWhileAnotherThreadReportsLeavesTheChildAbleToReport) {
    const TraceOutput output = traced(nullptr, nullptr, [] {
        systemLogDelayMs = 50;
        std::thread reporter([] { dbs_me_syserr_notify_system_error(1, 2, 3); });
        usleep(20000);
        Child child([] {
            alarm(3);
            return static_cast<int>(dbs_me_syserr_notify_system_error(4, 5, 6));
        });
        reporter.join();
        return child.join();
    });
    EXPECT_EQ(output.exitStatus, 0);
    EXPECT_NE(output.systemLog.find("module 1 event 2 detail 3"), std::string::npos);
    EXPECT_NE(output.systemLog.find("module 4 event 5 detail 6"), std::string::npos);
}

}  // namespace
}  // namespace tavdb::test
