// SPDX-License-Identifier: Apache-2.0
// tavdb lock and unlock: runs a program while a component is locked, and takes a
// lock away from whoever holds it.
#include "command.h"
#include "lock_set.h"
#include "program.h"
#include "program_lock.h"

namespace tavdb::command {

namespace {

struct LockCommandOptions {
    std::string path;
    bool shared = false;
    TimeoutOption timeout;
    std::vector<std::string> program;
};

std::optional<image::Located> locate(OpenedDatabase &opened, const std::string &path, Console &console) {
    auto located = image::locate(*opened.database, path);
    if (located)
        return std::move(*located.value);
    console.report(path, located.error);
    return std::nullopt;
}

/// @return the program's exit code; nothing when it did not run, which is reported then
std::optional<int> runLocked(const LockCommandOptions &options, const Common &common, Console &console) {
    auto opened = openDatabase(common, console);
    const auto located = opened ? locate(*opened, options.path, console) : std::nullopt;
    if (!located)
        return std::nullopt;
    const ProgramLock lock(*opened, located->component.key, options.shared, options.timeout.ms());
    if (lock.fault()) {
        console.report(located->path, *lock.fault());
        return std::nullopt;
    }
    const auto ended = runProgram(options.program, lock.signalsBefore());
    if (!lock.isThere())
        console.remark(located->path, "the lock was taken away while the program ran");
    if (!ended)
        console.report(options.program[0], ended.error);
    return ended.value;
}

void unlock(const std::string &path, const Common &common, Console &console) {
    auto opened = openDatabase(common, console);
    const auto located = opened ? locate(*opened, path, console) : std::nullopt;
    if (!located)
        return;
    auto *const session = opened->database->cleared();
    const int32_t code = tavDBMUnlock(session, located->component.key);
    if (code == TAVDB_ERR_NOT_LOCKED)
        console.report(located->path, {image::FaultKind::notFound, "is not locked"});
    else if (code != 0)
        console.report(located->path, image::faultOfCode(static_cast<uint32_t>(code), session->errorDetail));
}

}  // namespace

void addLock(Declarations &place) {
    auto options = std::make_shared<LockCommandOptions>();
    auto &command = place.add("lock", "Run a program while a component is locked");
    command.footer = "tavdb lock PATH -- PROGRAM [ARGUMENT ...]\nThe exit code is the program's.";
    command.add("PATH", &options->path, "the component", {.isRequired = true});
    command.add("--shared", &options->shared, "a lock that others can share");
    options->timeout.add(command);
    command.add("PROGRAM", &options->program, "the program and its arguments, behind --", {.isRequired = true});
    command.action = [options](const Common &common, Console &console) {
        const auto exitCode = runLocked(*options, common, console);
        // It need not be one of the codes that this command ends with otherwise.
        if (exitCode)
            std::exit(*exitCode);
    };
}

void addUnlock(Declarations &place) {
    auto path = std::make_shared<std::string>();
    auto &command = place.add("unlock", "Release a lock of a component, whoever holds it");
    command.footer = "For a lock whose holder is gone: a holder that is still there is not told.";
    command.add("PATH", path.get(), "the component", {.isRequired = true});
    command.action = [path](const Common &common, Console &console) { unlock(*path, common, console); };
}

}  // namespace tavdb::command
