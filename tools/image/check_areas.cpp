// SPDX-License-Identifier: Apache-2.0
#include "image/check_areas.h"

#include <algorithm>
#include <cstddef>

#include "image/check_names.h"
#include "image/constraint_check.h"
#include "image/value_bytes.h"

namespace tavdb::image {

namespace {

/// More copies are not made: lengths that are damaged could fill the memory.
constexpr uint64_t kCopiedBytesMax = 64 << 20;

/// The words of a value that say where its data are.
struct AreaWords {
    int32_t medium;
    uint32_t offset;
    int32_t length;
};
constexpr uint32_t kValueWords = offsetof(tavDBMValue, dataMedia);
static_assert(offsetof(tavDBMValue, length) == kValueWords + offsetof(AreaWords, length));

class AreaClaims {
public:
    explicit AreaClaims(Bench &place) : bench(place) {}

    /// Short areas first: a length that grew by damage must not push the others aside.
    void run() {
        std::stable_sort(bench.areas.begin(), bench.areas.end(),
                         [](const Area &a, const Area &b) { return a.range.sizeBytes < b.range.sizeBytes; });
        for (auto &area : bench.areas) {
            area.isClaimed = bench.claimsOf(area.medium).take(area.range);
            if (!area.isClaimed)
                separate(area);
        }
    }

private:
    void separate(Area &area) {
        if (isText(area))
            separateText(area);
        else if (!shorten(area))
            separateData(area);
    }

    void separateText(const Area &area) {
        const uint32_t key = area.holder.offset;
        auto text = textOf(bench.images, key);
        const bool isLost = text.empty() || !countCopy(area);
        if (isLost)
            text = bench.keyName(area.holder.component);
        bench.setText(key, text);
        report(area, "text", isLost ? "the component gets a new name" : "it is copied", isLost ? "its text" : "");
        if (isLost)
            bench.displaced.push_back(area.holder.component);
    }

    void separateData(const Area &area) {
        std::optional<uint32_t> copy;
        if (countCopy(area))
            copy = bench.append(kDataMedium,
                                bench.images.content(area.medium).substr(area.range.offset, area.range.sizeBytes));
        setWords(area, copy ? AreaWords{kDataMedium, *copy, static_cast<int32_t>(area.range.sizeBytes)}
                            : AreaWords{kDataMedium, sizeof(tavDBMMediumHeader), 0});
        report(area, "data", copy ? "they are copied to " + std::to_string(*copy) : "it has none any more",
               copy ? "" : "its data");
    }

    void report(const Area &area, const std::string &name, const std::string &remedy, const std::string &lost) {
        bench.report(Gravity::damage, area.holder,
                     "its " + name + ", " + std::to_string(area.range.sizeBytes) + " bytes at " +
                         std::to_string(area.range.offset) + ", overlaps something else",
                     remedy, lost);
    }

    /// A number that is longer than its type.
    bool shorten(Area &area) {
        const ByteRange usual = {area.range.offset, area.usualBytes};
        if (area.usualBytes == 0 || area.usualBytes >= area.range.sizeBytes || !bench.claimsOf(area.medium).take(usual))
            return false;
        bench.report(Gravity::damage, area.holder, "its data overlap something else",
                     "they have " + std::to_string(area.usualBytes) + " bytes, as its type says");
        setWords(area, {area.medium, area.range.offset, static_cast<int32_t>(area.usualBytes)});
        return true;
    }

    bool countCopy(const Area &area) {
        copiedBytes += area.range.sizeBytes;
        return copiedBytes <= kCopiedBytesMax;
    }

    static bool isText(const Area &area) {
        return area.holder.kind == RecordKind::string;
    }

    void setWords(const Area &area, const AreaWords &words) {
        bench.images.write(area.holder.medium, area.holder.offset + kValueWords, words);
    }

    Bench &bench;
    uint64_t copiedBytes = 0;
};

class Admission {
public:
    explicit Admission(Bench &place) : bench(place) {}

    void look(uint32_t key, uint32_t leaf) {
        const auto value = *bench.images.read<tavDBMValue>(kValueMedium, key);
        if (value.constraintKey == 0)
            return;
        const auto header = bench.images.read<tavDBMConstraint>(kConstraintMedium, value.constraintKey);
        const auto type = header ? constraintTypeOf(header->type) : std::nullopt;
        if (!type)
            return;
        const FoundAt at = {kValueMedium, RecordKind::value, key, leaf};
        if (type->valueType != value.type)
            return remark(at, "its constraint, at " + std::to_string(value.constraintKey) +
                                  ", is for values of another type, so every write is refused");
        if (value.length != static_cast<int32_t>(numberBytes(value.type)))
            return remark(
                at, "it has a constraint and " + std::to_string(value.length) + " bytes, so every write is refused");
        const auto numberType = static_cast<Type>(value.type);
        const auto bytes = bench.images.content(value.dataMedia).substr(value.dataOffset, numberBytes(value.type));
        const auto number = decodeValue(numberType, bytes);
        if (!number)
            return;
        const auto complaint = refusal(numberType, constraintOf(value.constraintKey, *type), *number.value);
        if (!complaint.empty())
            remark(at, complaint);
    }

private:
    void remark(const FoundAt &at, const std::string &what) {
        bench.report(Gravity::oddity, at, what, "it stays as it is");
    }

    const Constraint &constraintOf(uint32_t key, const ConstraintType &type) {
        const auto [place, isFresh] = constraints.try_emplace(key);
        if (!isFresh)
            return place->second;
        if (type.kind == RecordKind::range) {
            const auto numbers = numbersAt(key + sizeof(tavDBMConstraint), 3, type.valueType);
            place->second = Range{numbers[0], numbers[1], numbers[2]};
            return place->second;
        }
        const auto record = *bench.images.read<tavDBMEnumeration>(kConstraintMedium, key);
        if (record.elementCount < 0)
            return place->second;
        Enumeration elements;
        for (auto &number : numbersAt(record.arrayKey, static_cast<uint32_t>(record.elementCount), type.valueType))
            elements.push_back({std::nullopt, std::move(number)});
        place->second = std::move(elements);
        return place->second;
    }

    std::vector<Value> numbersAt(uint32_t offset, uint32_t count, int32_t valueType) const {
        const uint32_t width = numberBytes(valueType);
        const auto &content = bench.images.content(kConstraintMedium);
        std::vector<Value> numbers;
        for (uint32_t i = 0; i < count; i++)
            numbers.push_back(
                *decodeValue(static_cast<Type>(valueType), std::string_view(content).substr(offset + i * width, width))
                     .value);
        return numbers;
    }

    Bench &bench;
    std::map<uint32_t, Constraint> constraints;
};

}  // namespace

void claimAreas(Bench &bench) {
    AreaClaims(bench).run();
}

void checkAdmission(Bench &bench, const ValueCheck &values) {
    if (bench.images.order() != nativeOrder())
        return;
    Admission admission(bench);
    for (const auto &[key, leaf] : values.values())
        if (leaf)
            admission.look(key, *leaf);
}

}  // namespace tavdb::image
