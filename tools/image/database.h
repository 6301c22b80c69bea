// SPDX-License-Identifier: Apache-2.0
// An attached database: one session of this process, and the components as they
// are read from it. Nothing that is read is trusted: a record must name itself,
// and every walk over links ends when it comes to a component again.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <unordered_set>
#include <vector>

#include "image/directory.h"
#include "image/fault.h"
#include "tavdb_modules.h"

namespace tavdb::image {

/// The library keeps one set of media and tables for a process: no more than one
/// database is attached at a time, and none after an attach that failed half-way.
class Database {
public:
    static Result<std::unique_ptr<Database>> attach(const tavDBMDescription &description);

    Database(const Database &) = delete;
    Database &operator=(const Database &) = delete;
    ~Database();

    tavDBMSession *session() {
        return &record;
    }
    uint32_t id() const {
        return dbId;
    }
    /// Forgets the session's last error. To be called before a call of the library
    /// whose failure shows in the session only.
    tavDBMSession *cleared();
    /// The session's error, if there is one.
    Status lastFault() const;
    /// The same for a call that is known to have failed.
    Fault knownFault() const;

private:
    Database() = default;

    uint32_t dbId = 0;
    bool hasSession = false;
    tavDBMSession record = {};
};

struct StoredComponent {
    uint32_t key = 0;
    std::string name;  ///< as people write it: without the "/" that it is stored with
    bool isNode = false;
    uint32_t nameKey = 0;
    uint32_t parent = 0;
    uint32_t next = 0;
};

/// The header of a component and its name. A name that is missing, that cannot be
/// read or that is no text becomes "@KEY".
Result<StoredComponent> readComponent(Database &database, uint32_t key);

Result<StoredComponent> readRoot(Database &database);

/// The components that a walk has come to.
using Visited = std::unordered_set<uint32_t>;

/// Walks that call themselves go down no further; damaged images can be nested as
/// deep as they have components.
inline constexpr uint32_t kLevelsMax = 500;
Fault tooManyLevels();

/// Calls visit(const StoredComponent &) for each child until it returns false.
/// @return the fault that ended the walk, if any; children before it were visited
Status forEachChild(Database &database, const StoredComponent &node, Visited &visited,
                    const std::function<bool(const StoredComponent &)> &visit);

struct Located {
    StoredComponent component;
    std::string path;  ///< of the component, from the root: "/" or "/lan/mtu"
};

/// Finds a component by its exact names from the root, with or without a "/" at
/// either end. A component without a proper name is "@KEY".
Result<Located> locate(Database &database, std::string_view path);

/// The path of a component, by its parents.
Result<std::string> pathOf(Database &database, const StoredComponent &component);

/// Bytes of a medium.
Result<uint32_t> mediumSize(Database &database, int32_t medium);

/// At most `sizeBytes` bytes of a medium from `offset`; fewer at its end.
Result<std::string> readMedium(Database &database, int32_t medium, uint32_t offset, uint32_t sizeBytes);

}  // namespace tavdb::image
