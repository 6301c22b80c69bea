// SPDX-License-Identifier: Apache-2.0
#include "image/c_header.h"

#include <algorithm>
#include <limits>
#include <set>
#include <string_view>

#include "image/value_text.h"

namespace tavdb::image {

namespace {

/// Letters and digits in upper case, everything else an underscore.
std::string identifierPart(std::string_view text) {
    std::string part;
    for (const char c : text) {
        const bool lower = c >= 'a' && c <= 'z';
        const bool plain = (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9');
        part += lower ? static_cast<char>(c - 'a' + 'A') : plain ? c : '_';
    }
    return part;
}

/// A path inside a comment must not end it or look like the start of another.
std::string commentText(std::string_view text) {
    std::string safe;
    for (const char c : text) {
        const bool joins = !safe.empty() && ((safe.back() == '*' && c == '/') || (safe.back() == '/' && c == '*'));
        safe += joins ? std::string(" ") + c : std::string(1, c);
    }
    return safe;
}

bool fitsInt(const Value &number) {
    if (const auto *natural = std::get_if<uint64_t>(&number))
        return *natural <= uint64_t{std::numeric_limits<int32_t>::max()};
    const auto *integer = std::get_if<int64_t>(&number);
    return integer && *integer >= std::numeric_limits<int32_t>::min() &&
           *integer <= std::numeric_limits<int32_t>::max();
}

std::string literal(Type type, const Value &number) {
    const auto text = formatValue(type, number);
    if (std::holds_alternative<uint64_t>(number))
        return "UINT64_C(" + text + ")";
    if (std::holds_alternative<double>(number))
        return "(" + (text.find_first_of(".e") == std::string::npos ? text + ".0" : text) + ")";
    // The lowest number has no literal of its own: C reads the minus as an operator.
    const auto integer = std::get<int64_t>(number);
    return integer == std::numeric_limits<int64_t>::min() ? "(-INT64_C(9223372036854775807) - 1)"
                                                          : "INT64_C(" + text + ")";
}

/// The lowest int as C reads it without a warning.
std::string enumeratorValue(Type type, const Value &number) {
    const auto *integer = std::get_if<int64_t>(&number);
    return integer && *integer == std::numeric_limits<int32_t>::min() ? "(-2147483647 - 1)" : formatValue(type, number);
}

class HeaderWriter {
public:
    HeaderWriter(const ComponentKeys &given, std::string start) : keys(given), prefix(std::move(start)) {}

    void operator()(const std::string &path, const Node &) {
        addKey(path);
    }

    void operator()(const std::string &path, const Leaf &leaf) {
        addKey(path);
        const auto *elements = std::get_if<Enumeration>(&leaf.constraint);
        if (elements != nullptr)
            addLabels(path, leaf.type, *elements);
    }

    Outcome<std::string> finish(const Source &source) const {
        if (!missing.empty())
            return Outcome<std::string>::bad("there is no key for " + missing);
        const auto guard = prefix + "_" + identifierPart(source.file) + "_H";
        return Outcome<std::string>::good("/* Generated from " + commentText(source.file) +
                                          ", do not edit. */\n#ifndef " + guard + "\n#define " + guard +
                                          "\n\n#include <stdint.h>\n\n/* Component keys. */\n" + keyLines +
                                          "\n/* Labels of enumerations. */\n" + labelLines + "\n#endif\n");
    }

private:
    void addKey(const std::string &path) {
        const auto key = keys.find(path);
        if (key == keys.end()) {
            missing = missing.empty() ? path : missing;
            return;
        }
        const auto part = path == "/" ? "_ROOT" : identifierPart(path);
        keyLines += "#define " + unique(prefix + "_KEY" + part) + " UINT32_C(" + std::to_string(key->second) + ") /* " +
                    commentText(path) + " */\n";
    }

    void addLabels(const std::string &path, Type type, const Enumeration &elements) {
        const bool small = std::all_of(elements.begin(), elements.end(), [](const Element &element) {
            return !element.label || fitsInt(element.number);
        });
        std::string lines;
        for (const auto &element : elements) {
            if (!element.label)
                continue;
            const auto part = element.label->empty() ? "EMPTY" : identifierPart(*element.label);
            const auto name = unique(prefix + "_LABEL" + identifierPart(path) + "_" + part);
            lines += small ? "    " + name + " = " + enumeratorValue(type, element.number) + ",\n"
                           : "#define " + name + " " + literal(type, element.number) + "\n";
        }
        if (!lines.empty())
            labelLines += "/* " + commentText(path) + " */\n" + (small ? "enum {\n" + lines + "};\n" : lines);
    }

    /// Different paths can have one identifier: later ones get a number.
    std::string unique(const std::string &wanted) {
        auto name = wanted;
        for (size_t &last = used[wanted]; !names.insert(name).second;)
            name = wanted + "_" + std::to_string(++last + 1);
        return name;
    }

    const ComponentKeys &keys;
    std::string prefix;
    std::string keyLines;
    std::string labelLines;
    std::string missing;
    std::set<std::string> names;
    std::map<std::string, size_t> used;
};

}  // namespace

Outcome<std::string> formatHeader(const Model &model, const ComponentKeys &keys, const std::string &prefix) {
    HeaderWriter writer(keys, prefix);
    writer("/", model.root);
    forEachBelow(model.root, "/", writer);
    return writer.finish(model.source);
}

}  // namespace tavdb::image
