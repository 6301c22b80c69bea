// SPDX-License-Identifier: Apache-2.0
// What the commands share: the options that stand before or behind any of them,
// the way to the database they work on, and how a command is added.
#pragma once

#include <CLI/App.hpp>
#include <functional>
#include <memory>
#include <optional>
#include <string>

#include "console.h"
#include "ending_signals.h"
#include "image/database.h"
#include "image/leaf_access.h"
#include "image/schema_file.h"

namespace tavdb::command {

struct Common {
    std::string directory;
    bool json = false;
    bool noHooks = false;
};

/// What a command does once its arguments are read.
using Action = std::function<void(const Common &, Console &)>;

/// Each adds one command to the parser; the one that was called sets the action.
void addBuild(CLI::App &app, Action &action);
void addConvert(CLI::App &app, Action &action);
void addGet(CLI::App &app, Action &action);
void addSet(CLI::App &app, Action &action);
void addList(CLI::App &app, Action &action);
void addTree(CLI::App &app, Action &action);
void addDescribe(CLI::App &app, Action &action);
void addInfo(CLI::App &app, Action &action);
void addFind(CLI::App &app, Action &action);
void addReset(CLI::App &app, Action &action);
void addSave(CLI::App &app, Action &action);
void addMove(CLI::App &app, Action &action);
void addRemove(CLI::App &app, Action &action);
void addLock(CLI::App &app, Action &action);
void addUnlock(CLI::App &app, Action &action);
void addLocks(CLI::App &app, Action &action);
void addSessions(CLI::App &app, Action &action);
void addServeMedia(CLI::App &app, Action &action);
void addCheck(CLI::App &app, Action &action);
void addRepair(CLI::App &app, Action &action);
void addDump(CLI::App &app, Action &action);
void addDebug(CLI::App &app, Action &action);
void addCompletion(CLI::App &app, Action &action);

/// The option --byte-order of commands that make a database directory.
void addByteOrder(CLI::App &command, image::ByteOrder &order);

/// A database that a command has opened, and closes at its end.
struct OpenedDatabase {
    std::unique_ptr<EndingSignals> signals;  ///< the last to go: a session that is left open keeps its slot
    image::DatabaseDirectory directory;
    image::SchemaFile schema;
    std::unique_ptr<image::Database> database;
};

/// Nothing when it cannot be opened, which is reported then.
std::optional<OpenedDatabase> openDatabase(const Common &common, Console &console);

/// The leaf of a path; nodes and faults are faults that bear no path.
image::Result<image::StoredLeaf> openLeaf(OpenedDatabase &opened, const std::string &path);

/// A component's leaf, with what the schema says about its path.
image::Result<image::StoredLeaf> openLeaf(OpenedDatabase &opened, const image::StoredComponent &component,
                                          const std::string &path);

/// The flags --default and --factory.
struct TierFlags {
    bool standard = false;
    bool factory = false;

    image::Tier tier() const {
        return factory ? image::Tier::factory : standard ? image::Tier::standard : image::Tier::current;
    }
    void add(CLI::App &command, bool withFactory);
};

}  // namespace tavdb::command
