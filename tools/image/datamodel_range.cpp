// SPDX-License-Identifier: Apache-2.0
#include "image/datamodel_range.h"

#include <algorithm>
#include <bit>
#include <cmath>
#include <limits>
#include <set>
#include <type_traits>

#include "image/text_util.h"
#include "image/value_text.h"

namespace tavdb::image {

namespace {

template <typename T>
struct Interval {
    T minimum;
    T maximum;
    T step;  ///< 0 for floating numbers and where every value counts
};

std::string describeRange(const RangeText &range) {
    auto text = range.minimum.value_or("") + ".." + range.maximum.value_or("");
    return range.step ? text + " step " + *range.step : text;
}

/// A bound may lie outside of the type: then it is the type's own limit, unless
/// that leaves nothing.
enum class BoundKind { inside, below, above, malformed };

template <typename T>
struct Bound {
    BoundKind kind = BoundKind::inside;
    T number{};
};

template <typename T>
Bound<T> readBound(Type type, const std::optional<std::string> &text, const Value &missing) {
    if (!text)
        return {BoundKind::inside, std::get<T>(missing)};
    const auto parsed = parseValue(type, 0, *text);
    if (parsed && isFinite(*parsed.value))
        return {BoundKind::inside, std::get<T>(*parsed.value)};
    const auto number = parseValue(Type::f64, 0, *text);
    const auto wide = number ? std::get<double>(*number.value) : 0.0;
    if (!number || !std::isfinite(wide) || wide != std::trunc(wide))
        return {BoundKind::malformed, {}};
    return {wide < 0 ? BoundKind::below : BoundKind::above, {}};
}

template <typename T>
struct IntervalRead {
    std::optional<Interval<T>> interval;
    bool malformed = false;
};

template <typename T>
IntervalRead<T> readInterval(Type type, const RangeText &range) {
    auto minimum = readBound<T>(type, range.minimum, lowestValue(type));
    auto maximum = readBound<T>(type, range.maximum, highestValue(type));
    if (minimum.kind == BoundKind::malformed || maximum.kind == BoundKind::malformed)
        return {std::nullopt, true};
    if (minimum.kind == BoundKind::above || maximum.kind == BoundKind::below)
        return {};
    if (minimum.kind == BoundKind::below)
        minimum.number = std::get<T>(lowestValue(type));
    if (maximum.kind == BoundKind::above)
        maximum.number = std::get<T>(highestValue(type));
    if (maximum.number < minimum.number)
        return {};
    return {Interval<T>{minimum.number, maximum.number, T{}}, false};
}

template <typename T>
uint64_t span(const Interval<T> &interval) {
    return static_cast<uint64_t>(interval.maximum) - static_cast<uint64_t>(interval.minimum);
}

/// The library takes differences in the type's own signed width: over more than
/// half of the type only steps that are powers of two come out right.
template <typename T>
bool stepWorks(Type type, const Interval<T> &interval, uint64_t step) {
    if constexpr (std::is_signed_v<T>) {
        const bool wraps = typeInfo(type).widthBytes >= sizeof(int32_t) && span(interval) > typeInfo(type).maximum;
        return !wraps || std::has_single_bit(step);
    }
    return true;
}

template <typename T>
std::string readStep(Type type, const RangeText &range, Interval<T> &interval) {
    if (!range.step)
        return {};
    if constexpr (std::is_floating_point_v<T>) {
        return "the step of a floating number is never checked";
    } else {
        const auto parsed = parseValue(type, 0, *range.step);
        const auto step = parsed ? std::get<T>(*parsed.value) : T{};
        if (step <= 0)
            return "the step is not a positive number of the type";
        if (!stepWorks(type, interval, static_cast<uint64_t>(step)))
            return "the step cannot be checked over so wide a range";
        interval.step = step == 1 ? T{} : step;
        return {};
    }
}

template <typename T>
bool touches(const Interval<T> &lower, const Interval<T> &upper) {
    if (lower.step != 0 || upper.step != 0)
        return false;
    if (upper.minimum <= lower.maximum)
        return true;
    if constexpr (std::is_integral_v<T>)
        return lower.maximum != std::numeric_limits<T>::max() && upper.minimum == lower.maximum + 1;
    return false;
}

template <typename T>
std::vector<Interval<T>> join(std::vector<Interval<T>> intervals) {
    std::sort(intervals.begin(), intervals.end(), [](const auto &a, const auto &b) { return a.minimum < b.minimum; });
    std::vector<Interval<T>> joined;
    for (const auto &interval : intervals) {
        if (!joined.empty() && touches(joined.back(), interval))
            joined.back().maximum = std::max(joined.back().maximum, interval.maximum);
        else
            joined.push_back(interval);
    }
    return joined;
}

/// Values of an interval, or more than a list may have.
template <typename T>
uint64_t countValues(const Interval<T> &interval) {
    if constexpr (std::is_floating_point_v<T>)
        return interval.minimum == interval.maximum ? 1 : kListedValuesMax + 1;
    else
        return std::min(span(interval) / static_cast<uint64_t>(interval.step == 0 ? 1 : interval.step),
                        kListedValuesMax) +
               1;
}

/// Unsigned, because the way through a wide signed interval may be longer than its type.
template <typename T>
T valueAt(const Interval<T> &interval, uint64_t index) {
    if constexpr (std::is_floating_point_v<T>)
        return interval.minimum;
    else
        return static_cast<T>(static_cast<uint64_t>(interval.minimum) +
                              index * static_cast<uint64_t>(interval.step == 0 ? 1 : interval.step));
}

template <typename T>
std::optional<Enumeration> listValues(const std::vector<Interval<T>> &intervals) {
    std::set<T> values;
    for (const auto &interval : intervals) {
        const auto count = countValues(interval);
        if (count > kListedValuesMax)
            return std::nullopt;
        for (uint64_t i = 0; i < count; i++)
            values.insert(valueAt(interval, i));
        if (values.size() > kListedValuesMax)
            return std::nullopt;
    }
    Enumeration elements;
    for (const auto &value : values)
        elements.push_back({std::nullopt, Value(value)});
    return elements;
}

template <typename T>
Constraint asRange(Type type, const Interval<T> &interval) {
    const bool everything = interval.step == 0 && Value(interval.minimum) == lowestValue(type) &&
                            Value(interval.maximum) == highestValue(type);
    return everything ? Constraint{}
                      : Constraint{Range{Value(interval.minimum), Value(interval.maximum), Value(interval.step)}};
}

/// Nothing when a range cannot be understood: what it admits is unknown then.
template <typename T>
std::vector<Interval<T>> readIntervals(Type type, const std::vector<RangeText> &ranges,
                                       std::vector<LossDetail> &losses) {
    std::vector<Interval<T>> intervals;
    bool malformed = false;
    for (const auto &range : ranges) {
        auto read = readInterval<T>(type, range);
        malformed = malformed || read.malformed;
        std::string fault = read.malformed ? "its bounds are no numbers of the type" : "it admits no value of the type";
        if (read.interval)
            fault = readStep(type, range, *read.interval);
        if (!fault.empty())
            losses.push_back({Loss::facetIgnored, "range " + describeRange(range) + ": " + fault});
        if (read.interval)
            intervals.push_back(*read.interval);
    }
    return malformed ? std::vector<Interval<T>>{} : intervals;
}

template <typename T>
Constraint mergeAs(Type type, const std::vector<RangeText> &ranges, std::vector<LossDetail> &losses) {
    const auto intervals = join(readIntervals<T>(type, ranges, losses));
    if (intervals.empty())
        return {};
    if (intervals.size() == 1)
        return asRange(type, intervals.front());
    if (auto listed = listValues(intervals))
        return std::move(*listed);
    Interval<T> hull = intervals.front();
    hull.step = 0;
    for (const auto &interval : intervals)
        hull.maximum = std::max(hull.maximum, interval.maximum);
    losses.push_back({Loss::rangeGaps, std::to_string(ranges.size()) + " ranges became " +
                                           formatValue(type, hull.minimum) + ".." + formatValue(type, hull.maximum)});
    return asRange(type, hull);
}

}  // namespace

Constraint mergeRanges(Type type, const std::vector<RangeText> &ranges, std::vector<LossDetail> &losses) {
    return withNumber(type, [&](auto zero) { return mergeAs<Wide<decltype(zero)>>(type, ranges, losses); });
}

}  // namespace tavdb::image
