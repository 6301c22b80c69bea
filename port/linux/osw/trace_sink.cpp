// SPDX-License-Identifier: Apache-2.0
#include "osw/trace_sink.h"

#include <errno.h>
#include <fcntl.h>
#include <limits.h>
#include <signal.h>
#include <string.h>
#include <syslog.h>
#include <time.h>
#include <unistd.h>

#include "osw/file_identity.h"
#include "osw/system_log.h"

namespace tavdb::osw {

namespace {

constexpr mode_t kFileMode = 0664;

enum class SinkKind : uint8_t { standardError, systemLog, file };

struct Sink {
    SinkKind kind;
    int fd;                 // of a file
    FileIdentity identity;  // of a file
    char path[PATH_MAX];    // of a file
};

Sink sink;

int openSinkFile() {
    // O_NONBLOCK: a pipe that nobody reads must not stop the program.
    return ::open(sink.path, O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC | O_NOCTTY | O_NONBLOCK, kFileMode);
}

/// The file's descriptor. A program that closes all its descriptors, then opens its own files, must not find trace
/// lines in them.
int fileDescriptor() {
    int fd = __atomic_load_n(&sink.fd, __ATOMIC_RELAXED);
    if (isOpenOn(fd, sink.identity))
        return fd;
    const int again = openSinkFile();
    if (!isOpenOn(again, sink.identity) ||
        !__atomic_compare_exchange_n(&sink.fd, &fd, again, false, __ATOMIC_RELAXED, __ATOMIC_RELAXED)) {
        if (again >= 0)
            ::close(again);
        return STDERR_FILENO;
    }
    return again;
}

/// Keeps a reader that went away from ending the program: SIGPIPE of this thread waits for the end of the scope and
/// is dropped there.
class WithoutPipeSignal {
public:
    WithoutPipeSignal() {
        sigset_t pending;
        sigemptyset(&pipe_);
        sigaddset(&pipe_, SIGPIPE);
        sigpending(&pending);
        wasPending_ = sigismember(&pending, SIGPIPE) == 1;
        pthread_sigmask(SIG_BLOCK, &pipe_, &before_);
    }
    ~WithoutPipeSignal() {
        const struct timespec now = {0, 0};
        if (!wasPending_)
            while (sigtimedwait(&pipe_, nullptr, &now) < 0 && errno == EINTR) {
            }
        pthread_sigmask(SIG_SETMASK, &before_, nullptr);
    }
    WithoutPipeSignal(const WithoutPipeSignal &) = delete;
    WithoutPipeSignal &operator=(const WithoutPipeSignal &) = delete;

private:
    sigset_t pipe_;
    sigset_t before_;
    bool wasPending_;
};

void writeLine(int fd, const char *line, size_t length) {
    const WithoutPipeSignal guard;
    while (::write(fd, line, length) < 0 && errno == EINTR) {
    }
}

}  // namespace

void chooseSink(const char *name) {
    if (name == nullptr)
        return;
    if (strcmp(name, "syslog") == 0)
        sink.kind = SinkKind::systemLog;
    if (name[0] != '/' || strlen(name) >= sizeof sink.path)
        return;
    memcpy(sink.path, name, strlen(name) + 1);
    sink.fd = openSinkFile();
    if (sink.fd >= 0 && identify(sink.fd, sink.identity) == 0)
        sink.kind = SinkKind::file;
}

void writeToSink(int32_t level, const char *line, size_t length) {
    if (sink.kind == SinkKind::systemLog)
        return writeSystemLog(level == 0 ? LOG_ERR : LOG_DEBUG, line);
    writeLine(sink.kind == SinkKind::file ? fileDescriptor() : STDERR_FILENO, line, length);
}

}  // namespace tavdb::osw
