// SPDX-License-Identifier: Apache-2.0
// The trace: which lines pass, where they go, and that tracing disturbs nobody.
#include <syslog.h>

#include <atomic>
#include <map>
#include <sstream>
#include <vector>

#include "port/osw/osw_trace_support.h"

namespace tavdb::test {
namespace {

int traceAllLevels() {
    for (const int32_t level : {-1, 0, 2, 5, 98, 99})
        dbs_me_debug_trace(level, "level %d\n", level);
    return 0;
}

TEST(OswTrace, IsSilentByDefault) {
    EXPECT_EQ(traced(nullptr, nullptr, traceAllLevels).standardError, "");
    const TempFolder folder;
    const std::string file = folder / "trace";
    EXPECT_EQ(traced(nullptr, file.c_str(), traceAllLevels).standardError, "");
    EXPECT_FALSE(std::filesystem::exists(file));
}

TEST(OswTrace, PassesLinesUpToTheLevel) {
    EXPECT_EQ(traced("0", nullptr, traceAllLevels).standardError, "level -1\nlevel 0\n");
    EXPECT_EQ(traced("2", nullptr, traceAllLevels).standardError, "level -1\nlevel 0\nlevel 2\n");
    EXPECT_EQ(traced("98", nullptr, traceAllLevels).standardError, "level -1\nlevel 0\nlevel 2\nlevel 5\nlevel 98\n");
    EXPECT_EQ(traced("2147483647", nullptr, traceAllLevels).standardError,
              "level -1\nlevel 0\nlevel 2\nlevel 5\nlevel 98\nlevel 99\n");
}

TEST(OswTrace, ABadNumberMeansOff) {
    for (const char *const level : {"", "x", "2x", " 2", "+2", "-1", "2 ", "0x2", "2147483648", "99999999999999999999"})
        EXPECT_EQ(traced(level, nullptr, traceAllLevels).standardError, "") << level;
}

TEST(OswTrace, TheLowestLevelDoesNotSlipThroughWhenOff) {
    const auto lowest = [] {
        dbs_me_debug_trace(-2147483647 - 1, "lowest\n");
        dbs_me_debug_trace(-2147483647 - 1, "lowest\n");
        return 0;
    };
    EXPECT_EQ(traced(nullptr, nullptr, lowest).standardError, "");
    EXPECT_EQ(traced("0", nullptr, lowest).standardError, "lowest\nlowest\n");
}

TEST(OswTrace, TheEnvironmentIsReadOnce) {
    const auto body = [] {
        dbs_me_debug_trace(0, "first\n");
        setenv("TAVDB_TRACE", "99", 1);
        dbs_me_debug_trace(2, "second\n");
        return 0;
    };
    EXPECT_EQ(traced("0", nullptr, body).standardError, "first\n");
    EXPECT_EQ(traced(nullptr, nullptr, body).standardError, "");
}

TEST(OswTrace, TheDestinationCanBeNamed) {
    EXPECT_EQ(traced("0", "stderr", traceAllLevels).standardError, "level -1\nlevel 0\n");
    EXPECT_EQ(traced("0", "", traceAllLevels).standardError, "level -1\nlevel 0\n");
    EXPECT_EQ(traced("0", "elsewhere", traceAllLevels).standardError, "level -1\nlevel 0\n");
}

TEST(OswTrace, SyslogGetsErrorsAsErrorsAndTheRestAsDebugLines) {
    const TraceOutput output = traced("2", "syslog", traceAllLevels);
    const auto line = [](int priority, int level) {
        return "<" + std::to_string(priority) + ">level " + std::to_string(level) + "\n";
    };
    EXPECT_EQ(output.systemLog, line(LOG_DEBUG, -1) + line(LOG_ERR, 0) + line(LOG_DEBUG, 2));
    EXPECT_EQ(output.standardError, "");
}

TEST(OswTrace, SyslogTakesTheTextLiterally) {
    const TraceOutput output = traced("0", "syslog", [] {
        dbs_me_debug_trace(0, "%s\n", "50%s%n");
        return 0;
    });
    EXPECT_NE(output.systemLog.find("50%s%n\n"), std::string::npos);
}

TEST(OswTrace, AFileIsMadeAndAppendedTo) {
    const TempFolder folder;
    const std::string file = folder / "trace";
    umask(022);
    EXPECT_EQ(traced("0", file.c_str(), traceAllLevels).standardError, "");
    EXPECT_EQ(contentOf(file), "level -1\nlevel 0\n");
    struct stat status = {};
    ASSERT_EQ(stat(file.c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 0777U, 0644U);
    traced("0", file.c_str(), traceAllLevels);
    EXPECT_EQ(contentOf(file), "level -1\nlevel 0\nlevel -1\nlevel 0\n");
}

TEST(OswTrace, AFileIsOpenedOnceAndClosedByExec) {
    const TempFolder folder;
    const std::string file = folder / "trace";
    const TraceOutput output = traced("0", file.c_str(), [] {
        dbs_me_debug_trace(0, "first\n");
        const size_t descriptors = openDescriptors();
        for (int i = 0; i < 10; ++i)
            dbs_me_debug_trace(0, "more\n");
        for (const auto &entry : std::filesystem::directory_iterator("/proc/self/fd")) {
            const int fd = std::stoi(entry.path().filename());
            std::error_code ignored;
            if (std::filesystem::read_symlink(entry.path(), ignored).filename() == "trace" &&
                (fcntl(fd, F_GETFD) & FD_CLOEXEC) == 0)
                return 1;
        }
        return openDescriptors() == descriptors ? 0 : 2;
    });
    EXPECT_EQ(output.exitStatus, 0);
}

TEST(OswTrace, AFileThatCannotBeOpenedMeansStandardError) {
    const TempFolder folder;
    const std::string missing = folder / "missing/trace";
    EXPECT_EQ(traced("0", missing.c_str(), traceAllLevels).standardError, "level -1\nlevel 0\n");
    EXPECT_EQ(traced("0", folder.path().c_str(), traceAllLevels).standardError, "level -1\nlevel 0\n");
    const std::string tooLong = "/" + std::string(5000, 'x');
    EXPECT_EQ(traced("0", tooLong.c_str(), traceAllLevels).standardError, "level -1\nlevel 0\n");
}

TEST(OswTrace, APipeThatNobodyReadsStopsNobody) {
    const TempFolder folder;
    const std::string pipePath = folder / "pipe";
    ASSERT_EQ(mkfifo(pipePath.c_str(), 0600), 0);
    EXPECT_EQ(traced("0", pipePath.c_str(), traceAllLevels).standardError, "level -1\nlevel 0\n");
}

TEST(OswTrace, AReaderThatWentAwayEndsNobody) {
    const TraceOutput output = traced("0", nullptr, [] {
        int ends[2] = {};
        if (pipe(ends) != 0 || dup2(ends[1], STDERR_FILENO) < 0)
            return 1;
        close(ends[0]);
        dbs_me_debug_trace(0, "nobody reads this\n");
        sigset_t pending;
        sigpending(&pending);
        return sigismember(&pending, SIGPIPE);
    });
    EXPECT_EQ(output.exitStatus, 0);
}

TEST(OswTrace, ASignalThatWasPendingBeforeStaysSo) {
    const TraceOutput output = traced("0", nullptr, [] {
        sigset_t set;
        sigemptyset(&set);
        sigaddset(&set, SIGPIPE);
        sigprocmask(SIG_BLOCK, &set, nullptr);
        raise(SIGPIPE);
        dbs_me_debug_trace(0, "line\n");
        sigset_t pending;
        sigpending(&pending);
        sigset_t blocked;
        sigprocmask(SIG_BLOCK, nullptr, &blocked);
        return sigismember(&pending, SIGPIPE) == 1 && sigismember(&blocked, SIGPIPE) == 1 ? 0 : 1;
    });
    EXPECT_EQ(output.exitStatus, 0);
    EXPECT_EQ(output.standardError, "line\n");
}

TEST(OswTrace, ALongLineIsCutAndEnded) {
    const auto lineOf = [](size_t length) {
        return traced("0", nullptr,
                      [length] {
                          dbs_me_debug_trace(0, "%s\n", std::string(length, 'x').c_str());
                          return 0;
                      })
            .standardError;
    };
    EXPECT_EQ(lineOf(1021), std::string(1021, 'x') + "\n");
    EXPECT_EQ(lineOf(1022), std::string(1022, 'x') + "\n");
    EXPECT_EQ(lineOf(1023), std::string(1022, 'x') + "\n");
    EXPECT_EQ(lineOf(5000), std::string(1022, 'x') + "\n");
}

TEST(OswTrace, ALongLineIsCutForSyslogToo) {
    const TraceOutput output = traced("0", "syslog", [] {
        dbs_me_debug_trace(0, "%s\n", std::string(5000, 'x').c_str());
        return 0;
    });
    EXPECT_EQ(output.systemLog, "<" + std::to_string(LOG_ERR) + ">" + std::string(1022, 'x') + "\n");
}

// Some lines are written in pieces; the trace adds nothing to them.
TEST(OswTrace, TextWithoutALineEndIsWrittenAsItIs) {
    const TraceOutput output = traced("0", nullptr, [] {
        dbs_me_debug_trace(0, "[%10d]:", 12);
        dbs_me_debug_trace(0, "[0x%8x]", 0xabcU);
        dbs_me_debug_trace(0, "%s", "");
        dbs_me_debug_trace(0, "\n");
        return 0;
    });
    EXPECT_EQ(output.standardError, "[        12]:[0x     abc]\n");
}

TEST(OswTrace, ErrnoIsUntouched) {
    const TempFolder folder;
    const std::string missing = folder / "missing/trace";
    const std::string file = folder / "trace";
    for (const char *const destination : {"stderr", "syslog", missing.c_str(), file.c_str()})
        for (const char *const level : {"0", "off"})
            EXPECT_EQ(traced(level, destination,
                             [] {
                                 for (int i = 0; i < 3; ++i) {
                                     errno = 77;
                                     dbs_me_debug_trace(0, "line\n");
                                     if (errno != 77)
                                         return 1;
                                 }
                                 return 0;
                             })
                          .exitStatus,
                      0)
                << destination << " " << level;
}

TEST(OswTrace, ErrnoIsUntouchedWhenTheWriteFails) {
    EXPECT_EQ(traced("0", nullptr,
                     [] {
                         close(STDERR_FILENO);
                         errno = 77;
                         dbs_me_debug_trace(0, "line\n");
                         return errno == 77 ? 0 : 1;
                     })
                  .exitStatus,
              0);
}

TEST(OswTrace, LinesOfManyWritersStayWhole) {
    constexpr int kProcesses = 3;
    constexpr int kThreads = 3;
    constexpr int kLines = 300;
    const TempFolder folder;
    const std::string file = folder / "trace";
    const TraceOutput output = traced("2", file.c_str(), [] {
        std::vector<Child> children;
        for (int process = 0; process < kProcesses; ++process)
            children.emplace_back([process] {
                std::vector<std::thread> threads;
                for (int thread = 0; thread < kThreads; ++thread)
                    threads.emplace_back([process, thread] {
                        const std::string text(static_cast<size_t>(100 + 50 * thread), static_cast<char>('a' + thread));
                        for (int line = 0; line < kLines; ++line)
                            dbs_me_debug_trace(2, "<%d.%d %s>\n", process, thread, text.c_str());
                    });
                for (std::thread &thread : threads)
                    thread.join();
                return 0;
            });
        int failed = 0;
        for (Child &child : children)
            failed += child.join();
        return failed;
    });
    EXPECT_EQ(output.exitStatus, 0);
    std::map<std::string, int> lines;
    std::istringstream all(contentOf(file));
    for (std::string line; std::getline(all, line);)
        ++lines[line];
    EXPECT_EQ(lines.size(), static_cast<size_t>(kProcesses * kThreads));
    for (const auto &[line, count] : lines)
        EXPECT_EQ(count, kLines) << line;
}

TEST(OswTrace, ThreadsThatTraceFirstAtOnceLoseNothing) {
    constexpr int kThreads = 8;
    const TempFolder folder;
    const std::string file = folder / "trace";
    const TraceOutput output = traced("0", file.c_str(), [] {
        std::atomic<bool> go = false;
        std::vector<std::thread> threads;
        for (int i = 0; i < kThreads; ++i)
            threads.emplace_back([&] {
                while (!go)
                    sched_yield();
                dbs_me_debug_trace(0, "line\n");
            });
        const size_t descriptors = openDescriptors();
        go = true;
        for (std::thread &thread : threads)
            thread.join();
        return openDescriptors() == descriptors + 1 ? 0 : 1;
    });
    EXPECT_EQ(output.exitStatus, 0);
    EXPECT_EQ(contentOf(file).size(), kThreads * sizeof "line");
}

// A daemon that closes every descriptor must not find trace lines in the file
// it opens next.
TEST(OswTrace, AClosedDescriptorIsNotWrittenTo) {
    const TempFolder folder;
    const std::string file = folder / "trace";
    const std::string own = folder / "own";
    const TraceOutput output = traced("0", file.c_str(), [&] {
        dbs_me_debug_trace(0, "before\n");
        if (close_range(3, ~0U, 0) != 0)
            return 1;
        for (int i = 0; i < 4; ++i)
            if (open(own.c_str(), O_RDWR | O_CREAT, 0600) < 0)
                return 2;
        dbs_me_debug_trace(0, "after\n");
        dbs_me_debug_trace(0, "later\n");
        return 0;
    });
    EXPECT_EQ(output.exitStatus, 0);
    EXPECT_EQ(contentOf(own), "");
    EXPECT_EQ(contentOf(file), "before\nafter\nlater\n");
}

TEST(OswTrace, AChildGoesOnTracing) {
    const TempFolder folder;
    const std::string file = folder / "trace";
    const TraceOutput output = traced("0", file.c_str(), [] {
        dbs_me_debug_trace(0, "parent\n");
        return Child([] {
                   dbs_me_debug_trace(0, "child\n");
                   return 0;
               })
            .join();
    });
    EXPECT_EQ(output.exitStatus, 0);
    EXPECT_EQ(contentOf(file), "parent\nchild\n");
}

TEST(OswTrace, AMissingPageIsRemarkedOnce) {
    const TempFolder folder;
    const std::string table = folder / "table";
    makeTable(table);
    std::filesystem::create_directory(table + ".sem");
    const TraceOutput output = traced("2", nullptr, [&] {
        const Semaphores set = attach(table);
        for (int i = 0; i < 3; ++i)
            if (tavOSWRequestMutexSem(set.mutex, -1) != 0 || tavOSWReleaseMutexSem(set.mutex) != 0)
                return 1;
        return attach(table) == set ? 0 : 2;
    });
    EXPECT_EQ(output.exitStatus, 0);
    EXPECT_EQ(output.standardError, "tavosw: [" + std::filesystem::canonical(table).string() +
                                        ".sem] cannot be shared, error " + std::to_string(EISDIR) + ": waits poll\n");
}

}  // namespace
}  // namespace tavdb::test
