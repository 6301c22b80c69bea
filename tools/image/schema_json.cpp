// SPDX-License-Identifier: Apache-2.0
#include "image/schema_json.h"

#include <limits>
#include <nlohmann/json.hpp>

#include "image/source_text.h"
#include "image/text_util.h"

namespace tavdb::image {

namespace {

using Json = nlohmann::json;

constexpr int kFormat = 1;  // as in kSchemaStart

/// A fault of shape; it never leaves this file.
struct ShapeFault {
    std::string sentence;
};

struct Collector {
    Schema &schema;

    void operator()(const std::string &path, const Node &node) const {
        add(path, {node.description, {}, false, {}});
    }

    void operator()(const std::string &path, const Leaf &leaf) const {
        SchemaEntry entry{leaf.description, leaf.units, leaf.secret, {}};
        if (const auto *elements = std::get_if<Enumeration>(&leaf.constraint))
            for (const auto &element : *elements)
                if (element.label)
                    entry.labels.emplace_back(*element.label, element.number);
        add(path, std::move(entry));
    }

    void add(const std::string &path, SchemaEntry entry) const {
        if (!entry.empty())
            schema.components.emplace(path, std::move(entry));
    }
};

Json numberToJson(const Value &value) {
    if (const auto *number = std::get_if<int64_t>(&value))
        return *number;
    if (const auto *number = std::get_if<uint64_t>(&value))
        return *number;
    return std::get<double>(value);
}

Json entryToJson(const SchemaEntry &entry) {
    auto json = Json::object();
    if (!entry.description.empty())
        json["description"] = entry.description;
    if (!entry.units.empty())
        json["units"] = entry.units;
    if (entry.secret)
        json["secret"] = true;
    for (const auto &[label, number] : entry.labels)
        json["labels"][label] = numberToJson(number);
    return json;
}

std::string dump(const Json &json) {
    return json.dump(-1, ' ', false, Json::error_handler_t::replace);
}

const Json &member(const Json &object, const std::string &key, Json::value_t type, const std::string &where) {
    const auto found = object.find(key);
    if (found == object.end())
        throw ShapeFault{where + " has no " + quote(key)};
    if (found->type() != type)
        throw ShapeFault{where + ": " + quote(key) + " is " + found->type_name() + ", not " + Json(type).type_name()};
    return *found;
}

std::string optionalString(const Json &object, const std::string &key, const std::string &where) {
    return object.contains(key) ? member(object, key, Json::value_t::string, where).get<std::string>() : std::string{};
}

Value numberFromJson(const Json &json, const std::string &where) {
    if (json.is_number_unsigned())
        return json.get<uint64_t>();
    if (json.is_number_integer())
        return json.get<int64_t>();
    if (!json.is_number_float())
        throw ShapeFault{where + ": the number of a label is " + json.type_name()};
    return json.get<double>();
}

SchemaEntry entryFromJson(const Json &json, const std::string &path) {
    if (!json.is_object())
        throw ShapeFault{path + " is " + json.type_name() + ", not object"};
    SchemaEntry entry{optionalString(json, "description", path), optionalString(json, "units", path), false, {}};
    if (json.contains("secret"))
        entry.secret = member(json, "secret", Json::value_t::boolean, path).get<bool>();
    if (json.contains("labels"))
        for (const auto &[label, number] : member(json, "labels", Json::value_t::object, path).items())
            entry.labels.emplace_back(label, numberFromJson(number, path));
    return entry;
}

Schema schemaFromJson(const Json &json) {
    const std::string whole = "the schema";
    if (!json.is_object())
        throw ShapeFault{whole + " is " + json.type_name() + ", not object"};
    if (member(json, "format", Json::value_t::number_unsigned, whole) != kFormat)
        throw ShapeFault{"the schema has a format that is not known here: " + json["format"].dump()};
    const auto &source = member(json, "source", Json::value_t::object, whole);
    Schema schema;
    schema.source = {optionalString(source, "file", "source"), optionalString(source, "kind", "source"),
                     optionalString(source, "name", "source")};
    for (const auto &[path, entry] : member(json, "components", Json::value_t::object, whole).items())
        schema.components.emplace(path, entryFromJson(entry, path));
    return schema;
}

SchemaRead failed(Position position, std::string sentence) {
    return {{}, {{position, std::move(sentence)}}};
}

/// A label's number as the leaf's type holds it; numbers in a schema have no type.
std::optional<Value> asType(Type type, const Value &number) {
    const auto family = typeInfo(type).family;
    const auto *natural = std::get_if<uint64_t>(&number);
    if (family == Family::signedInteger && natural && *natural <= uint64_t{std::numeric_limits<int64_t>::max()})
        return static_cast<int64_t>(*natural);
    if (family == Family::floating && natural)
        return static_cast<double>(*natural);
    if (const auto *negative = std::get_if<int64_t>(&number); negative && family == Family::floating)
        return static_cast<double>(*negative);
    return zeroValue(type).index() == number.index() ? std::optional(number) : std::nullopt;
}

}  // namespace

Schema makeSchema(const Model &model) {
    Schema schema;
    schema.source = model.source;
    const Collector collect{schema};
    collect("/", model.root);
    forEachBelow(model.root, "/", collect);
    return schema;
}

std::string formatSchema(const Schema &schema) {
    std::string text(kSchemaStart);
    text += dump({{"file", schema.source.file}, {"kind", schema.source.kind}, {"name", schema.source.name}});
    text += kSchemaMiddle;
    const char *separator = "";
    for (const auto &[path, entry] : schema.components) {
        text += separator + dump(path) + ":" + dump(entryToJson(entry));
        separator = ",\n";
    }
    return text.append(schema.components.empty() ? kSchemaEnd.substr(1) : kSchemaEnd);
}

Outcome<std::string> parseSchemaKey(std::string_view text) {
    // Most have no escapes: the path stands there as it is.
    if (text.find('\\') == std::string_view::npos)
        return Outcome<std::string>::good(std::string(text.substr(1, text.size() - 2)));
    try {
        return Outcome<std::string>::good(Json::parse(text).get<std::string>());
    } catch (const Json::exception &) {
        return Outcome<std::string>::bad("a path is not a JSON string");
    }
}

Outcome<SchemaEntry> parseSchemaEntry(std::string_view text, const std::string &path) {
    try {
        return Outcome<SchemaEntry>::good(entryFromJson(Json::parse(text), path));
    } catch (const Json::exception &) {
        return Outcome<SchemaEntry>::bad(path + " is not JSON");
    } catch (const ShapeFault &fault) {
        return Outcome<SchemaEntry>::bad(fault.sentence);
    }
}

SchemaRead parseSchema(std::string_view text) {
    try {
        return {schemaFromJson(Json::parse(text)), {}};
    } catch (const Json::parse_error &problem) {
        const auto offset = problem.byte == 0 ? 0 : problem.byte - 1;
        return failed(SourceText(text).positionAt(offset), "this is not JSON");
    } catch (const Json::exception &problem) {
        return failed({}, std::string("cannot be read: ") + problem.what());
    } catch (const ShapeFault &fault) {
        return failed({}, fault.sentence);
    }
}

void applyLabels(Type type, const SchemaEntry &entry, Enumeration &elements) {
    for (const auto &[label, number] : entry.labels) {
        const auto typed = asType(type, number);
        for (auto &element : elements)
            if (typed && element.number == *typed && !element.label) {
                element.label = label;
                break;
            }
    }
}

}  // namespace tavdb::image
