// SPDX-License-Identifier: Apache-2.0
#include "record_view.h"

#include <array>
#include <cstring>
#include <span>

#include "image/text_util.h"
#include "image/value_bytes.h"
#include "image/value_text.h"
#include "view.h"

namespace tavdb::command {

namespace {

enum class FieldKind : uint8_t { number, componentKind, valueType, constraintType, medium, signedNumber, hexNumber };

/// A word of a record.
struct Field {
    std::string_view name;
    FieldKind kind = FieldKind::number;
};

constexpr std::array kHeaderFields = {Field{"magic", FieldKind::hexNumber}, Field{"role", FieldKind::hexNumber},
                                      Field{"root"}, Field{"first free"}};
constexpr std::array kFreeFields = {Field{"next"}, Field{"size"}};
constexpr std::array kNodeFields = {Field{"key"},        Field{"name"},         Field{"reserved"},
                                    Field{"parent"},     Field{"next sibling"}, Field{"kind", FieldKind::componentKind},
                                    Field{"first child"}};
constexpr std::array kLeafFields = {Field{"key"},           Field{"name"},
                                    Field{"reserved"},      Field{"parent"},
                                    Field{"next sibling"},  Field{"kind", FieldKind::componentKind},
                                    Field{"current value"}, Field{"default value"},
                                    Field{"factory value"}, Field{"hook"}};
constexpr std::array kStringFields = {Field{"key"}, Field{"text medium", FieldKind::medium}, Field{"text offset"},
                                      Field{"text length", FieldKind::signedNumber}};
constexpr std::array kValueFields = {
    Field{"key"},         Field{"type", FieldKind::valueType},      Field{"data medium", FieldKind::medium},
    Field{"data offset"}, Field{"length", FieldKind::signedNumber}, Field{"creation word"},
    Field{"constraint"}};
constexpr std::array kConstraintFields = {Field{"key"}, Field{"type", FieldKind::constraintType}};
constexpr std::array kEnumerationFields = {Field{"key"}, Field{"type", FieldKind::constraintType}, Field{"elements at"},
                                           Field{"element size", FieldKind::signedNumber},
                                           Field{"element count", FieldKind::signedNumber}};
constexpr std::array<std::string_view, 3> kRangeNumbers = {"minimum", "maximum", "step"};

/// What has no fields is shown in the way of its data.
std::span<const Field> fieldsOf(image::RecordKind kind) {
    switch (kind) {
        case image::RecordKind::header:
            return kHeaderFields;
        case image::RecordKind::freeBlock:
            return kFreeFields;
        case image::RecordKind::node:
            return kNodeFields;
        case image::RecordKind::leaf:
            return kLeafFields;
        case image::RecordKind::string:
            return kStringFields;
        case image::RecordKind::value:
            return kValueFields;
        case image::RecordKind::range:
            return kConstraintFields;
        case image::RecordKind::enumeration:
            return kEnumerationFields;
        default:
            return {};
    }
}

constexpr size_t kBytesOnLine = 16;

std::string hexOf(std::string_view bytes) {
    constexpr std::string_view kDigits = "0123456789abcdef";
    std::string hex;
    for (const char byte : bytes) {
        const auto number = static_cast<uint8_t>(byte);
        hex += hex.empty() ? "" : " ";
        hex += {kDigits[number >> 4], kDigits[number & 15]};
    }
    return hex;
}

std::string typeText(int32_t code) {
    const auto *info = image::findType(code);
    return info != nullptr ? std::string(info->name) : "no known type";
}

std::string constraintTypeText(int32_t code) {
    return code >= 1 << TAVDB_ENUMERATION_SHIFT ? "enumeration of " + typeText(code >> TAVDB_ENUMERATION_SHIFT)
                                                : "range of " + typeText(code);
}

std::string fieldText(const Field &field, uint32_t number) {
    const auto signedNumber = static_cast<int32_t>(number);
    const auto text = std::string(field.name) + " ";
    switch (field.kind) {
        case FieldKind::componentKind:
            return text + std::to_string(number) +
                   (number == TAVDB_KIND_NODE   ? ", node"
                    : number == TAVDB_KIND_LEAF ? ", leaf"
                                                : ", neither");
        case FieldKind::valueType:
            return text + std::to_string(signedNumber) + ", " + typeText(signedNumber);
        case FieldKind::constraintType:
            return text + std::to_string(signedNumber) + ", " + constraintTypeText(signedNumber);
        case FieldKind::medium:
            return text + std::to_string(signedNumber) + ", " + mediumNameOf(signedNumber);
        case FieldKind::signedNumber:
            return text + std::to_string(signedNumber);
        case FieldKind::hexNumber: {
            std::array<char, 11> hex{};
            snprintf(hex.data(), hex.size(), "0x%08x", number);
            return text + hex.data();
        }
        default:
            return text + std::to_string(number);
    }
}

/// Adds lines to a block, from the bytes that are left of it.
class LineWriter {
public:
    LineWriter(RecordBlock &target, std::string_view content) : block(target), bytes(content) {}

    void fields(std::span<const Field> names) {
        for (const auto &field : names) {
            if (bytes.size() - at < sizeof(uint32_t))
                return;
            uint32_t number = 0;
            std::memcpy(&number, bytes.data() + at, sizeof number);
            line(sizeof number, fieldText(field, number));
        }
    }

