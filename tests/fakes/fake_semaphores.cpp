// SPDX-License-Identifier: Apache-2.0
#include "fakes/fake_semaphores.h"

#include <fcntl.h>

#include <chrono>
#include <utility>

#include "fakes/errno_keeper.h"
#include "fakes/fault_plan.h"
#include "fakes/home_folder.h"
#include "fakes/misuse.h"
#include "tavdb_platform.h"

namespace tavdb_test {

namespace {

constexpr char kSemaphores[] = "semaphores";
constexpr uint32_t kCreationsOfATable = 3;
constexpr std::chrono::milliseconds kLongestHold = std::chrono::seconds(20);
constexpr uint32_t kMostWaitsForAPost = 1000;

struct KindTraits {
    Operation creation;
    int32_t initial;  ///< third argument of the creation
};

KindTraits creationOf(FakeSemaphores::Kind kind) {
    switch (kind) {
        case FakeSemaphores::Kind::mutex:
            return {Operation::mutexCreate, 1};
        case FakeSemaphores::Kind::count:
            return {Operation::countCreate, 0};
        case FakeSemaphores::Kind::event:
            break;
    }
    return {Operation::eventCreate, 0};
}

std::string numbered(uint32_t handle) {
    return '#' + std::to_string(handle);
}

}  // namespace

uint32_t FakeSemaphores::handleOf(const std::string &table, Kind kind) const {
    const Lock lock(mutex_);
    for (const auto &[handle, object] : objects_) {
        if (object.kind == kind && object.table == table)
            return handle;
    }
    return 0;
}

FakeSemaphores::Counts FakeSemaphores::countsOf(const std::string &table, Kind kind) const {
    const Lock lock(mutex_);
    const Object *const object = find(table, kind);
    return object != nullptr ? object->counts : Counts{};
}

std::vector<std::string> FakeSemaphores::heldMutexes() const {
    const Lock lock(mutex_);
    std::vector<std::string> held;
    for (const auto &[handle, object] : objects_) {
        if (object.owner != std::thread::id())
            held.push_back(object.table);
    }
    return held;
}

void FakeSemaphores::abandonMutex(const std::string &table) {
    const Lock lock(mutex_);
    abandoned_.insert(table);
}

void FakeSemaphores::onEventWait(WaitAction action) {
    const Lock lock(mutex_);
    waitAction_ = std::move(action);
}

void FakeSemaphores::reset() {
    const Lock lock(mutex_);
    for (auto &[handle, object] : objects_)
        object = {.kind = object.kind, .table = object.table};
    announced_.clear();
    abandoned_.clear();
    waitAction_ = nullptr;
}

void FakeSemaphores::announce(const char *path, int32_t fd) {
    const ErrnoKeeper keeper;
    const Lock lock(mutex_);
    if (path == nullptr)
        return reportMisuse(kSemaphores, "a table was announced without its path");
    const std::string table = nameInHome(path);
    if (fcntl(fd, F_GETFD) == -1)
        reportMisuse(kSemaphores, table + " was announced with a descriptor that is not open");
    announced_[std::this_thread::get_id()] = {table, kCreationsOfATable};
    eventLog().add({.operation = Operation::semAnnounce, .subject = table, .fd = fd});
}

int32_t FakeSemaphores::create(Kind kind, uint32_t *handle, int32_t option, int32_t initial) {
    ErrnoKeeper keeper;
    const Lock lock(mutex_);
    const KindTraits traits = creationOf(kind);
    if (handle == nullptr || option != 0 || initial != traits.initial) {
        reportMisuse(kSemaphores, "an object was created with wrong arguments");
        return platformCode(EINVAL);
    }
    const uint32_t object = objectFor(kind);
    Event event{.operation = traits.creation, .subject = objects_[object].table, .argument = initial};
    if (const auto fault = faultPlan().next(event.operation, event.subject)) {
        event.result = fault->resultFor(0);
        event.error = fault->error;
    }
    event.failed = event.result != 0;
    if (!event.failed)
        *handle = object;
    keeper.set(event.error);
    eventLog().add(event);
    return static_cast<int32_t>(event.result);
}

// Creating again for the same table gives the same object.
uint32_t FakeSemaphores::objectFor(Kind kind) {
    Announcement &announcement = announced_[std::this_thread::get_id()];
    const bool announced = announcement.creationsLeft > 0;
    if (announced) {
        --announcement.creationsLeft;
        for (const auto &[handle, object] : objects_) {
            if (object.kind == kind && object.table == announcement.table)
                return handle;
        }
    }
    const uint32_t handle = ++lastHandle_;
    objects_[handle] = {.kind = kind, .table = announced ? announcement.table : numbered(handle)};
    return handle;
}

FakeSemaphores::Object *FakeSemaphores::find(uint32_t handle, Kind kind) {
    const auto found = objects_.find(handle);
    if (found != objects_.end() && found->second.kind == kind)
        return &found->second;
    if (handle != 0)
        reportMisuse(kSemaphores, "handle " + std::to_string(handle) + " is none, or not of the kind that was used");
    return nullptr;
}

const FakeSemaphores::Object *FakeSemaphores::find(const std::string &table, Kind kind) const {
    for (const auto &[handle, object] : objects_) {
        if (object.kind == kind && object.table == table)
            return &object;
    }
    return nullptr;
}

int32_t FakeSemaphores::perform(Operation operation, Kind kind, uint32_t handle, int32_t timeoutMs, Step step) {
    ErrnoKeeper keeper;
    Lock lock(mutex_);
    Object *const object = find(handle, kind);
    Event event{.operation = operation, .subject = numbered(handle), .argument = timeoutMs};
    if (object != nullptr)
        event.subject = object->table;
    const auto fault = faultPlan().next(operation, event.subject);
    const bool refused = object == nullptr || (fault && operation != Operation::mutexRelease);
    // A release that fails counts as given back: nobody could go on otherwise.
    event.result = refused ? platformCode(EBADF) : (this->*step)(*object, timeoutMs, lock);
    event.error = static_cast<int32_t>(event.result) & ~platformCode(0);
    if (fault) {
        event.result = fault->resultFor(0);
        event.error = fault->error;
    }
    event.failed = event.result != 0;
    keeper.set(event.error);
    eventLog().add(event);
    return static_cast<int32_t>(event.result);
}

int32_t FakeSemaphores::take(Object &mutex, int32_t timeoutMs, Lock &lock) {
    const auto isFree = [&] { return mutex.owner == std::thread::id(); };
    if (!isFree() && timeoutMs == 0)
        return platformCode(EBUSY);
    if (mutex.owner == std::this_thread::get_id()) {
        reportMisuse(kSemaphores, "the mutex of " + mutex.table + " was requested twice by one thread: a dead-lock");
        return platformCode(EDEADLK);
    }
    const bool isLimited = timeoutMs > 0;
    if (!released_.wait_for(lock, isLimited ? std::chrono::milliseconds(timeoutMs) : kLongestHold, isFree)) {
        if (!isLimited)
            reportMisuse(kSemaphores, "the mutex of " + mutex.table + " is not released by its holder: a dead-lock");
        return platformCode(ETIMEDOUT);
    }
    mutex.owner = std::this_thread::get_id();
    ++mutex.counts.requests;
    return 0;
}

int32_t FakeSemaphores::giveBack(Object &mutex, int32_t /*timeoutMs*/, Lock & /*lock*/) {
    if (mutex.owner != std::this_thread::get_id()) {
        reportMisuse(kSemaphores, "the mutex of " + mutex.table + " was released by a thread that does not hold it");
        return platformCode(EPERM);
    }
    mutex.owner = std::thread::id();
    ++mutex.counts.releases;
    released_.notify_all();
    return 0;
}

int32_t FakeSemaphores::lower(Object &count, int32_t /*timeoutMs*/, Lock & /*lock*/) {
    ++count.counts.requests;
    if (count.value == 0) {
        reportMisuse(kSemaphores, "the count of " + count.table + " is 0 and nobody posts it: a dead-lock");
        return platformCode(EDEADLK);
    }
    --count.value;
    return 0;
}

int32_t FakeSemaphores::raise(Object &count, int32_t /*timeoutMs*/, Lock & /*lock*/) {
    ++count.counts.releases;
    ++count.value;
    return 0;
}

int32_t FakeSemaphores::await(Object &event, int32_t /*timeoutMs*/, Lock & /*lock*/) {
    ++event.counts.requests;
    const Object *const mutex = find(event.table, Kind::mutex);
    if (mutex != nullptr && mutex->owner == std::this_thread::get_id())
        reportMisuse(kSemaphores, "the event of " + event.table + " is waited for with the mutex held: a dead-lock");
    return 0;
}

int32_t FakeSemaphores::post(Object &event, int32_t /*timeoutMs*/, Lock & /*lock*/) {
    ++event.counts.releases;
    event.value = 0;
    return 0;
}

int32_t FakeSemaphores::requestMutex(uint32_t handle, int32_t timeoutMs) {
    return perform(Operation::mutexRequest, Kind::mutex, handle, timeoutMs, &FakeSemaphores::take);
}

int32_t FakeSemaphores::releaseMutex(uint32_t handle) {
    return perform(Operation::mutexRelease, Kind::mutex, handle, 0, &FakeSemaphores::giveBack);
}

int32_t FakeSemaphores::waitCount(uint32_t handle, int32_t timeoutMs) {
    return perform(Operation::countWait, Kind::count, handle, timeoutMs, &FakeSemaphores::lower);
}

int32_t FakeSemaphores::postCount(uint32_t handle) {
    return perform(Operation::countPost, Kind::count, handle, 0, &FakeSemaphores::raise);
}

int32_t FakeSemaphores::waitEvent(uint32_t handle, int32_t timeoutMs) {
    const int32_t code = perform(Operation::eventWait, Kind::event, handle, timeoutMs, &FakeSemaphores::await);
    const ErrnoKeeper keeper;
    Lock lock(mutex_);
    const auto found = objects_.find(handle);
    if (found == objects_.end())
        return code;
    const std::string table = found->second.table;
    if (++found->second.value > kMostWaitsForAPost)
        endHangingTest(kSemaphores, "the event of " + table + " is waited for again and again, and nobody posts it");
    const WaitAction action = waitAction_;
    lock.unlock();  // the action calls the library, which comes back here
    if (code == 0 && action)
        action(table);
    return code;
}

int32_t FakeSemaphores::postEvent(uint32_t handle) {
    return perform(Operation::eventPost, Kind::event, handle, 0, &FakeSemaphores::post);
}

int32_t FakeSemaphores::takeAbandoned(uint32_t handle) {
    const ErrnoKeeper keeper;
    const Lock lock(mutex_);
    const Object *const mutex = find(handle, Kind::mutex);
    if (mutex == nullptr)
        return 0;
    if (mutex->owner != std::this_thread::get_id())
        reportMisuse(kSemaphores,
                     "the mutex of " + mutex->table + " was asked about by a thread that does not hold it");
    const bool died = abandoned_.erase(mutex->table) != 0;
    eventLog().add(
        {.operation = Operation::mutexAbandoned, .subject = mutex->table, .result = died ? 1 : 0, .failed = died});
    return died ? 1 : 0;
}

FakeSemaphores &fakeSemaphores() {
    static auto *const semaphores = new FakeSemaphores;
    return *semaphores;
}

}  // namespace tavdb_test

