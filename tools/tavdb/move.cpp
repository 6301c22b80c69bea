// SPDX-License-Identifier: Apache-2.0
// tavdb mv: moves a component with everything below it, or gives it another name.
// What schema.json says about it goes along.
#include <algorithm>

#include "command.h"
#include "image/files.h"
#include "image/free_list.h"
#include "image/model.h"
#include "image/schema_edit.h"
#include "image/text_util.h"
#include "image/tree_edit.h"
#include "image/walk.h"
#include "lock_set.h"

namespace tavdb::command {

namespace {

using image::Fault;
using image::FaultKind;

struct MoveOptions {
    std::string path;
    std::string parent;
    std::string after;
    bool first = false;
    bool last = false;
    std::string name;
    LockOptions locks;
};

/// What is to be done, from the tree as it stands.
struct Plan {
    image::Located component;
    std::string newName;
    std::string newPath;
    image::Place from;
    image::Place to;

    bool changesPath() const {
        return newPath != component.path;
    }
};

class Planner {
public:
    Planner(image::Database &place, const MoveOptions &given) : database(place), options(given) {}

    image::Result<Plan> run() {
        problem = findBoth();
        if (!problem)
            problem = placeInNewParent();
        return problem ? image::Result<Plan>::bad(std::move(*problem)) : image::Result<Plan>::good(std::move(plan));
    }

private:
    image::Status findBoth() {
        auto component = image::locate(database, options.path);
        if (!component)
            return component.error;
        plan.component = std::move(*component.value);
        if (plan.component.path == "/")
            return Fault{FaultKind::usage, "the root cannot be moved"};
        const auto from = image::placeOf(database, plan.component);
        if (!from)
            return from.error;
        plan.from = *from.value;
        auto newParent = image::locate(database, options.parent);
        if (!newParent)
            return image::faultIn(options.parent, newParent.error);
        parent = std::move(*newParent.value);
        return checkParent();
    }

    image::Status checkParent() {
        if (!parent.component.isNode)
            return Fault{FaultKind::failed, parent.path + " is a leaf, nothing can be moved there"};
        bool isBelow = false;
        auto damage = image::forEachFrom(database, plan.component, [&](const image::Located &at) {
            isBelow = at.component.key == parent.component.key;
            return !isBelow;
        });
        if (isBelow)
            return Fault{FaultKind::failed, "cannot be moved below itself"};
        return damage;
    }

    image::Status placeInNewParent() {
        plan.newName = options.name.empty() ? plan.component.component.name : options.name;
        plan.newPath = image::childPath(parent.path, plan.newName);
        auto children = image::childrenOf(database, parent.component);
        if (!children)
            return children.error;
        others = std::move(*children.value);
        std::erase_if(others, [&](const auto &child) { return child.key == plan.component.component.key; });
        if (find(plan.newName) != others.end())
            return Fault{FaultKind::failed,
                         "there is a " + image::quote(plan.newName) + " in " + parent.path + " already"};
        return choosePosition();
    }

    image::Status choosePosition() {
        auto position = options.first ? others.begin() : others.end();
        if (!options.after.empty()) {
            const auto sibling = find(siblingName());
            if (sibling == others.end())
                return Fault{FaultKind::notFound, "there is no other " + image::quote(siblingName()) + " in " +
                                                      parent.path + " to stand behind"};
            position = sibling + 1;
        }
        plan.to = {parent.component.key, position == others.begin() ? 0 : (position - 1)->key,
                   position == others.end() ? 0 : position->key};
        if (isRenameOnly())
            plan.to = plan.from;
        return std::nullopt;
    }

    /// A component that only gets another name stays where it is.
    bool isRenameOnly() const {
        const bool hasPosition = options.first || options.last || !options.after.empty();
        return !hasPosition && !options.name.empty() && parent.component.key == plan.from.parent;
    }

    std::vector<image::StoredComponent>::iterator find(const std::string &name) {
        return std::find_if(others.begin(), others.end(), [&](const auto &child) { return child.name == name; });
    }

    /// A sibling may be given by its name, or by a path that names the new parent too.
    std::string siblingName() const {
        auto name = options.after;
        if (name.size() > 1 && name.ends_with('/'))
            name.pop_back();
        const auto prefix = image::childPath(parent.path, "");
        return name.starts_with(prefix) ? name.substr(prefix.size()) : name;
    }

    image::Database &database;
    const MoveOptions &options;
    image::Located parent;
    std::vector<image::StoredComponent> others;  ///< the children of the new parent, without the component itself
    Plan plan;
    image::Status problem;
};

class Mover {
public:
    Mover(const MoveOptions &given, const Common &shared, Console &place)
        : options(given), common(shared), console(place) {}

