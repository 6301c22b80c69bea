// SPDX-License-Identifier: Apache-2.0
// tavdb describe: everything about one component, the keys that programs use
// included. Shows the three values; other commands show one of them.
#include <algorithm>

#include "command.h"
#include "image/constraint_check.h"
#include "image/text_util.h"
#include "image/value_text.h"
#include "view.h"

namespace tavdb::command {

namespace {

struct DescribeOptions {
    std::string path;
    bool secrets = false;
};

class Describer {
public:
    Describer(const DescribeOptions &given, const Common &shared, Console &place)
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
        if (located.value->component.isNode)
            describeNode(*opened, *located.value);
        else
            describeLeaf(*opened, *located.value);
    }

private:
    void describeNode(OpenedDatabase &opened, const image::Located &node) {
        const auto entry = opened.schema.find(node.path);
        size_t children = 0;
        image::Visited visited;
        const auto fault =
            image::forEachChild(*opened.database, node.component, visited, [&](const image::StoredComponent &) {
                children++;
                return true;
            });
        if (fault || !entry)
            console.report(node.path, fault ? *fault : entry.error);
        const auto &component = node.component;
        const auto description = entry ? entry.value->description : std::string{};
        if (common.json) {
            console.print(dumpJson({{"path", node.path},
                                    {"kind", "node"},
                                    {"children", children},
                                    {"description", description},
                                    {"keys", {{"component", component.key}, {"name", component.nameKey}}}}));
            return;
        }
        auto text =
            labelled("path", node.path) + labelled("kind", "node") + labelled("children", std::to_string(children));
        if (!description.empty())
            text += labelled("description", description);
        console.print(text + labelled("keys", keysText(component)));
    }

    void describeLeaf(OpenedDatabase &opened, const image::Located &located) {
        const auto stored = openLeaf(opened, located.component, located.path);
        if (!stored) {
            console.report(located.path, stored.error);
            return;
        }
        if (common.json)
            console.print(dumpJson(leafToJson(opened, located, *stored.value)));
        else
            console.print(leafText(opened, located, *stored.value));
    }

    /// A value to be shown; nothing when it is masked or missing. Faults are reported.
    image::Result<image::Value> tierValue(OpenedDatabase &opened, const image::StoredLeaf &stored,
                                          const std::string &path, image::Tier tier) {
        if (isMasked(stored) || stored.valueOf(tier).key == 0)
            return {};
        auto value = readTier(*opened.database, stored, tier);
        if (!value)
            console.report(path, faultIn(std::string(image::tierName(tier)) + " value", value.error));
        return value;
    }

    bool isMasked(const image::StoredLeaf &stored) const {
        return stored.leaf.secret && !options.secrets;
    }

    std::string leafText(OpenedDatabase &opened, const image::Located &located, const image::StoredLeaf &stored) {
        const auto &leaf = stored.leaf;
        auto text = labelled("path", located.path) + labelled("kind", "leaf") +
                    labelled("type", typeNameOf(stored) + ", " + image::counted(leaf.lengthBytes, "byte")) +
                    labelled("constraint", wholeConstraint(stored));
        for (const auto tier : image::kTiers)
            text += labelled(image::tierName(tier), tierText(opened, located.path, stored, tier));
        if (!leaf.units.empty())
            text += labelled("units", leaf.units);
        text += labelled("hook", leaf.hookId == 0 ? "none" : std::to_string(leaf.hookId));
        text += labelled("secret", leaf.secret ? "yes" : "no");
        if (!leaf.description.empty())
            text += labelled("description", leaf.description);
        return text + labelled("keys", keysText(located.component) + valueKeysText(stored));
    }

    std::string tierText(OpenedDatabase &opened, const std::string &path, const image::StoredLeaf &stored,
                         image::Tier tier) {
        const auto value = tierValue(opened, stored, path, tier);
        if (value)
            return valueInListing(stored.leaf, *value.value);
        return isMasked(stored) ? std::string(kMasked) : stored.valueOf(tier).key == 0 ? "none" : "?";
    }

    /// Unlike in a listing, every element of an enumeration.
    static std::string wholeConstraint(const image::StoredLeaf &stored) {
        const auto *elements = std::get_if<image::Enumeration>(&stored.leaf.constraint);
        if (elements == nullptr)
            return stored.constraintFault || stored.constraintType != 0 ? constraintText(stored) : "none";
        std::string text;
        for (const auto &element : *elements) {
            text += (text.empty() ? "" : ", ") + image::formatValue(stored.leaf.type, element.number);
            text += element.label ? " (" + *element.label + ")" : "";
        }
        return text;
    }

    static std::string keysText(const image::StoredComponent &component) {
        return "component " + std::to_string(component.key) + ", name " + std::to_string(component.nameKey);
    }

    static std::string valueKeysText(const image::StoredLeaf &stored) {
        std::string text;
        for (const auto tier : image::kTiers)
            text += ", " + std::string(image::tierName(tier)) + " " + std::to_string(stored.valueOf(tier).key);
        return text + ", constraint " + std::to_string(stored.valueOf(image::Tier::current).constraintKey);
    }

    Json leafToJson(OpenedDatabase &opened, const image::Located &located, const image::StoredLeaf &stored) {
        const auto &leaf = stored.leaf;
        Json object = {{"path", located.path},
                       {"kind", "leaf"},
                       {"type", typeNameOf(stored)},
                       {"bytes", leaf.lengthBytes},
                       {"constraint", constraintToJson(stored)}};
        Json keys = {{"component", located.component.key}, {"name", located.component.nameKey}};
        for (const auto tier : image::kTiers) {
            const auto value = tierValue(opened, stored, located.path, tier);
            Json shown = Json::object();
            addValue(shown, stored, value ? &*value.value : nullptr);
            object[std::string(image::tierName(tier))] = std::move(shown);
            keys[std::string(image::tierName(tier))] = stored.valueOf(tier).key;
        }
        keys["constraint"] = stored.valueOf(image::Tier::current).constraintKey;
        object["units"] = leaf.units;
        object["hook"] = leaf.hookId;
        object["secret"] = leaf.secret;
        object["description"] = leaf.description;
        object["keys"] = std::move(keys);
        return object;
    }

    const DescribeOptions &options;
    const Common &common;
    Console &console;
};

}  // namespace

void addDescribe(Declarations &place) {
    auto options = std::make_shared<DescribeOptions>();
    auto &command = place.add("describe", "Print everything about one component");
    command.add("PATH", &options->path, "the component", {.isRequired = true});
    command.add("--secrets", &options->secrets, "show secret values");
    command.action = [options](const Common &common, Console &console) { Describer(*options, common, console).run(); };
}

}  // namespace tavdb::command
