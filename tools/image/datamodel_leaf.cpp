// SPDX-License-Identifier: Apache-2.0
#include "image/datamodel_leaf.h"

#include <algorithm>
#include <array>
#include <set>

#include "image/datamodel_lexical.h"
#include "image/datamodel_range.h"
#include "image/text_util.h"
#include "image/value_text.h"

namespace tavdb::image {

namespace {

constexpr size_t kSmallEnumeration = 256;

Type typeOf(Primitive primitive) {
    switch (primitive) {
        case Primitive::boolean:
            return Type::u8;
        case Primitive::int32:
            return Type::s32;
        case Primitive::uint32:
            return Type::u32;
        case Primitive::int64:
            return Type::s64;
        case Primitive::uint64:
            return Type::u64;
        case Primitive::decimal:
            return Type::f64;
        default:
            return Type::text;
    }
}

std::optional<std::string> optionalText(const pugi::xml_attribute &attribute) {
    return attribute ? std::optional<std::string>(attribute.value()) : std::nullopt;
}

class LeafMaker {
public:
    LeafMaker(const Syntax &resolved, const ReadOptions &given) : syntax(resolved), options(given) {}

    /// Type, length and constraint, and what of the syntax they cannot hold.
    void shape() {
        if (!syntax.lists.empty())
            shapeList();
        else if (syntax.primitive == Primitive::boolean)
            shapeBoolean();
        else if (syntax.primitive == Primitive::string && isEnumerated())
            shapeEnumeration();
        else if (typeOf(syntax.primitive) == Type::text)
            shapeText();
        else
            shapeNumber();
        loseCommon();
    }

    void readDefaults(const pugi::xml_node &element) {
        Tiers tiers;
        for (const auto &given : element.children("default")) {
            const std::string_view kind = given.attribute("type").value();
            const std::string text = given.attribute("value").value();
            if (kind == "factory")
                readDefault(text, tiers.factory);
            else if (kind == "object")
                readDefault(text, tiers.defaultValue);
            else
                lose(Loss::defaultKind, std::string(kind) + " default " + quote(text));
        }
        resolveTiers(made.leaf, tiers);
    }

    void readMarks(const pugi::xml_node &element) {
        made.leaf.secret = element.attribute("hidden").as_bool() || element.attribute("secured").as_bool();
        if (element.attribute("command").as_bool())
            lose(Loss::command, "writing it is meant to trigger an action");
    }

    MadeLeaf take() {
        return std::move(made);
    }

private:
    void setNumber(Type type) {
        made.leaf.type = type;
        made.leaf.lengthBytes = typeInfo(type).widthBytes;
    }

    bool isEnumerated() const {
        return !syntax.enumerations.empty() && syntax.enumerations.size() <= kElementsMax;
    }

    void shapeBoolean() {
        setNumber(Type::u8);
        made.leaf.constraint = Enumeration{{"false", Value(uint64_t{0})}, {"true", Value(uint64_t{1})}};
        loseMisplaced(syntax.ranges, "range");
    }

    void shapeEnumeration() {
        setNumber(syntax.enumerations.size() <= kSmallEnumeration ? Type::u8 : Type::u16);
        Enumeration elements;
        std::set<std::string> labels;
        for (const auto &value : syntax.enumerations) {
            std::string label = value.attribute("value").value();
            if (labels.insert(label).second)
                elements.push_back({std::move(label), Value(uint64_t{elements.size()})});
            loseMarks(value);
        }
        made.leaf.constraint = std::move(elements);
        loseMisplaced(syntax.ranges, "range");
        losePatterns();
    }

    void shapeNumber() {
        setNumber(typeOf(syntax.primitive));
        std::vector<RangeText> ranges;
        for (const auto &range : syntax.ranges)
            ranges.push_back({optionalText(range.attribute("minInclusive")),
                              optionalText(range.attribute("maxInclusive")), optionalText(range.attribute("step"))});
        made.leaf.constraint = mergeRanges(made.leaf.type, ranges, made.losses);
        loseMisplaced(syntax.sizes, "size");
        loseMisplaced(syntax.enumerations, "enumeration");
        losePatterns();
    }

    void shapeText() {
        const auto lengths = readLengths(syntax.sizes);
        setTextSize(lengths, textBytes(syntax.primitive, lengths.maximum));
        if (lengths.minimum != 0)
            lose(Loss::minLength, "at least " + std::to_string(lengths.minimum));
        if (lengths.gaps)
            lose(Loss::lengthGaps, "of " + std::to_string(syntax.sizes.size()) + " lengths the longest is kept");
        if (syntax.primitive != Primitive::string)
            lose(Loss::lexicalForm, std::string(primitiveName(syntax.primitive)) + " is kept as text");
        for (const auto &value : syntax.enumerations)
            lose(Loss::facetIgnored, "enumeration value " + quote(value.attribute("value").value()));
        loseMisplaced(syntax.ranges, "range");
        losePatterns();
    }

    void shapeList() {
        const auto &list = syntax.lists.front();
        const auto sizes = list.children("size");
        const auto lengths = readLengths({sizes.begin(), sizes.end()});
        setTextSize(lengths, lengths.maximum);
        if (lengths.minimum != 0)
            lose(Loss::minLength, "at least " + std::to_string(lengths.minimum));
        if (list.attribute("minItems") || list.attribute("maxItems"))
            lose(Loss::listCount, std::string("items ") + list.attribute("minItems").as_string("0") + ".." +
                                      list.attribute("maxItems").value());
        if (list.attribute("nestedBrackets"))
            lose(Loss::listBrackets, std::string("brackets ") + list.attribute("nestedBrackets").value());
        if (!itemRestriction().empty())
            lose(Loss::listItems, itemRestriction());
    }

