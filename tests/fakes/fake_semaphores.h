// SPDX-License-Identifier: Apache-2.0
// The platform's semaphores inside one process: counts what is done with them
// and notices what would stop a device, a mutex requested twice by one thread
// or released by one that does not hold it. Not for several processes.
#pragma once

#include <condition_variable>
#include <cstdint>
#include <functional>
#include <map>
#include <mutex>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include "fakes/event_log.h"

namespace tavdb_test {

class FakeSemaphores {
public:
    enum class Kind : uint8_t { mutex, count, event };
    struct Counts {
        uint32_t requests = 0;  ///< of a mutex; waits of the others
        uint32_t releases = 0;  ///< of a mutex; posts of the others
    };
    /// Called in place of waiting for an event, for example to release the lock that is waited for.
    using WaitAction = std::function<void(const std::string &table)>;

    /// The handle that belongs to a table, named by its path in the test's folder; 0 when there is none.
    uint32_t handleOf(const std::string &table, Kind kind) const;
    Counts countsOf(const std::string &table, Kind kind) const;
    /// The tables whose mutex is held.
    std::vector<std::string> heldMutexes() const;
    /// The next question about that table's mutex finds that its previous holder died.
    void abandonMutex(const std::string &table);
    void onEventWait(WaitAction action);
    /// Forgets everything between two tests but the objects: they are never destroyed.
    void reset();

    void announce(const char *path, int32_t fd);
    int32_t create(Kind kind, uint32_t *handle, int32_t option, int32_t initial);
    int32_t requestMutex(uint32_t handle, int32_t timeoutMs);
    int32_t releaseMutex(uint32_t handle);
    int32_t waitCount(uint32_t handle, int32_t timeoutMs);
    int32_t postCount(uint32_t handle);
    int32_t waitEvent(uint32_t handle, int32_t timeoutMs);
    int32_t postEvent(uint32_t handle);
    int32_t takeAbandoned(uint32_t handle);

private:
    struct Object {
        Kind kind{};
        std::string table = {};
        Counts counts = {};
        std::thread::id owner = {};  ///< of a held mutex
        uint32_t value = 0;          ///< of a count; waits since the last post of an event
    };
    struct Announcement {
        std::string table;
        uint32_t creationsLeft = 0;
    };
    using Lock = std::unique_lock<std::mutex>;
    using Step = int32_t (FakeSemaphores::*)(Object &object, int32_t timeoutMs, Lock &lock);

    int32_t perform(Operation operation, Kind kind, uint32_t handle, int32_t timeoutMs, Step step);
    Object *find(uint32_t handle, Kind kind);
    const Object *find(const std::string &table, Kind kind) const;
    uint32_t objectFor(Kind kind);

    int32_t take(Object &mutex, int32_t timeoutMs, Lock &lock);
    int32_t giveBack(Object &mutex, int32_t timeoutMs, Lock &lock);
    int32_t lower(Object &count, int32_t timeoutMs, Lock &lock);
    int32_t raise(Object &count, int32_t timeoutMs, Lock &lock);
    int32_t await(Object &event, int32_t timeoutMs, Lock &lock);
    int32_t post(Object &event, int32_t timeoutMs, Lock &lock);

    mutable std::mutex mutex_;
    std::condition_variable released_;
    std::map<uint32_t, Object> objects_;
    std::map<std::thread::id, Announcement> announced_;
    std::set<std::string> abandoned_;
    WaitAction waitAction_;
    uint32_t lastHandle_ = 0;
};

/// The semaphores of this process.
FakeSemaphores &fakeSemaphores();

}  // namespace tavdb_test
