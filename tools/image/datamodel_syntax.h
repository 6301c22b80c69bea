// SPDX-License-Identifier: Apache-2.0
// The syntax of a data model's parameter with all named data types followed:
// its primitive type and the restrictions in force. Says nothing about how a
// database expresses them.
#pragma once

#include <map>
#include <optional>
#include <pugixml.hpp>
#include <string>
#include <vector>

namespace tavdb::image {

enum class Primitive {
    boolean,
    int32,
    uint32,
    int64,
    uint64,
    decimal,
    string,
    hexBinary,
    base64,
    dateTime,
};

std::string_view primitiveName(Primitive primitive);

/// The elements live as long as their document.
struct Syntax {
    Primitive primitive = Primitive::string;
    std::string typeDescription;        ///< of the named data type, raw
    std::vector<pugi::xml_node> lists;  ///< outermost first; more than one is a list of lists
    std::vector<pugi::xml_node> ranges;
    std::vector<pugi::xml_node> sizes;
    std::vector<pugi::xml_node> patterns;
    std::vector<pugi::xml_node> enumerations;
    std::vector<pugi::xml_node> references;
    std::vector<pugi::xml_node> enumerationReferences;
    std::vector<pugi::xml_node> unknown;  ///< restrictions that no one here knows
    std::string units;
};

class DataTypes {
public:
    void load(const pugi::xml_node &document);

    /// @param syntax a <syntax> element
    /// @param error  says why there is no result
    std::optional<Syntax> resolve(const pugi::xml_node &syntax, std::string &error) const;

private:
    std::optional<Syntax> resolveType(const pugi::xml_node &element, size_t depth, std::string &error) const;
    std::optional<Syntax> resolveNamed(const std::string &name, size_t depth, std::string &error) const;

    std::map<std::string, pugi::xml_node, std::less<>> definitions;
};

}  // namespace tavdb::image