    /// What is required of the items, in a few words; empty for plain strings.
    std::string itemRestriction() const {
        std::string text;
        const auto add = [&](bool present, std::string_view what) {
            if (present)
                text += (text.empty() ? "" : ", ") + std::string(what);
        };
        add(syntax.lists.size() > 1, "lists");
        add(syntax.primitive != Primitive::string, primitiveName(syntax.primitive));
        add(!syntax.enumerations.empty(), "listed values");
        add(!syntax.ranges.empty(), "ranges");
        add(!syntax.sizes.empty(), "lengths");
        add(!syntax.patterns.empty(), "patterns");
        return text.empty() ? text : "items are restricted: " + text;
    }

    void setTextSize(const Lengths &lengths, std::optional<uint64_t> bytes) {
        made.leaf.type = Type::text;
        sizeAssumed = !bytes;
        const auto wanted = bytes.value_or(options.textSizeBytes);
        const auto kept =
            std::clamp<uint64_t>(wanted, 1, std::clamp(options.textSizeBytesMax, 1U, kLengthBytesMax - 1));
        made.leaf.lengthBytes = static_cast<uint32_t>(kept) + 1;
        if (sizeAssumed)
            lose(Loss::lengthAssumed, std::to_string(kept) + " bytes");
        else if (wanted > kept)
            lose(Loss::lengthCut, std::to_string(*lengths.maximum) + " needs " + std::to_string(wanted) + " bytes, " +
                                      std::to_string(kept) + " are kept");
    }

    void loseCommon() {
        if (!syntax.units.empty())
            lose(Loss::units, syntax.units);
        for (const auto &reference : syntax.references)
            lose(Loss::reference,
                 foldSpace(std::string("must name ") + reference.attribute("targetType").as_string("an object") + " " +
                           reference.attribute("targetParent").value()));
        for (const auto &reference : syntax.enumerationReferences)
            lose(Loss::enumerationReference,
                 std::string("values are listed by ") + reference.attribute("targetParam").value());
        for (const auto &facet : syntax.unknown)
            lose(Loss::facetIgnored, std::string(facet.name()));
    }

    void losePatterns() {
        for (const auto &pattern : syntax.patterns)
            lose(Loss::pattern, quote(pattern.attribute("value").value()));
    }

    void loseMisplaced(const std::vector<pugi::xml_node> &facets, std::string_view name) {
        if (!facets.empty())
            lose(Loss::facetIgnored, std::string(name) + " on " + std::string(primitiveName(syntax.primitive)));
    }

    void loseMarks(const pugi::xml_node &value) {
        constexpr std::array<const char *, 4> marks = {"access", "optional", "status", "code"};
        std::string found;
        for (const auto *mark : marks)
            if (value.attribute(mark))
                found += std::string(" ") + mark + " " + value.attribute(mark).value();
        if (!found.empty())
            lose(Loss::enumerationMarks, quote(value.attribute("value").value()) + found);
    }

    void readDefault(const std::string &text, std::optional<Value> &tier) {
        auto fault = syntax.lists.empty() ? scalarFault(text) : listFault(text);
        if (fault.empty() && sizeAssumed && text.size() >= made.leaf.lengthBytes &&
            text.size() <= options.textSizeBytesMax)
            made.leaf.lengthBytes = static_cast<uint32_t>(text.size()) + 1;
        auto parsed = fault.empty() ? parseForLeaf(made.leaf, text) : Outcome<Value>::bad(fault);
        if (parsed)
            tier = std::move(parsed.value);
        else
            lose(Loss::defaultRefused, quote(text) + ": " + parsed.error);
    }

    std::string scalarFault(const std::string &text) const {
        auto fault = lexicalFault(syntax.primitive, text);
        if (fault.empty() && made.leaf.type == Type::text)
            fault = lengthFault(readLengths(syntax.sizes), valueLength(syntax.primitive, text));
        return fault;
    }

    std::string listFault(const std::string &text) const {
        // Items with brackets around them cannot be told apart by their commas alone.
        const auto &list = syntax.lists.front();
        if (syntax.lists.size() > 1 || list.attribute("nestedBrackets"))
            return {};
        const auto items = splitItems(text);
        if (items.size() < list.attribute("minItems").as_ullong(0))
            return "there are fewer items than required";
        if (items.size() > list.attribute("maxItems").as_ullong(items.size()))
            return "there are more items than allowed";
        Syntax itemSyntax = syntax;
        itemSyntax.lists.clear();
        LeafMaker item(itemSyntax, options);
        item.shape();
        for (const auto &itemText : items)
            if (const auto fault = item.itemFault(itemText); !fault.empty())
                return "item " + quote(itemText) + ": " + fault;
        return {};
    }

    std::string itemFault(const std::string &text) const {
        const auto fault = scalarFault(text);
        return fault.empty() && made.leaf.type != Type::text ? parseForLeaf(made.leaf, text).error : fault;
    }

    void lose(Loss kind, std::string what) {
        made.losses.push_back({kind, std::move(what)});
    }

    const Syntax &syntax;
    const ReadOptions &options;
    MadeLeaf made;
    bool sizeAssumed = false;
};

}  // namespace

MadeLeaf makeLeaf(const Syntax &syntax, const pugi::xml_node &syntaxElement, const ReadOptions &options) {
    LeafMaker maker(syntax, options);
    maker.shape();
    maker.readMarks(syntaxElement);
    maker.readDefaults(syntaxElement);
    auto made = maker.take();
    made.leaf.units = syntax.units;
    return made;
}

}  // namespace tavdb::image
