// SPDX-License-Identifier: Apache-2.0
// What the wrapped libc calls share: while a Recording is active they are asked
// of the fault plan and noted in the event log, and the files, mappings and
// libraries they return are known by name. Outside a Recording a call goes
// straight on, so that the test's own files and GoogleTest's disturb nothing.
#pragma once

#include <sys/types.h>

#include <cstdint>
#include <functional>
#include <map>
#include <mutex>
#include <string>
#include <vector>

#include "fakes/event_log.h"

namespace tavdb_test {

/// Records libc calls until the end of its scope, of all threads. May be nested.
class Recording {
public:
    Recording();
    ~Recording();
    Recording(const Recording &) = delete;
    Recording &operator=(const Recording &) = delete;

    static bool isActive();
};

class LibcRecorder {
public:
    /// The real call. @param count of the bytes asked for, those that may move
    using Real = std::function<int64_t(int64_t count)>;

    /// The recorder, or null before the first Recording.
    static LibcRecorder *ifAny();
    static LibcRecorder &instance();

    /// Unmaps what a fault plan kept mapped, so that only true leaks are left.
    void releaseRefusedMappings();
    /// Forgets everything between two tests.
    void reset();

    /// @name For the wrappers, while recording
    /// @{
    int64_t open(const char *path, int flags, mode_t mode, const Real &real);
    int64_t openFile(const char *path, const char *mode, const Real &real);
    int64_t openLibrary(const char *path, int flags, const Real &real);
    int64_t map(int fd, uint64_t length, int64_t offset, const Real &real);
    int64_t unmap(void *address, uint64_t length, const Real &real);
    int64_t close(int fd, const Real &real);
    int64_t closeFile(const void *file, const Real &real);
    int64_t closeLibrary(const void *library, const Real &real);
    /// Any other call on a descriptor; the event carries its operation, details and numbers.
    int64_t onDescriptor(Event event, const Real &real);
    /// @}

    /// @name For the wrappers, outside a Recording
    /// @{
    void forgetDescriptor(int fd);
    void forgetFile(const void *file);
    void forgetMapping(const void *address);
    /// @}

private:
    enum class OnFault : uint8_t { isSkipped, isDoneAnyway };
    struct Mapping {
        std::string name;
        uint64_t length;
    };

    int64_t perform(Event &event, const Real &real, OnFault call = OnFault::isSkipped);
    int64_t closeNamed(std::map<const void *, std::string> &names, const void *key, Operation operation,
                       const Real &real);

    std::mutex mutex_;
    std::map<int, std::string> descriptors_;
    std::map<const void *, std::string> files_;
    std::map<const void *, std::string> libraries_;
    std::map<const void *, Mapping> mappings_;
    std::vector<std::pair<void *, uint64_t>> refused_;  ///< not unmapped because the plan said so
};

}  // namespace tavdb_test
