// SPDX-License-Identifier: Apache-2.0
// What the commands share: the options that stand before or behind any of them,
// the way to the database they work on, and how a command is added.
#pragma once

#include <memory>
#include <optional>
#include <string>

#include "console.h"
#include "declarations.h"
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

/// Each declares one command.
void addBuild(Declarations &place);
void addConvert(Declarations &place);
void addGet(Declarations &place);
void addSet(Declarations &place);
void addList(Declarations &place);
void addTree(Declarations &place);
void addDescribe(Declarations &place);
void addInfo(Declarations &place);
void addFind(Declarations &place);
void addReset(Declarations &place);
void addSave(Declarations &place);
void addMove(Declarations &place);
void addRemove(Declarations &place);
void addLock(Declarations &place);
void addUnlock(Declarations &place);
void addLocks(Declarations &place);
void addSessions(Declarations &place);
void addServeMedia(Declarations &place);
void addCheck(Declarations &place);
void addRepair(Declarations &place);
void addDump(Declarations &place);
void addDebug(Declarations &place);
void addCompletion(Declarations &place);

/// The option --byte-order of commands that make a database directory.
struct OrderOption {
    std::string name;

    image::ByteOrder wanted() const;
    void add(Command &command);
};

/// A database that a command has opened, and closes at its end.
struct OpenedDatabase {
    std::unique_ptr<EndingSignals> signals;  ///< the last to go: a session that is left open keeps its slot
    image::DatabaseDirectory directory;
    image::SchemaFile schema;
    std::unique_ptr<image::Database> database;
};

/// The directory alone, not attached. Nothing when it cannot be opened, which is reported then.
std::optional<image::DatabaseDirectory> openDirectory(const Common &common, Console &console);

/// The same of the database in it.
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
    void add(Command &command, bool withFactory);
};

}  // namespace tavdb::command