    /// A number of a type that is known to be one.
    void number(const image::TypeInfo &type, const std::string &name) {
        if (bytes.size() - at < type.widthBytes)
            return;
        const auto value = image::decodeValue(type.type, bytes.substr(at, type.widthBytes));
        line(type.widthBytes, name + " " + (value ? image::formatValue(type.type, *value.value) : "?"));
    }

    void rest(const std::string &meaning) {
        if (at < bytes.size())
            line(bytes.size() - at, meaning);
    }

    /// What is left, with the characters that it may stand for.
    void characters() {
        while (at < bytes.size()) {
            const auto piece = bytes.substr(at, kBytesOnLine);
            std::string shown;
            for (const char byte : piece)
                shown += byte >= ' ' && byte <= '~' ? byte : '.';
            line(piece.size(), "|" + shown + "|");
        }
    }

private:
    void line(size_t length, std::string meaning) {
        block.lines.push_back(
            {block.range.offset + static_cast<uint32_t>(at), hexOf(bytes.substr(at, length)), std::move(meaning)});
        at += length;
    }

    RecordBlock &block;
    std::string_view bytes;
    size_t at = 0;
};

void writeNumbers(LineWriter &writer, const image::StoredRecord &record) {
    const auto *info = image::findType(record.type);
    if (info == nullptr || !info->isNumber()) {
        writer.characters();
        return;
    }
    if (record.kind == image::RecordKind::range) {
        for (const auto name : kRangeNumbers)
            writer.number(*info, std::string(name));
        writer.rest("padding");
        return;
    }
    const uint32_t count = record.range.sizeBytes / info->widthBytes;
    if (record.kind == image::RecordKind::data && count == 1)
        writer.number(*info, "value");
    else if (record.kind == image::RecordKind::elements)
        for (uint32_t i = 0; i < count; i++)
            writer.number(*info, "element " + std::to_string(i));
    writer.characters();
}

/// The block with its bytes; what lies outside of the medium has none.
image::Result<RecordBlock> readBlock(image::Database &database, int32_t medium, const image::ByteRange &range,
                                     std::string_view what, std::string &bytes) {
    using Read = image::Result<RecordBlock>;
    const auto size = image::mediumSize(database, medium);
    if (!size)
        return Read::bad(size.error);
    const uint64_t end = std::min<uint64_t>(range.end(), *size.value);
    const auto length = end > range.offset ? static_cast<uint32_t>(end - range.offset) : 0;
    auto content = image::readMedium(database, medium, range.offset, length);
    if (!content)
        return Read::bad(content.error);
    bytes = std::move(*content.value);
    RecordBlock block{medium, range, std::string(what), {}, {}};
    return Read::good(std::move(block));
}

void noteMissing(RecordBlock &block, const std::string &bytes) {
    if (bytes.size() < block.range.sizeBytes)
        block.lines.push_back({block.range.offset + static_cast<uint32_t>(bytes.size()), "", "outside of the medium"});
}

image::Result<RecordBlock> viewFields(image::Database &database, int32_t medium, const image::ByteRange &range,
                                      image::RecordKind kind) {
    std::string bytes;
    auto block = readBlock(database, medium, range, image::layoutOf(kind).name, bytes);
    if (!block)
        return block;
    LineWriter(*block.value, bytes).fields(fieldsOf(kind));
    return block;
}

void mask(RecordBlock &block) {
    block.lines = {{block.range.offset, std::string(kMasked), "--secrets shows it"}};
}

}  // namespace

std::string mediumNameOf(int32_t medium) {
    for (const auto &name : image::kMediumNames)
        if (name.id == medium)
            return std::string(name.kind);
    return "medium " + std::to_string(medium);
}

image::Result<RecordBlock> viewRecord(image::Database &database, const image::StoredRecord &record, bool isMasked) {
    std::string bytes;
    auto block = readBlock(database, record.medium, record.range, image::layoutOf(record.kind).name, bytes);
    if (!block)
        return block;
    if (isMasked) {
        mask(*block.value);
        return block;
    }
    LineWriter writer(*block.value, bytes);
    writer.fields(fieldsOf(record.kind));
    if (record.kind == image::RecordKind::text)
        writer.characters();
    else
        writeNumbers(writer, record);
    noteMissing(*block.value, bytes);
    return block;
}

image::Result<RecordBlock> viewHeader(image::Database &database, int32_t medium) {
    return viewFields(database, medium, {0, sizeof(tavDBMMediumHeader)}, image::RecordKind::header);
}

image::Result<RecordBlock> viewFreeBlock(image::Database &database, int32_t medium, const image::ByteRange &block) {
    // What follows the head is whatever was there before.
    auto view = viewFields(database, medium, {block.offset, sizeof(tavDBMFreeBlock)}, image::RecordKind::freeBlock);
    if (view)
        view.value->range = block;
    return view;
}

image::Result<RecordBlock> viewUnused(image::Database &database, int32_t medium, const image::ByteRange &range,
                                      bool isMasked) {
    std::string bytes;
    auto block = readBlock(database, medium, range, "not used by anything", bytes);
    if (block && isMasked)
        mask(*block.value);
    else if (block)
        LineWriter(*block.value, bytes).characters();
    return block;
}

}  // namespace tavdb::command