    void run() {
        auto opened = openDatabase(common, console);
        if (!opened)
            return;
        const auto problem = moveUnderLocks(*opened);
        if (problem)
            console.report(options.path, *problem);
    }

private:
    image::Status moveUnderLocks(OpenedDatabase &opened) {
        auto &database = *opened.database;
        auto plan = Planner(database, options).run();
        if (!plan)
            return plan.error;
        LockSet locks(database, options.locks);
        // The root stands for the shape of the whole tree, and for schema.json.
        const auto root = image::readRoot(database);
        if (!root)
            return root.error;
        const auto &from = plan.value->from;
        const auto &to = plan.value->to;
        for (const uint32_t key :
             {root.value->key, plan.value->component.component.key, from.parent, from.previous, to.parent, to.previous})
            if (auto problem = locks.add(key))
                return problem;
        // What was decided before the locks were there may have changed since.
        const auto again = Planner(database, options).run();
        if (!again)
            return again.error;
        if (again.value->component.component.key != plan.value->component.component.key || again.value->from != from ||
            again.value->to != to)
            return Fault{FaultKind::locked, "the tree was changed by somebody else at the same time"};
        return move(opened, *again.value);
    }

    image::Status move(OpenedDatabase &opened, const Plan &plan) {
        const auto path = image::joinPath(opened.directory.path, image::kSchemaName);
        auto file = image::SchemaFile::open(path);
        auto schema = file ? file.value->readAll() : image::Result<image::Schema>::bad(file.error);
        if (!schema)
            return schema.error;
        const auto before = *schema.value;
        // While the component moves, both paths have its labels and its secret marks.
        const bool hasEntries =
            plan.changesPath() && image::copyEntries(*schema.value, plan.component.path, plan.newPath);
        if (hasEntries)
            if (auto problem = image::replaceSchema(path, *schema.value))
                return problem;
        auto problem = relink(*opened.database, plan);
        if (!hasEntries)
            return problem;
        if (!problem)
            image::removeEntries(*schema.value, plan.component.path);
        const auto kept = image::replaceSchema(path, problem ? before : *schema.value);
        return problem ? problem : kept;
    }

    static image::Status relink(image::Database &database, const Plan &plan) {
        const auto &component = plan.component.component;
        image::Move move{component.key, plan.from, plan.to, component.nameKey};
        if (plan.newName == component.name && plan.from == plan.to)
            return std::nullopt;
        if (plan.newName == component.name)
            return image::moveComponent(database, move);
        const auto text = plan.newName + (component.isNode ? "/" : "");
        move.nameKey = tavDBMCreateString(database.cleared(), text.c_str(), image::kTextMedium);
        if (move.nameKey == 0 || database.session()->errorCode != 0)
            return database.knownFault();
        auto problem = image::moveComponent(database, move);
        if (!problem)
            return releaseName(database, component);
        // Nothing refers to the new name, unless the tree could not be put right.
        if (problem->kind != FaultKind::damaged)
            image::releaseRanges(database, image::kStringMedium, {{move.nameKey, sizeof(tavDBMString)}});
        return problem;
    }

    /// Releases the name that a component had, unless another component bears it too.
    static image::Status releaseName(image::Database &database, const image::StoredComponent &renamed) {
        const auto root = image::readRoot(database);
        tavDBMString entry = {};
        bool isFree = renamed.nameKey != 0 && root &&
                      tavdb_getStrEntry(database.cleared(), renamed.nameKey, &entry) != nullptr &&
                      entry.key == renamed.nameKey;
        if (!isFree)
            return std::nullopt;
        const auto damage = image::forEachFrom(database, {*root.value, "/"}, [&](const image::Located &at) {
            isFree = isFree && at.component.nameKey != renamed.nameKey;
            return isFree;
        });
        if (!isFree || damage)
            return std::nullopt;
        return image::releaseRanges(database, image::kStringMedium, {{renamed.nameKey, sizeof entry}});
    }

    const MoveOptions &options;
    const Common &common;
    Console &console;
};

void move(const MoveOptions &options, const Common &common, Console &console) {
    const auto complaint = options.name.empty() ? std::string{} : image::nameFault(options.name);
    if (!complaint.empty())
        console.report("mv", Fault{FaultKind::usage, complaint});
    else
        Mover(options, common, console).run();
}

}  // namespace

void addMove(Declarations &place) {
    auto options = std::make_shared<MoveOptions>();
    auto &command = place.add("mv", "Move a component with everything below it");
    command.add("PATH", &options->path, "the component", {.isRequired = true});
    command.add("NEWPARENT", &options->parent, "the node to move it to, which may be its own", {.isRequired = true});
    command.add("--after SIBLING", &options->after, "the child of NEWPARENT to stand behind");
    command.add("--first", &options->first, "in front of the other children", {.excludes = {"--after"}});
    command.add("--last", &options->last, "behind the other children; this is what happens anyway",
                {.excludes = {"--after", "--first"}});
    command.add("--name NEWNAME", &options->name, "another name for it");
    options->locks.add(command);
    command.action = [options](const Common &common, Console &console) { move(*options, common, console); };
}

}  // namespace tavdb::command
