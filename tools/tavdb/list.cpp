// SPDX-License-Identifier: Apache-2.0
// tavdb list: the children of a node, or one leaf, as names or as a table. Goes one
// level down; tree goes further.
#include <algorithm>
#include <array>

#include "command.h"
#include "view.h"

namespace tavdb::command {

namespace {

/// Wider cells do not push the columns of the other lines to the right.
constexpr size_t kColumnWidthMax = 32;
constexpr size_t kColumns = 4;

using Row = std::array<std::string, kColumns>;

struct ListOptions {
    std::string path = "/";
    bool isLong = false;
    bool secrets = false;
};

/// Columns two blanks apart; nothing behind the last one.
std::string formatRows(const std::vector<Row> &rows) {
    std::array<size_t, kColumns> widths{};
    for (const auto &row : rows)
        for (size_t i = 0; i < kColumns; i++)
            widths[i] = std::max(widths[i], std::min(row[i].size(), kColumnWidthMax));
    std::string text;
    for (const auto &row : rows) {
        std::string line;
        for (size_t i = 0; i < kColumns; i++)
            line += row[i] + std::string(widths[i] > row[i].size() ? widths[i] - row[i].size() : 0, ' ') + "  ";
        text += line.substr(0, line.find_last_not_of(' ') + 1) + "\n";
    }
    return text;
}

class Lister {
public:
    Lister(const ListOptions &given, const Common &shared, Console &place)
        : options(given), common(shared), console(place) {}

    void run() {
        auto opened = openDatabase(common, console);
        if (!opened)
            return;
        const auto located = image::locate(*opened->database, options.path);
        if (!located) {
            console.report(options.path, located.error);
            return;
        }
        const auto &start = *located.value;
        if (start.component.isNode)
            listChildren(*opened, start);
        else
            add(*opened, start.component, start.path);
        if (common.json)
            console.print(dumpJson(objects));
        else if (options.isLong)
            console.print(formatRows(rows));
    }

private:
    void listChildren(OpenedDatabase &opened, const image::Located &node) {
        image::Visited visited;
        const auto fault =
            image::forEachChild(*opened.database, node.component, visited, [&](const image::StoredComponent &child) {
                add(opened, child, image::childPath(node.path, child.name));
                return console.isOpen();
            });
        if (fault)
            console.report(node.path, *fault);
    }

    void add(OpenedDatabase &opened, const image::StoredComponent &component, const std::string &path) {
        const auto name = component.name + (component.isNode ? "/" : "");
        if (!common.json && !options.isLong)
            console.print(name + "\n");
        else if (component.isNode)
            addNode(component, name, path);
        else
            addLeaf(opened, component, path);
    }

    void addNode(const image::StoredComponent &component, const std::string &name, const std::string &path) {
        rows.push_back({name, "node", "", ""});
        objects.push_back({{"name", component.name}, {"path", path}, {"kind", "node"}});
    }

    void addLeaf(OpenedDatabase &opened, const image::StoredComponent &component, const std::string &path) {
        const auto stored = openLeaf(opened, component, path);
        if (!stored) {
            console.report(path, stored.error);
            rows.push_back({component.name, "?", "?", "?"});
            return;
        }
        const auto &leaf = stored.value->leaf;
        const bool isMasked = leaf.secret && !options.secrets;
        const auto value =
            isMasked ? image::Result<image::Value>{} : readTier(*opened.database, *stored.value, image::Tier::current);
        if (!isMasked && !value)
            console.report(path, value.error);
        const auto shown = value ? valueInListing(leaf, *value.value) : std::string(isMasked ? kMasked : "?");
        rows.push_back({component.name, typeNameOf(*stored.value), constraintText(*stored.value), shown});
        Json object = {{"name", component.name},
                       {"path", path},
                       {"kind", "leaf"},
                       {"type", typeNameOf(*stored.value)},
                       {"constraint", constraintToJson(*stored.value)},
                       {"secret", leaf.secret}};
        addValue(object, *stored.value, value ? &*value.value : nullptr);
        objects.push_back(std::move(object));
    }

    const ListOptions &options;
    const Common &common;
    Console &console;
    std::vector<Row> rows;
    Json objects = Json::array();
};

}  // namespace

void addList(Declarations &place) {
    auto options = std::make_shared<ListOptions>();
    auto &command = place.add("list", "List the children of a node");
    command.add("PATH", &options->path, "the node; without it the root");
    command.add("-l,--long", &options->isLong, "with type, constraint and current value");
    command.add("--secrets", &options->secrets, "show secret values");
    command.action = [options](const Common &common, Console &console) { Lister(*options, common, console).run(); };
}

}  // namespace tavdb::command
