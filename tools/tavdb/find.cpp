// SPDX-License-Identifier: Apache-2.0
// tavdb find: the paths of components that match a pattern, a type or a value.
#include "command.h"
#include "image/text_util.h"
#include "image/value_text.h"
#include "image/walk.h"
#include "path_pattern.h"
#include "view.h"

namespace tavdb::command {

namespace {

struct FindOptions {
    std::string pattern;
    std::string path = "/";
    std::string type;
    std::optional<std::string> value;
    bool secrets = false;
};

class Finder {
public:
    Finder(const FindOptions &given, const Common &shared, Console &place)
        : options(given), common(shared), console(place), pattern(given.pattern) {}

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
        const auto fault = image::forEachFrom(*database, *start.value, [&](const image::Located &at) {
            if (pattern.matches(at.path, at.component.isNode))
                look(at);
            return console.isOpen();
        });
        finish(fault);
    }

private:
    void finish(const image::Status &fault) {
        if (common.json)
            console.print(dumpJson(found));
        if (fault)
            console.report("", *fault);
        if (count == 0)
            console.report(options.pattern, {image::FaultKind::notFound, "nothing matches"});
    }

    void look(const image::Located &at) {
        if (at.component.isNode) {
            if (!options.value && (options.type.empty() || options.type == "node"))
                add({{"path", at.path}, {"kind", "node"}});
            return;
        }
        const bool needsLeaf = common.json || options.value || (!options.type.empty() && options.type != "leaf");
        if (options.type == "node")
            return;
        if (!needsLeaf) {
            add({{"path", at.path}});
            return;
        }
        const auto entry = schema.components.find(at.path);
        const auto stored = image::readLeaf(*database, at.component,
                                            entry == schema.components.end() ? image::SchemaEntry{} : entry->second);
        if (!stored)
            console.report(at.path, stored.error);
        else if (isWanted(at.path, *stored.value))
            add({{"path", at.path}, {"kind", "leaf"}, {"type", typeNameOf(*stored.value)}});
    }

    bool isWanted(const std::string &path, const image::StoredLeaf &stored) {
        const bool isOfType = options.type.empty() || options.type == "leaf" || options.type == typeNameOf(stored);
        return isOfType && (!options.value || hasValue(path, stored));
    }

    bool hasValue(const std::string &path, const image::StoredLeaf &stored) {
        // Whether a secret has a certain value is a secret.
        if (stored.leaf.secret && !options.secrets)
            return false;
        const auto value = readTier(*database, stored, image::Tier::current);
        if (!value) {
            console.report(path, value.error);
            return false;
        }
        return valueText(stored.leaf, *value.value) == *options.value ||
               valueText(stored.leaf, *value.value, true) == *options.value;
    }

    void add(Json object) {
        count++;
        if (common.json)
            found.push_back(std::move(object));
        else
            console.print(object["path"].get<std::string>() + "\n");
    }

    const FindOptions &options;
    const Common &common;
    Console &console;
    PathPattern pattern;
    image::Database *database = nullptr;
    image::Schema schema;
    Json found = Json::array();
    size_t count = 0;
};

/// "node", "leaf", the name of a value type, or "type N" for a code without a name.
bool isType(const std::string &type) {
    return type == "node" || type == "leaf" || type.starts_with("type ") ||
           image::findType(std::string_view(type)) != nullptr;
}

std::vector<std::string> typeNames() {
    std::vector<std::string> names = {"node", "leaf"};
    for (const auto &type : image::allTypes())
        names.emplace_back(type.name);
    return names;
}

std::string typeComplaint(const std::string &type) {
    return isType(type) ? std::string() : "there is no type " + image::quote(type);
}

void find(const FindOptions &options, const Common &common, Console &console) {
    if (options.pattern.empty())
        console.report("find", {image::FaultKind::usage, "the pattern is empty"});
    else
        Finder(options, common, console).run();
}

}  // namespace

void addFind(Declarations &place) {
    auto options = std::make_shared<FindOptions>();
    auto &command = place.add("find", "Print the paths that match a pattern");
    command.footer =
        "In a pattern, * ? and [...] match within a name and ** matches any number of levels.\n"
        "A pattern without / is for the last name; one that ends in / is for nodes.";
    command.add("PATTERN", &options->pattern, "the pattern", {.isRequired = true});
    command.add("PATH", &options->path, "where to start; without it the root");
    command.add("--type TYPE", &options->type, "node, leaf or the type of a leaf",
                {.values = typeNames(), .complaint = typeComplaint});
    command.add("--value TEXT", &options->value, "leaves whose current value prints like this");
    command.add("--secrets", &options->secrets, "let secrets match --value");
    command.action = [options](const Common &common, Console &console) { find(*options, common, console); };
}

}  // namespace tavdb::command
