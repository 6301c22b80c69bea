// SPDX-License-Identifier: Apache-2.0
#include "image/yaml_reader.h"

#include "image/text_util.h"
#include "image/yaml_document.h"
#include "image/yaml_leaf.h"
#include "image/yaml_scalar.h"
#include "image/yaml_types.h"

namespace tavdb::image {

namespace {

constexpr std::string_view kTypesKey = "types";
constexpr std::string_view kDescriptionKey = "$description";

class TreeReader {
public:
    TreeReader(const ReadOptions &given, Description &result, Diagnostics &list)
        : options(given), description(result), diagnostics(list), types(list) {}

    void read(const YAML::Node &top) {
        if (!top.IsMap()) {
            diagnostics.add(positionOf(top), "the top level must be a map of nodes, found " + whatIs(top));
            return;
        }
        forEachKey(top, ignored, [&](const std::string &name, const YAML::Node &key, const YAML::Node &value) {
            if (name == kTypesKey)
                types.load(key, value);
        });
        readChildren(top, "/", 0, description.model.root);
    }

private:
    void readChildren(const YAML::Node &map, const std::string &path, size_t depth, Node &node) {
        forEachKey(map, diagnostics, [&](const std::string &name, const YAML::Node &key, const YAML::Node &value) {
            if (name == kDescriptionKey)
                node.description = foldSpace(readScalar(value, name, positionOf(value, key), diagnostics).value_or(""));
            else if (depth != 0 || name != kTypesKey)
                readComponent(name, key, value, path, depth, node);
        });
    }

    void readComponent(const std::string &name, const YAML::Node &key, const YAML::Node &value,
                       const std::string &parentPath, size_t depth, Node &parent) {
        if (!withinLimit(key))
            return;
        const auto fault = name.starts_with('$') ? "names that begin with '$' are reserved, found " + quote(name)
                           : name == "<<"        ? std::string("merge keys have no meaning here; use types")
                                                 : nameFault(name);
        if (!fault.empty())
            diagnostics.add(positionOf(key), fault);
        const auto path = childPath(parentPath, name);
        if (!value.IsMap())
            diagnostics.add(positionOf(value, key), "a node or a leaf must be a map, found " + whatIs(value));
        else if (isLeaf(value))
            addLeaf(name, key, value, path, parent);
        else if (lacksType(value))
            diagnostics.add(positionOf(key), "this map holds keys of a leaf but has no type");
        else
            addNode(name, key, value, path, depth + 1, parent);
    }

    void addLeaf(const std::string &name, const YAML::Node &key, const YAML::Node &map, const std::string &path,
                 Node &parent) {
        parent.children.push_back({YamlLeafReader(types, diagnostics, path).read(name, key, map)});
        description.report.addExpressed(path, {});
    }

    void addNode(const std::string &name, const YAML::Node &key, const YAML::Node &map, const std::string &path,
                 size_t depth, Node &parent) {
        if (depth > kDepthMax) {
            diagnostics.add(positionOf(key), "this node lies deeper than " + std::to_string(kDepthMax) + " levels");
            return;
        }
        Node node;
        node.name = name;
        node.position = positionOf(key);
        readChildren(map, path, depth, node);
        parent.children.push_back({std::move(node)});
    }

    /// References can multiply a small file into a huge tree.
    bool withinLimit(const YAML::Node &key) {
        if (components > options.componentsMax)
            return false;
        if (++components <= options.componentsMax)
            return true;
        diagnostics.add(positionOf(key), "there are more than " + std::to_string(options.componentsMax) +
                                             " nodes and leaves, references counted");
        return false;
    }

    /// A map called type is a child of a node; anything else called so makes a leaf.
    static bool isLeaf(const YAML::Node &map) {
        for (const auto &entry : map)
            if (entry.first.IsScalar() && entry.first.Scalar() == "type")
                return !entry.second.IsMap();
        return false;
    }

    static bool lacksType(const YAML::Node &map) {
        for (const auto &entry : map)
            if (entry.first.IsScalar() && isLeafKey(entry.first.Scalar()) && !entry.second.IsMap())
                return true;
        return false;
    }

    const ReadOptions &options;
    Description &description;
    Diagnostics &diagnostics;
    Diagnostics ignored;  ///< faults of keys are told when the tree is read
    ReusableTypes types;
    size_t components = 0;
};

}  // namespace

void readYaml(const SourceText &source, const ReadOptions &options, Description &description,
              Diagnostics &diagnostics) {
    description.model.source.kind = "yaml";
    if (const auto document = parseDocument(source, diagnostics))
        TreeReader(options, description, diagnostics).read(*document);
}

}  // namespace tavdb::image
