// SPDX-License-Identifier: Apache-2.0
// tavdb get: the values of leaves, bare for one path, as lines that set reads for
// several. It knows nothing of nodes: tree and list show those.
#include "assignment.h"
#include "command.h"
#include "view.h"

namespace tavdb::command {

namespace {

struct GetOptions {
    std::vector<std::string> paths;
    TierFlags tier;
    bool raw = false;
    bool secrets = false;
};

struct Reading {
    std::string path;
    image::StoredLeaf stored;
    image::Value value;
};

class Getter {
public:
    Getter(const GetOptions &given, const Common &shared, Console &place)
        : options(given), common(shared), console(place) {}

    void run() {
        auto opened = openDatabase(common, console);
        if (!opened)
            return;
        auto list = Json::array();
        for (const auto &path : options.paths) {
            if (!console.isOpen())
                return;
            const auto reading = read(*opened, path);
            if (!reading)
                console.report(path, reading.error);
            else if (common.json)
                list.push_back(toJson(*reading.value));
            else
                console.print(toText(*reading.value) + "\n");
        }
        if (common.json)
            console.print(dumpJson(list));
    }

private:
    image::Result<Reading> read(OpenedDatabase &opened, const std::string &path) const {
        using Read = image::Result<Reading>;
        auto located = image::locate(*opened.database, path);
        if (!located)
            return Read::bad(std::move(located.error));
        auto stored = openLeaf(opened, located.value->component, located.value->path);
        if (!stored)
            return Read::bad(std::move(stored.error));
        if (stored.value->leaf.secret && !options.secrets)
            return Read::bad({image::FaultKind::permission, "is a secret; --secrets shows it"});
        auto value = image::readTier(*opened.database, *stored.value, options.tier.tier());
        if (!value)
            return Read::bad(std::move(value.error));
        return Read::good({std::move(located.value->path), std::move(*stored.value), std::move(*value.value)});
    }

    std::string toText(const Reading &reading) const {
        const auto text = valueText(reading.stored.leaf, reading.value, options.raw);
        return options.paths.size() == 1 ? text : formatAssignment(reading.path, text);
    }

    Json toJson(const Reading &reading) const {
        Json object = {{"path", reading.path},
                       {"type", typeNameOf(reading.stored)},
                       {"tier", image::tierName(options.tier.tier())}};
        addValue(object, reading.stored, &reading.value);
        return object;
    }

    const GetOptions &options;
    const Common &common;
    Console &console;
};

}  // namespace

void addGet(Declarations &place) {
    auto options = std::make_shared<GetOptions>();
    auto &command = place.add("get", "Print the values of leaves");
    command.add("PATH", &options->paths, "the leaves; several print PATH='VALUE' lines", {.isRequired = true});
    options->tier.add(command, true);
    command.add("--raw", &options->raw, "numbers instead of the labels of enumerations");
    command.add("--secrets", &options->secrets, "show secret values");
    command.action = [options](const Common &common, Console &console) { Getter(*options, common, console).run(); };
}

}  // namespace tavdb::command
