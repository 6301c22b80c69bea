// SPDX-License-Identifier: Apache-2.0
#include "image/yaml_leaf.h"

#include <algorithm>
#include <limits>

#include "image/constraint_check.h"
#include "image/text_util.h"
#include "image/value_text.h"

namespace tavdb::image {

namespace {

std::string typeName(const Leaf &leaf) {
    return std::string(typeInfo(leaf.type).name);
}

bool looksLikeNumber(const YAML::Node &item) {
    if (!item.IsScalar() || isQuoted(item))
        return false;
    const auto number = parseValue(Type::f64, 0, item.Scalar());
    return (number && isFinite(*number.value)) || parseValue(Type::u64, 0, item.Scalar());
}

}  // namespace

const YamlLeafReader::Row YamlLeafReader::kRows[] = {
    {"size", &YamlLeafReader::readSize},
    {"range", &YamlLeafReader::readRange},
    {"step", &YamlLeafReader::readStep},
    {"enum", &YamlLeafReader::readEnumeration},
    {"current", &YamlLeafReader::readCurrent},
    {"default", &YamlLeafReader::readDefault},
    {"factory", &YamlLeafReader::readFactory},
    {"hook", &YamlLeafReader::readHook},
    {"secret", &YamlLeafReader::readSecret},
    {"units", &YamlLeafReader::readUnits},
    {"description", &YamlLeafReader::readDescription},
};

Leaf YamlLeafReader::read(const std::string &name, const YAML::Node &key, const YAML::Node &map) {
    leaf.name = name;
    leaf.position = positionOf(key);
    auto keys = collectLeafKeys(map, diagnostics);
    const auto type = types.resolve(keys);
    if (!type)
        return std::move(leaf);
    leaf.type = *type;
    leaf.lengthBytes = typeInfo(leaf.type).widthBytes;
    checkTogether(keys);
    for (const auto &row : kRows)
        if (const auto found = keys.find(row.key); found != keys.end())
            (this->*row.handler)(found->second);
    resolveTiers(leaf, tiers);
    return std::move(leaf);
}

void YamlLeafReader::checkTogether(const LeafKeys &keys) {
    sizeKnown = typeInfo(leaf.type).isNumber() || keys.contains("size");
    if (!sizeKnown)
        diagnostics.add(leaf.position, "a leaf of type " + typeName(leaf) + " needs a size");
    const bool ranged = keys.contains("range") || keys.contains("step");
    if (ranged && keys.contains("enum"))
        complain(keys.at("enum"), "a leaf has an enum or a range, not both");
    else if (keys.contains("step") && !keys.contains("range"))
        complain(keys.at("step"), "a step needs a range");
}

void YamlLeafReader::readSize(const LeafKey &key) {
    const auto &info = typeInfo(leaf.type);
    const auto text = scalar(key, "size");
    if (info.isNumber()) {
        complain(key, "size belongs to text and bytes; " + typeName(leaf) + " has its own");
        return;
    }
    // A text's size is what fits into it: the NUL that ends it comes on top.
    const uint32_t extra = info.family == Family::text ? 1 : 0;
    const auto size = parseValue(Type::u32, 0, text.value_or(""));
    const auto bytes = size ? std::get<uint64_t>(*size.value) : 0;
    sizeKnown = bytes >= 1 && bytes <= kLengthBytesMax - extra;
    if (sizeKnown)
        leaf.lengthBytes = static_cast<uint32_t>(bytes) + extra;
    else if (text)
        complain(key, "size must be a number from 1 to " + std::to_string(kLengthBytesMax - extra) + ", found " +
                          quote(*text));
}

void YamlLeafReader::readRange(const LeafKey &key) {
    if (refusesConstraint(key, "range"))
        return;
    if (!key.value.IsSequence() || key.value.size() != 2) {
        complain(key, "range must be a list of two numbers, found " + whatIs(key.value));
        return;
    }
    const auto minimum = readNumber(key.value[0], "the minimum", key);
    const auto maximum = readNumber(key.value[1], "the maximum", key);
    if (!minimum || !maximum)
        return;
    if (*maximum < *minimum)
        complainAt(positionOf(key.value[0]), key,
                   "the minimum " + formatValue(leaf.type, *minimum) + " is above the maximum " +
                       formatValue(leaf.type, *maximum));
    else
        leaf.constraint = Range{*minimum, *maximum, zeroValue(leaf.type)};
}

void YamlLeafReader::readStep(const LeafKey &key) {
    if (refusesConstraint(key, "step"))
        return;
    const auto step = readNumber(key.value, "step", key);
    if (!step)
        return;
    if (*step < zeroValue(leaf.type))
        complain(key, "step must not be negative, found " + formatValue(leaf.type, *step));
    else if (auto *range = std::get_if<Range>(&leaf.constraint))
        range->step = *step;
}

void YamlLeafReader::readEnumeration(const LeafKey &key) {
    if (refusesConstraint(key, "enum"))
        return;
    std::string fault;
    if (!key.value.IsSequence() && !key.value.IsMap())
        fault = "enum must be a list or a map of label: number, found " + whatIs(key.value);
    else if (key.value.size() == 0)
        fault = "enum lists no value";
    else if (key.value.size() > kElementsMax)
        fault = "enum lists more than " + std::to_string(kElementsMax) + " values";
    labelsKnown = fault.empty();
    if (!labelsKnown) {
        complain(key, fault);
        return;
    }
    leaf.constraint = Enumeration{};
    if (key.value.IsMap())
        readElementMap(key);
    else
        readElementList(key);
}

void YamlLeafReader::readElementMap(const LeafKey &key) {
    for (const auto &entry : key.value) {
        const auto label = readScalar(entry.first, "a label", positionOf(entry.first), diagnostics, contextOf(key));
        const auto number = readNumber(entry.second, "the number of a label", key);
        if (label && number)
            addElement(label, *number, entry.first, key);
        labelsKnown = labelsKnown && label && number;
    }
}

/// Numbers when every item is one, labels when none is. Quotes make an item a label.
void YamlLeafReader::readElementList(const LeafKey &key) {
    const auto numbers = std::count_if(key.value.begin(), key.value.end(), looksLikeNumber);
    if (numbers == 0) {
        readNumberedLabels(key);
        return;
    }
    if (static_cast<size_t>(numbers) != key.value.size()) {
        labelsKnown = false;
        complain(key, "enum lists numbers or labels, not both");
        return;
    }
    for (const auto &item : key.value) {
        const auto number = readNumber(item, "a listed value", key);
        if (number)
            addElement(std::nullopt, *number, item, key);
        labelsKnown = labelsKnown && number;
    }
}

void YamlLeafReader::readNumberedLabels(const LeafKey &key) {
    uint64_t next = 0;
    for (const auto &item : key.value) {
        const auto label = readScalar(item, "a listed value", positionOf(item), diagnostics, contextOf(key));
        const auto number = parseValue(leaf.type, 0, std::to_string(next++));
        labelsKnown = labelsKnown && label && number;
        if (!number) {
            complainAt(positionOf(item), key, "there are more labels than numbers: " + number.error);
            return;
        }
        if (label)
            addElement(label, *number.value, item, key);
    }
}

void YamlLeafReader::addElement(std::optional<std::string> label, const Value &number, const YAML::Node &at,
                                const LeafKey &key) {
    const auto fault = elementFault(label, number);
    if (fault.empty())
        std::get<Enumeration>(leaf.constraint).push_back({std::move(label), number});
    else
        complainAt(positionOf(at), key, fault);
    labelsKnown = labelsKnown && fault.empty();
}

std::string YamlLeafReader::elementFault(const std::optional<std::string> &label, const Value &number) {
    if (label && label->empty())
        return "a label is empty";
    if (label && hasControlCharacter(*label))
        return "the label " + quote(*label) + " holds a control character";
    if (label && !labelsSeen.insert(*label).second)
        return "the label " + quote(*label) + " is listed twice";
    if (!numbersSeen.insert(number).second)
        return "the number " + formatValue(leaf.type, number) + " is listed twice";
    return {};
}

void YamlLeafReader::readCurrent(const LeafKey &key) {
    readTier(key, "current", tiers.current);
}

void YamlLeafReader::readDefault(const LeafKey &key) {
    readTier(key, "default", tiers.defaultValue);
}

void YamlLeafReader::readFactory(const LeafKey &key) {
    readTier(key, "factory", tiers.factory);
}

void YamlLeafReader::readTier(const LeafKey &key, const char *name, std::optional<Value> &tier) {
    const auto text = scalar(key, name);
    if (!text || !sizeKnown || !labelsKnown)
        return;
    auto parsed = parseForLeaf(leaf, *text);
    if (parsed)
        tier = std::move(parsed.value);
    else
        diagnostics.add(key.position, parsed.error, contextOf(key), FaultKind::refused);
}

void YamlLeafReader::readHook(const LeafKey &key) {
    const auto text = scalar(key, "hook");
    if (!text)
        return;
    const auto parsed = parseValue(Type::u32, 0, *text);
    const auto id = parsed ? std::get<uint64_t>(*parsed.value) : 0;
    if (id == 0)
        complain(key, "hook must be a number from 1 to 4294967295, found " + quote(*text));
    leaf.hookId = static_cast<uint32_t>(id);
}

void YamlLeafReader::readSecret(const LeafKey &key) {
    const auto text = scalar(key, "secret");
    if (!text)
        return;
    leaf.secret = *text == "true";
    if (*text != "true" && *text != "false")
        complain(key, "secret must be true or false, found " + quote(*text));
}

void YamlLeafReader::readUnits(const LeafKey &key) {
    leaf.units = foldSpace(scalar(key, "units").value_or(""));
}

void YamlLeafReader::readDescription(const LeafKey &key) {
    leaf.description = foldSpace(scalar(key, "description").value_or(""));
}

std::optional<Value> YamlLeafReader::readNumber(const YAML::Node &node, const char *name, const LeafKey &key) {
    const auto text = readScalar(node, name, positionOf(node), diagnostics, contextOf(key));
    auto parsed = text ? parseValue(leaf.type, 0, *text) : Outcome<Value>{};
    if (text && !parsed)
        complainAt(positionOf(node), key, parsed.error);
    else if (parsed && !isFinite(*parsed.value))
        complainAt(positionOf(node), key, std::string(name) + " must be finite, found " + *text);
    else if (parsed)
        return parsed.value;
    return std::nullopt;
}

std::optional<std::string> YamlLeafReader::scalar(const LeafKey &key, const char *name) {
    return readScalar(key.value, name, key.position, diagnostics, contextOf(key));
}

bool YamlLeafReader::refusesConstraint(const LeafKey &key, const char *name) {
    if (typeInfo(leaf.type).isNumber())
        return false;
    complain(key, std::string(name) + " belongs to numbers; a leaf of type " + typeName(leaf) + " has none");
    return true;
}

void YamlLeafReader::complain(const LeafKey &key, const std::string &sentence) {
    complainAt(key.position, key, sentence);
}

void YamlLeafReader::complainAt(Position position, const LeafKey &key, const std::string &sentence) {
    diagnostics.add(position, sentence, contextOf(key));
}

/// The place of an inherited key is in `types:`; the leaf that stumbled over it is named too.
std::string YamlLeafReader::contextOf(const LeafKey &key) const {
    return key.typeName.empty() ? std::string{} : " (type " + quote(key.typeName) + ", as used by " + path + ")";
}

}  // namespace tavdb::image
