// SPDX-License-Identifier: Apache-2.0
// One leaf of the house format: from its keys to a checked leaf of the model.
// Every key has its own small reader; they run in a fixed order, so that values
// are read when the constraint they must meet is known.
#pragma once

#include <optional>
#include <set>
#include <string>

#include "image/diagnostics.h"
#include "image/model.h"
#include "image/yaml_types.h"

namespace tavdb::image {

class YamlLeafReader {
public:
    /// @param path for the context of errors that come from a reusable type
    YamlLeafReader(const ReusableTypes &reusable, Diagnostics &list, std::string leafPath)
        : types(reusable), diagnostics(list), path(std::move(leafPath)) {}

    /// The leaf, with whatever could be read when there were errors.
    Leaf read(const std::string &name, const YAML::Node &key, const YAML::Node &map);

private:
    using Handler = void (YamlLeafReader::*)(const LeafKey &);
    struct Row {
        const char *key;
        Handler handler;
    };
    static const Row kRows[];

    void readSize(const LeafKey &key);
    void readRange(const LeafKey &key);
    void readStep(const LeafKey &key);
    void readEnumeration(const LeafKey &key);
    void readCurrent(const LeafKey &key);
    void readDefault(const LeafKey &key);
    void readFactory(const LeafKey &key);
    void readHook(const LeafKey &key);
    void readSecret(const LeafKey &key);
    void readUnits(const LeafKey &key);
    void readDescription(const LeafKey &key);

    void readTier(const LeafKey &key, const char *name, std::optional<Value> &tier);
    void readNumberedLabels(const LeafKey &key);
    void readElementList(const LeafKey &key);
    void readElementMap(const LeafKey &key);
    void addElement(std::optional<std::string> label, const Value &number, const YAML::Node &at, const LeafKey &key);
    std::string elementFault(const std::optional<std::string> &label, const Value &number);
    void checkTogether(const LeafKeys &keys);
    std::optional<Value> readNumber(const YAML::Node &node, const char *name, const LeafKey &key);
    std::optional<std::string> scalar(const LeafKey &key, const char *name);
    bool refusesConstraint(const LeafKey &key, const char *name);
    void complain(const LeafKey &key, const std::string &sentence);
    void complainAt(Position position, const LeafKey &key, const std::string &sentence);
    std::string contextOf(const LeafKey &key) const;

    const ReusableTypes &types;
    Diagnostics &diagnostics;
    std::string path;
    Leaf leaf;
    Tiers tiers;
    std::set<Value> numbersSeen;
    std::set<std::string> labelsSeen;
    bool sizeKnown = true;
    bool labelsKnown = true;
};

}  // namespace tavdb::image
