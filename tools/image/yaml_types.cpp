// SPDX-License-Identifier: Apache-2.0
#include "image/yaml_types.h"

#include <algorithm>
#include <array>
#include <set>
#include <vector>

#include "image/description.h"
#include "image/text_util.h"

namespace tavdb::image {

namespace {

constexpr std::array<std::string_view, 12> kLeafKeys = {
    "type", "size", "range", "step", "enum", "current", "default", "factory", "hook", "secret", "units", "description",
};

/// A constraint replaces one of the other kind that was inherited.
bool isReplaced(const std::string &inherited, const LeafKeys &own) {
    if (inherited == "enum")
        return own.contains("range");
    return (inherited == "range" || inherited == "step") && own.contains("enum");
}

void inherit(LeafKeys &keys, const LeafKeys &from, const std::string &typeName) {
    const LeafKeys own = keys;
    for (const auto &[name, key] : from)
        if (!isReplaced(name, own))
            keys.try_emplace(name, LeafKey{key.value, key.position, typeName});
}

std::string knownTypes() {
    std::string list;
    for (const auto &info : allTypes())
        list += (list.empty() ? "" : " ") + std::string(info.name);
    return list;
}

}  // namespace

bool isLeafKey(const std::string &key) {
    return std::find(kLeafKeys.begin(), kLeafKeys.end(), key) != kLeafKeys.end();
}

LeafKeys collectLeafKeys(const YAML::Node &map, Diagnostics &diagnostics) {
    LeafKeys keys;
    forEachKey(map, diagnostics, [&](const std::string &name, const YAML::Node &key, const YAML::Node &value) {
        if (isLeafKey(name))
            keys.try_emplace(name, LeafKey{value, positionOf(value, key), {}});
        else
            diagnostics.add(positionOf(key), "a leaf has no key " + quote(name));
    });
    return keys;
}

void ReusableTypes::load(const YAML::Node &typesKey, const YAML::Node &map) {
    if (!map.IsMap()) {
        diagnostics.add(positionOf(map, typesKey), "types must be a map of leaf descriptions, found " + whatIs(map));
        return;
    }
    forEachKey(map, diagnostics, [&](const std::string &name, const YAML::Node &key, const YAML::Node &value) {
        loadEntry(name, key, value);
    });
    for (const auto &[name, keys] : entries) {
        LeafKeys whole = keys;
        resolve(whole);
    }
}

void ReusableTypes::loadEntry(const std::string &name, const YAML::Node &key, const YAML::Node &value) {
    std::string fault;
    if (name.empty() || hasControlCharacter(name))
        fault = "a reusable type cannot be called " + quote(name);
    else if (findType(name) != nullptr)
        fault = quote(name) + " is a built-in type and cannot be described again";
    else if (!value.IsMap())
        fault = "a reusable type must be a map, found " + whatIs(value);
    else if (!value["type"])
        fault = "the reusable type " + quote(name) + " has no type";
    if (fault.empty()) {
        entries[name] = collectLeafKeys(value, diagnostics);
        return;
    }
    diagnostics.add(positionOf(key), fault);
    broken.insert(name);
}

std::optional<Type> ReusableTypes::resolve(LeafKeys &keys) const {
    std::set<std::string> passed;
    const LeafKeys *at = &keys;
    while (at != nullptr && at->contains("type")) {
        const auto &step = at->at("type");
        const auto name = readScalar(step.value, "type", step.position, diagnostics);
        if (!name)
            return std::nullopt;
        if (const auto *info = findType(*name))
            return info->type;
        at = findNext(*name, step.position, passed);
        if (at != nullptr)
            inherit(keys, *at, *name);
    }
    return std::nullopt;
}

const LeafKeys *ReusableTypes::findNext(const std::string &name, Position at, std::set<std::string> &passed) const {
    const auto entry = entries.find(name);
    if (entry == entries.end()) {
        if (!broken.contains(name))
            diagnostics.add(
                at, "there is no type " + quote(name) + "; it must be an entry of types or one of " + knownTypes());
        return nullptr;
    }
    if (!passed.insert(name).second)
        diagnostics.add(at, "the reusable type " + quote(name) + " builds on itself");
    else if (passed.size() > kTypeChainMax)
        diagnostics.add(at, "reusable types build on more than " + std::to_string(kTypeChainMax) + " others here");
    else
        return &entry->second;
    return nullptr;
}

}  // namespace tavdb::image
