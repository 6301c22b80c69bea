// SPDX-License-Identifier: Apache-2.0
// tavdb tree: everything below a component with values, for people, as lines that
// set reads, or as JSON. Reads the schema once for all.
#include <limits>

#include "assignment.h"
#include "command.h"
#include "view.h"

namespace tavdb::command {

namespace {

struct TreeOptions {
    std::string path = "/";
    uint32_t depth = std::numeric_limits<uint32_t>::max();
    bool paths = false;
    bool secrets = false;
    TierFlags tier;
};

class TreePrinter {
public:
    TreePrinter(const TreeOptions &given, const Common &shared, Console &place)
        : options(given), common(shared), console(place) {}

    void run() {
        auto opened = openDatabase(common, console);
        if (!opened)
            return;
        database = opened->database.get();
        const auto start = image::locate(*database, options.path);
        auto whole = start ? opened->schema.readAll() : image::Result<image::Schema>{};
        if (!start || !whole) {
            console.report(options.path, start ? whole.error : start.error);
            return;
        }
        schema = std::move(*whole.value);
        visited.insert(start.value->component.key);
        auto json = add(start.value->component, start.value->path, 0);
        if (common.json)
            console.print(dumpJson(json));
    }

private:
    /// @return the component as JSON, if that is asked for
    Json add(const image::StoredComponent &component, const std::string &path, uint32_t level) {
        return component.isNode ? addNode(component, path, level) : addLeaf(component, path, level);
    }

    Json addNode(const image::StoredComponent &node, const std::string &path, uint32_t level) {
        printLine(level, path == "/" ? "/" : node.name + "/");
        Json object = {{"name", node.name}, {"path", path}, {"kind", "node"}};
        if (path == "/")
            object["name"] = "/";
        if (level >= options.depth)
            return object;
        if (level == image::kLevelsMax) {
            console.report(path, image::tooManyLevels());
            return object;
        }
        auto children = Json::array();
        const auto fault = image::forEachChild(*database, node, visited, [&](const image::StoredComponent &child) {
            auto below = add(child, image::childPath(path, child.name), level + 1);
            if (common.json)
                children.push_back(std::move(below));
            return console.isOpen();
        });
        if (fault)
            console.report(path, *fault);
        object["children"] = std::move(children);
        return object;
    }

    Json addLeaf(const image::StoredComponent &component, const std::string &path, uint32_t level) {
        const auto entry = schema.components.find(path);
        const auto stored = image::readLeaf(*database, component,
                                            entry == schema.components.end() ? image::SchemaEntry{} : entry->second);
        const bool isMasked = stored && stored.value->leaf.secret && !options.secrets;
        auto value = image::Result<image::Value>{};
        if (stored && !isMasked)
            value = readTier(*database, *stored.value, options.tier.tier());
        if (!stored || (!isMasked && !value))
            console.report(path, stored ? value.error : stored.error);
        printLeaf(path, component.name, level, stored.value ? &stored.value->leaf : nullptr,
                  value ? &*value.value : nullptr);
        return common.json
                   ? toJson(component, path, stored.value ? &*stored.value : nullptr, value ? &*value.value : nullptr)
                   : Json();
    }

    /// @param value null when it is masked, or could not be read
    void printLeaf(const std::string &path, const std::string &name, uint32_t level, const image::Leaf *leaf,
                   const image::Value *value) {
        if (!options.paths) {
            const auto shown = value != nullptr                  ? valueInListing(*leaf, *value)
                               : leaf != nullptr && leaf->secret ? std::string(kMasked)
                                                                 : "?";
            printLine(level, name + " = " + shown);
        } else if (!common.json && value != nullptr) {
            console.print(formatAssignment(path, valueText(*leaf, *value)) + "\n");
        } else if (!common.json && leaf != nullptr && leaf->secret) {
            console.print("# " + path + " is a secret; --secrets shows it\n");
        }
    }

    void printLine(uint32_t level, const std::string &text) {
        if (!common.json && !options.paths)
            console.print(std::string(size_t{2} * level, ' ') + text + "\n");
    }

    static Json toJson(const image::StoredComponent &component, const std::string &path,
                       const image::StoredLeaf *stored, const image::Value *value) {
        Json object = {{"name", component.name}, {"path", path}, {"kind", "leaf"}};
        if (stored == nullptr)
            return object;
        object["type"] = typeNameOf(*stored);
        object["secret"] = stored->leaf.secret;
        addValue(object, *stored, value);
        return object;
    }

    const TreeOptions &options;
    const Common &common;
    Console &console;
    image::Database *database = nullptr;
    image::Schema schema;
    image::Visited visited;
};

}  // namespace

void addTree(Declarations &place) {
    auto options = std::make_shared<TreeOptions>();
    auto &command = place.add("tree", "Print a component and everything below it with values");
    command.add("PATH", &options->path, "where to start; without it the root");
    command.add("--depth N", &options->depth, "levels to go down at most");
    command.add("--paths", &options->paths, "PATH='VALUE' lines, as 'set -' reads them");
    options->tier.add(command, true);
    command.add("--secrets", &options->secrets, "show secret values");
    command.action = [options](const Common &common, Console &console) {
        TreePrinter(*options, common, console).run();
    };
}

}  // namespace tavdb::command
