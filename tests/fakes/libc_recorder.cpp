// SPDX-License-Identifier: Apache-2.0
#include "fakes/libc_recorder.h"

#include <fcntl.h>
#include <sys/mman.h>

#include <atomic>
#include <cstdio>
#include <iterator>
#include <optional>
#include <utility>

#include "fakes/errno_keeper.h"
#include "fakes/fault_plan.h"
#include "fakes/home_folder.h"
#include "fakes/misuse.h"

namespace tavdb_test {

namespace {

constexpr char kOperatingSystem[] = "operating system";

std::atomic<int> activeRecordings = 0;
std::atomic<LibcRecorder *> theRecorder = nullptr;

struct NamedFlag {
    int flag;
    const char *name;
};
// O_SYNC stands before its part O_DSYNC, so that both bits are named once.
constexpr NamedFlag kOpenFlags[] = {
    {O_CREAT, "O_CREAT"},       {O_EXCL, "O_EXCL"},           {O_TRUNC, "O_TRUNC"},       {O_APPEND, "O_APPEND"},
    {O_SYNC, "O_SYNC"},         {O_DSYNC, "O_DSYNC"},         {O_NONBLOCK, "O_NONBLOCK"}, {O_CLOEXEC, "O_CLOEXEC"},
    {O_NOFOLLOW, "O_NOFOLLOW"}, {O_DIRECTORY, "O_DIRECTORY"},
};

/// "O_RDWR|O_CREAT 0664"; flags that a 64-bit open adds by itself are not shown.
std::string openFlagsText(int flags, mode_t mode) {
    constexpr const char *kAccess[] = {"O_RDONLY", "O_WRONLY", "O_RDWR", "O_ACCMODE"};
    std::string text = kAccess[flags & O_ACCMODE];
    int rest = flags & ~O_ACCMODE;
    for (const auto &[flag, name] : kOpenFlags) {
        if (flag == 0 || (rest & flag) != flag)
            continue;
        text += '|';
        text += name;
        rest &= ~flag;
    }
    if ((flags & O_CREAT) == 0)
        return text;
    char octal[16];
    snprintf(octal, sizeof(octal), " %04o", static_cast<unsigned>(mode));
    return text + octal;
}

bool isFailure(const Event &event) {
    switch (event.operation) {
        case Operation::sysFopen:
        case Operation::sysDlopen:
            return event.result == 0;
        case Operation::sysAllocate:
        case Operation::sysDlclose:
            return event.result != 0;
        default:
            return isTransfer(event.operation) ? event.result != event.length : event.result == -1;
    }
}

/// Whether the failed call's errno says why; a short transfer and the loader do not tell it.
bool leavesErrno(const Event &event) {
    return event.result == -1 || event.operation == Operation::sysFopen;
}

template <typename Map, typename Key>
auto take(std::mutex &mutex, Map &map, const Key &key) {
    const std::lock_guard guard(mutex);
    std::optional<typename Map::mapped_type> taken;
    if (auto node = map.extract(key))
        taken = std::move(node.mapped());
    return taken;
}

const void *pointerOf(int64_t result) {
    return reinterpret_cast<const void *>(static_cast<intptr_t>(result));
}

}  // namespace

Recording::Recording() {
    LibcRecorder::instance();
    ++activeRecordings;
}

Recording::~Recording() {
    --activeRecordings;
}

bool Recording::isActive() {
    return activeRecordings > 0;
}

LibcRecorder *LibcRecorder::ifAny() {
    return theRecorder;
}

LibcRecorder &LibcRecorder::instance() {
    static auto *const recorder = new LibcRecorder;
    theRecorder = recorder;
    return *recorder;
}

void LibcRecorder::releaseRefusedMappings() {
    std::vector<std::pair<void *, uint64_t>> refused;
    {
        const std::lock_guard guard(mutex_);
        refused.swap(refused_);
    }
    for (const auto &[address, length] : refused)
        munmap(address, static_cast<size_t>(length));
}

void LibcRecorder::reset() {
    releaseRefusedMappings();
    const std::lock_guard guard(mutex_);
    descriptors_.clear();
    files_.clear();
    libraries_.clear();
    mappings_.clear();
}

/// Asks the plan, makes the call unless a fault takes its place, notes what came of it.
int64_t LibcRecorder::perform(Event &event, const Real &real, OnFault call) {
    ErrnoKeeper keeper;
    const auto fault = faultPlan().next(event.operation, event.subject);
    const int64_t count = fault ? fault->movedOf(event.length) : event.length;
    const bool moves = isTransfer(event.operation) && count > 0;
    if (!fault || moves || call == OnFault::isDoneAnyway)
        event.result = real(count);
    const int errnoAfter = errno;
    event.failed = fault || isFailure(event);
    if (fault) {
        event.result = fault->resultFor(event.length);
        event.error = fault->error;
        keeper.set(fault->error);
    } else if (event.failed) {
        event.error = leavesErrno(event) ? errnoAfter : 0;
        keeper.set(errnoAfter);
    }
    eventLog().add(event);
    return event.result;
}

int64_t LibcRecorder::open(const char *path, int flags, mode_t mode, const Real &real) {
    Event event{.operation = Operation::sysOpen,
                .subject = nameInHome(path),
                .details = openFlagsText(flags, mode),
                .argument = flags};
    const int64_t fd = perform(event, real);
    const std::lock_guard guard(mutex_);
    if (!event.failed)
        descriptors_[static_cast<int>(fd)] = event.subject;
    return fd;
}

int64_t LibcRecorder::openFile(const char *path, const char *mode, const Real &real) {
    Event event{.operation = Operation::sysFopen, .subject = nameInHome(path), .details = mode};
    const int64_t file = perform(event, real);
    const std::lock_guard guard(mutex_);
    if (file != 0)
        files_[pointerOf(file)] = event.subject;
    return file;
}

int64_t LibcRecorder::openLibrary(const char *path, int flags, const Real &real) {
    Event event{.operation = Operation::sysDlopen, .subject = nameInHome(path), .argument = flags};
    const int64_t library = perform(event, real);
    const std::lock_guard guard(mutex_);
    if (library != 0)
        libraries_[pointerOf(library)] = event.subject;
    return library;
}

int64_t LibcRecorder::onDescriptor(Event event, const Real &real) {
    {
        const std::lock_guard guard(mutex_);
        const auto found = descriptors_.find(event.fd);
        if (found != descriptors_.end())
            event.subject = found->second;
    }
    return event.subject.empty() ? real(event.length) : perform(event, real);
}

int64_t LibcRecorder::map(int fd, uint64_t length, int64_t offset, const Real &real) {
    Event event{.operation = Operation::sysMmap,
                .details = offset == 0 ? std::to_string(length)
                                       : transferText(static_cast<int64_t>(length), static_cast<uint64_t>(offset)),
                .fd = fd,
                .length = static_cast<int64_t>(length)};
    const int64_t address = onDescriptor(event, real);
    const std::lock_guard guard(mutex_);
    const auto found = descriptors_.find(fd);
    if (address != -1 && found != descriptors_.end())
        mappings_[pointerOf(address)] = {found->second, length};
    return address;
}

int64_t LibcRecorder::unmap(void *address, uint64_t length, const Real &real) {
    const std::optional<Mapping> mapping = take(mutex_, mappings_, address);
    if (!mapping)
        return real(0);
    Event event{.operation = Operation::sysMunmap,
                .subject = mapping->name,
                .details = std::to_string(length),
                .length = static_cast<int64_t>(length)};
    if (length != mapping->length)
        reportMisuse(kOperatingSystem,
                     textOf(event) + " of a mapping of " + std::to_string(mapping->length) + " bytes");
    bool called = false;
    const int64_t result = perform(event, [&](int64_t count) {
        called = true;
        return real(count);
    });
    const std::lock_guard guard(mutex_);
    if (!called)
        refused_.emplace_back(address, mapping->length);
    return result;
}

int64_t LibcRecorder::close(int fd, const Real &real) {
    if (const std::optional<std::string> name = take(mutex_, descriptors_, fd)) {
        Event event{.operation = Operation::sysClose, .subject = *name, .fd = fd};
        return perform(event, real, OnFault::isDoneAnyway);
    }
    const int64_t result = real(0);
    if (result == -1 && errno == EBADF)
        reportMisuse(kOperatingSystem, "close of descriptor " + std::to_string(fd) + ", which is not open");
    return result;
}

int64_t LibcRecorder::closeFile(const void *file, const Real &real) {
    return closeNamed(files_, file, Operation::sysFclose, real);
}

int64_t LibcRecorder::closeLibrary(const void *library, const Real &real) {
    return closeNamed(libraries_, library, Operation::sysDlclose, real);
}

int64_t LibcRecorder::closeNamed(std::map<const void *, std::string> &names, const void *key, Operation operation,
                                 const Real &real) {
    const std::optional<std::string> name = take(mutex_, names, key);
    if (!name)
        return real(0);
    Event event{.operation = operation, .subject = *name};
    return perform(event, real, OnFault::isDoneAnyway);
}

void LibcRecorder::forgetDescriptor(int fd) {
    take(mutex_, descriptors_, fd);
}

void LibcRecorder::forgetFile(const void *file) {
    take(mutex_, files_, file);
}

void LibcRecorder::forgetMapping(const void *address) {
    take(mutex_, mappings_, address);
}

}  // namespace tavdb_test
