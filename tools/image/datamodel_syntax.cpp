// SPDX-License-Identifier: Apache-2.0
#include "image/datamodel_syntax.h"

#include <algorithm>
#include <array>
#include <string_view>

#include "image/description.h"
#include "image/text_util.h"

namespace tavdb::image {

namespace {

struct PrimitiveRow {
    std::string_view name;
    Primitive primitive;
};

constexpr std::array<PrimitiveRow, 10> kPrimitives = {{
    {"boolean", Primitive::boolean},
    {"int", Primitive::int32},
    {"unsignedInt", Primitive::uint32},
    {"long", Primitive::int64},
    {"unsignedLong", Primitive::uint64},
    {"decimal", Primitive::decimal},
    {"string", Primitive::string},
    {"hexBinary", Primitive::hexBinary},
    {"base64", Primitive::base64},
    {"dateTime", Primitive::dateTime},
}};

using Facets = std::vector<pugi::xml_node>;

struct FacetRow {
    std::string_view name;
    Facets Syntax::*facets;
};

constexpr std::array<FacetRow, 7> kFacets = {{
    {"range", &Syntax::ranges},
    {"size", &Syntax::sizes},
    {"pattern", &Syntax::patterns},
    {"enumeration", &Syntax::enumerations},
    {"pathRef", &Syntax::references},
    {"instanceRef", &Syntax::references},
    {"enumerationRef", &Syntax::enumerationReferences},
}};

const PrimitiveRow *findPrimitive(std::string_view name) {
    const auto *found =
        std::find_if(kPrimitives.begin(), kPrimitives.end(), [&](const auto &row) { return row.name == name; });
    return found == kPrimitives.end() ? nullptr : found;
}

bool isType(const pugi::xml_node &element) {
    return findPrimitive(element.name()) != nullptr || std::string_view(element.name()) == "dataType";
}

bool isKnownElsewhere(std::string_view name) {
    return name == "description" || name == "units" || name == "list" || name == "default" || name == "dataType" ||
           findPrimitive(name) != nullptr;
}

/// Restrictions of one kind replace those of the same kind that the base has.
void applyFacets(Syntax &syntax, const pugi::xml_node &element) {
    for (const auto &row : kFacets)
        if (element.child(row.name.data()))
            (syntax.*row.facets).clear();
    for (const auto &child : element.children()) {
        const std::string_view name = child.name();
        const auto *row =
            std::find_if(kFacets.begin(), kFacets.end(), [&](const auto &known) { return known.name == name; });
        if (row != kFacets.end())
            (syntax.*row->facets).push_back(child);
        else if (child.type() == pugi::node_element && !isKnownElsewhere(name))
            syntax.unknown.push_back(child);
    }
    if (const auto units = element.child("units"))
        syntax.units = foldSpace(units.attribute("value").value());
}

pugi::xml_node typeElement(const pugi::xml_node &parent) {
    return parent.find_child(isType);
}

void addList(Syntax &syntax, const pugi::xml_node &parent) {
    if (const auto list = parent.child("list"))
        syntax.lists.insert(syntax.lists.begin(), list);
}

}  // namespace

std::string_view primitiveName(Primitive primitive) {
    return kPrimitives[static_cast<size_t>(primitive)].name;
}

void DataTypes::load(const pugi::xml_node &document) {
    for (const auto &definition : document.children("dataType"))
        definitions.try_emplace(definition.attribute("name").value(), definition);
}

std::optional<Syntax> DataTypes::resolve(const pugi::xml_node &syntax, std::string &error) const {
    const auto element = typeElement(syntax);
    if (!element) {
        error = "the syntax names no type that is known";
        return std::nullopt;
    }
    auto resolved = resolveType(element, 0, error);
    if (resolved)
        addList(*resolved, syntax);
    return resolved;
}

std::optional<Syntax> DataTypes::resolveType(const pugi::xml_node &element, size_t depth, std::string &error) const {
    std::optional<Syntax> syntax;
    if (const auto *row = findPrimitive(element.name())) {
        syntax.emplace().primitive = row->primitive;
    } else {
        const auto named = element.attribute("ref") ? element.attribute("ref") : element.attribute("base");
        syntax = resolveNamed(named.value(), depth, error);
    }
    if (syntax)
        applyFacets(*syntax, element);
    return syntax;
}

std::optional<Syntax> DataTypes::resolveNamed(const std::string &name, size_t depth, std::string &error) const {
    const auto found = definitions.find(name);
    if (found == definitions.end() || depth > kTypeChainMax) {
        error = found == definitions.end() ? "there is no data type " + quote(name)
                                           : "data types build on each other without an end, at " + quote(name);
        return std::nullopt;
    }
    const auto &definition = found->second;
    const auto element = definition.attribute("base") ? definition : typeElement(definition);
    if (!element) {
        error = "the data type " + quote(name) + " names no type that is known";
        return std::nullopt;
    }
    auto syntax = resolveType(element, depth + 1, error);
    if (!syntax)
        return syntax;
    addList(*syntax, definition);
    if (const auto description = definition.child("description"))
        syntax->typeDescription = description.text().get();
    return syntax;
}

}  // namespace tavdb::image
