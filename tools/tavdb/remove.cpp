// SPDX-License-Identifier: Apache-2.0
// tavdb rm: removes a component, or with -r a node with everything below it, and
// gives back what nothing else uses: values, constraints and names. One write takes
// the component out of the tree, so that a run that is killed loses space at worst.
#include <map>
#include <set>

#include "command.h"
#include "image/files.h"
#include "image/free_list.h"
#include "image/records.h"
#include "image/schema_edit.h"
#include "image/tables.h"
#include "image/tree_edit.h"
#include "image/walk.h"
#include "lock_set.h"

namespace tavdb::command {

namespace {

using image::Fault;
using image::FaultKind;

struct RemoveOptions {
    std::string path;
    bool recursive = false;
    LockOptions locks;
};

/// What is to be removed, and where it is linked.
struct Target {
    image::Located component;
    image::Place place;
    std::map<uint32_t, std::string> paths;  ///< of the component and all below it, by key

    bool operator==(const Target &other) const {
        return component.component.key == other.component.component.key && place == other.place && paths == other.paths;
    }
};

/// Where a record stands: medium and offset.
using RecordPlace = std::pair<int32_t, uint32_t>;
using RecordMap = std::map<RecordPlace, image::StoredRecord>;

RecordPlace keyOf(const image::StoredRecord &record) {
    return {record.medium, record.range.offset};
}

class Remover {
public:
    Remover(const RemoveOptions &given, OpenedDatabase &place)
        : options(given), opened(place), database(*place.database) {}

    image::Status run() {
        auto target = findTarget();
        if (!target)
            return target.error;
        LockSet locks(database, options.locks);
        if (auto problem = lock(locks, *target.value))
            return problem;
        // What was decided before the locks were there may have changed since.
        auto again = findTarget();
        if (!again)
            return again.error;
        if (!(*again.value == *target.value))
            return Fault{FaultKind::locked, "the tree was changed by somebody else at the same time"};
        return remove(*again.value);
    }

private:
    image::Result<Target> findTarget() {
        using Found = image::Result<Target>;
        auto component = image::locate(database, options.path);
        if (!component)
            return Found::bad(component.error);
        Target target{std::move(*component.value), {}, {}};
        if (target.component.path == "/")
            return Found::bad(Fault{FaultKind::usage, "the root cannot be removed"});
        const auto place = image::placeOf(database, target.component);
        if (!place)
            return Found::bad(place.error);
        target.place = *place.value;
        const auto damage = image::forEachFrom(database, target.component, [&](const image::Located &at) {
            target.paths.emplace(at.component.key, at.path);
            return true;
        });
        if (damage)
            return Found::bad(*damage);
        if (target.paths.size() > 1 && !options.recursive)
            return Found::bad(Fault{FaultKind::usage, "is a node with children; -r removes them too"});
        return Found::good(std::move(target));
    }

    image::Status lock(LockSet &locks, const Target &target) {
        // The root stands for the shape of the whole tree, and for schema.json.
        const auto root = image::readRoot(database);
        if (!root)
            return root.error;
        for (const uint32_t key :
             {root.value->key, target.component.component.key, target.place.parent, target.place.previous})
            if (auto problem = locks.add(key))
                return problem;
        return options.locks.noLock ? std::nullopt : refuseLocked(target);
    }

    /// A subtree may have more components than there are locks, so those below are
    /// not locked; but nobody else may hold one.
    image::Status refuseLocked(const Target &target) {
        const auto &description = *opened.directory.description;
        const auto locks = image::readLocks(description.lockPath);
        const auto sessions = image::readSessions(description.sessionPath);
        if (!locks || !sessions)
            return locks ? sessions.error : locks.error;
        for (const auto &held : *locks.value) {
            const auto path = target.paths.find(held.component);
            if (held.database == database.id() && path != target.paths.end() &&
                held.session != database.session()->sessionId)
                return Fault{FaultKind::locked,
                             path->second + " is locked by " + image::holderName(*sessions.value, held.session)};
        }
        return std::nullopt;
    }

    image::Status remove(const Target &target) {
        const auto records = recordsToRelease(target);
        if (!records)
            return records.error;
        const auto path = image::joinPath(opened.directory.path, image::kSchemaName);
        auto file = image::SchemaFile::open(path);
        auto schema = file ? file.value->readAll() : image::Result<image::Schema>::bad(file.error);
        if (!schema)
            return schema.error;
        const bool hasEntries = image::removeEntries(*schema.value, target.component.path);
        image::SchemaReplacement replacement(path);
        if (hasEntries)
            if (auto problem = replacement.prepare(*schema.value))
                return problem;
        if (auto problem = image::unlinkAt(database, target.place))
            return problem;
        auto problem = hasEntries ? replacement.commit() : std::nullopt;
        auto unreleased = release(*records.value);
        return problem ? problem : unreleased;
    }

    /// The records of the target that no other component uses.
    image::Result<RecordMap> recordsToRelease(const Target &target) {
        RecordMap own;
        std::set<RecordPlace> used;
        image::Status problem;
        const auto collect = [&](const image::Located &at) {
            const auto records = image::recordsOf(database, at.component);
            if (!records)
                problem = image::faultIn(at.path, records.error);
            const bool isOwn = target.paths.contains(at.component.key);
            for (const auto &record : records.value.value_or(std::vector<image::StoredRecord>{}))
                if (isOwn && layoutOf(record.kind).isAllocated && record.isSound)
                    own.emplace(keyOf(record), record);
                else if (!isOwn)
                    used.insert(keyOf(record));
            return !problem;
        };
        const auto root = image::readRoot(database);
        auto damage = root ? image::forEachFrom(database, {*root.value, "/"}, collect) : image::Status(root.error);
        if (problem || damage)
            return image::Result<RecordMap>::bad(problem ? *problem : *damage);
        std::erase_if(own, [&](const auto &record) { return used.contains(record.first); });
        return image::Result<RecordMap>::good(std::move(own));
    }

    /// Components first, then what they referred to: no record that is still taken
    /// refers to one that is not.
    image::Status release(const RecordMap &records) {
        for (const auto medium :
             {image::kComponentMedium, image::kValueMedium, image::kConstraintMedium, image::kStringMedium}) {
            std::vector<image::ByteRange> ranges;
            for (const auto &[place, record] : records)
                if (place.first == medium)
                    ranges.push_back(record.range);
            if (auto problem = image::releaseRanges(database, medium, std::move(ranges)))
                return problem;
        }
        return std::nullopt;
    }

    const RemoveOptions &options;
    OpenedDatabase &opened;
    image::Database &database;
};

void remove(const RemoveOptions &options, const Common &common, Console &console) {
    auto opened = openDatabase(common, console);
    if (!opened)
        return;
    if (const auto problem = Remover(options, *opened).run())
        console.report(options.path, *problem);
}

}  // namespace

void addRemove(Declarations &place) {
    auto options = std::make_shared<RemoveOptions>();
    auto &command = place.add("rm", "Remove a component");
    command.add("PATH", &options->path, "the component", {.isRequired = true});
    command.add("-r,--recursive", &options->recursive, "with everything below it");
    options->locks.add(command);
    command.action = [options](const Common &common, Console &console) { remove(*options, common, console); };
}

}  // namespace tavdb::command