using tavdb_test::FakeSemaphores;
using tavdb_test::fakeSemaphores;

extern "C" {

int32_t tavOSWCreateMutexSem(uint32_t *handle, int32_t option, int32_t initial) {
    return fakeSemaphores().create(FakeSemaphores::Kind::mutex, handle, option, initial);
}

int32_t tavOSWRequestMutexSem(uint32_t handle, int32_t timeoutMs) {
    return fakeSemaphores().requestMutex(handle, timeoutMs);
}

int32_t tavOSWReleaseMutexSem(uint32_t handle) {
    return fakeSemaphores().releaseMutex(handle);
}

int32_t tavOSWCreateCountSem(uint32_t *handle, int32_t option, int32_t initial) {
    return fakeSemaphores().create(FakeSemaphores::Kind::count, handle, option, initial);
}

int32_t tavOSWWaitCountSem(uint32_t handle, int32_t timeoutMs) {
    return fakeSemaphores().waitCount(handle, timeoutMs);
}

int32_t tavOSWPostCountSem(uint32_t handle) {
    return fakeSemaphores().postCount(handle);
}

int32_t tavOSWCreateEventSem(uint32_t *handle, int32_t option, int32_t initial) {
    return fakeSemaphores().create(FakeSemaphores::Kind::event, handle, option, initial);
}

int32_t tavOSWWaitEventSem(uint32_t handle, int32_t timeoutMs) {
    return fakeSemaphores().waitEvent(handle, timeoutMs);
}

int32_t tavOSWPostEventSem(uint32_t handle) {
    return fakeSemaphores().postEvent(handle);
}

void tavOSWSemAnnounce(const char *path, int32_t fd) {
    fakeSemaphores().announce(path, fd);
}

int32_t tavOSWMutexAbandoned(uint32_t handle) {
    return fakeSemaphores().takeAbandoned(handle);
}
}
