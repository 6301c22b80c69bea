// SPDX-License-Identifier: Apache-2.0
#include "image/constraint_check.h"

#include <algorithm>

#include "image/value_text.h"

namespace tavdb::image {

namespace {

/// Elements that a sentence lists before it ends in "...".
constexpr size_t kElementsShown = 12;

template <typename T>
bool onGrid(T value, T minimum, T step) {
    if (step == 0)
        return true;
    if constexpr (sizeof(T) < sizeof(int32_t)) {
        return (int32_t{value} - int32_t{minimum}) % int32_t{step} == 0;
    } else {
        // The library takes the difference in the type's own width, so that a signed
        // range wider than half the type wraps; the grid is the wrapped one.
        using Unsigned = std::make_unsigned_t<T>;
        const auto difference = static_cast<T>(static_cast<Unsigned>(value) - static_cast<Unsigned>(minimum));
        if constexpr (std::is_signed_v<T>)
            if (step == -1)
                return true;
        return difference % step == 0;
    }
}

template <typename T>
Verdict judgeRange(const Range &range, const Value &value) {
    const auto minimum = std::get<Wide<T>>(range.minimum);
    const auto number = std::get<Wide<T>>(value);
    if (!(number >= minimum) || number > std::get<Wide<T>>(range.maximum))
        return Verdict::outside;
    if constexpr (std::is_integral_v<T>)
        if (!onGrid(static_cast<T>(number), static_cast<T>(minimum), static_cast<T>(std::get<Wide<T>>(range.step))))
            return Verdict::offStep;
    return Verdict::admitted;
}

bool isZero(const Value &value) {
    return value == Value(int64_t{0}) || value == Value(uint64_t{0}) || value == Value(0.0);
}

std::string formatRange(Type type, const Range &range) {
    auto text = formatValue(type, range.minimum) + ".." + formatValue(type, range.maximum);
    if (!isZero(range.step))
        text += " step " + formatValue(type, range.step);
    return text;
}

std::string formatElement(Type type, const Element &element) {
    auto text = formatValue(type, element.number);
    return element.label ? text + " (" + *element.label + ")" : text;
}

std::string formatChoice(Type type, const Element &element) {
    return element.label ? *element.label : formatValue(type, element.number);
}

std::string formatElements(Type type, const Enumeration &elements, std::string (*format)(Type, const Element &)) {
    std::string text;
    for (size_t i = 0; i < std::min(elements.size(), kElementsShown); i++)
        text += (i == 0 ? "" : ", ") + format(type, elements[i]);
    return elements.size() > kElementsShown ? text + ", ..." : text;
}

}  // namespace

Verdict judge(Type type, const Constraint &constraint, const Value &value) {
    if (const auto *range = std::get_if<Range>(&constraint))
        return withNumber(type, [&](auto zero) { return judgeRange<decltype(zero)>(*range, value); });
    const auto *elements = std::get_if<Enumeration>(&constraint);
    if (elements == nullptr)
        return Verdict::admitted;
    const auto listed = std::any_of(elements->begin(), elements->end(),
                                    [&](const Element &element) { return element.number == value; });
    return listed ? Verdict::admitted : Verdict::notListed;
}

std::string complaintAbout(Type type, const Constraint &constraint, const Value &value) {
    switch (judge(type, constraint, value)) {
        case Verdict::outside:
            return "is outside " + formatConstraint(type, constraint);
        case Verdict::offStep:
            return "is not on the step of " + formatConstraint(type, constraint);
        case Verdict::notListed:
            return "is not one of " + formatChoices(type, constraint);
        default:
            return {};
    }
}

std::string refusal(Type type, const Constraint &constraint, const Value &value) {
    const auto complaint = complaintAbout(type, constraint, value);
    return complaint.empty() ? complaint : "value " + formatValue(type, value) + " " + complaint;
}

std::string formatConstraint(Type type, const Constraint &constraint) {
    if (const auto *range = std::get_if<Range>(&constraint))
        return formatRange(type, *range);
    const auto *elements = std::get_if<Enumeration>(&constraint);
    return elements ? formatElements(type, *elements, formatElement) : std::string{};
}

std::string formatChoices(Type type, const Constraint &constraint) {
    const auto *elements = std::get_if<Enumeration>(&constraint);
    return elements ? formatElements(type, *elements, formatChoice) : std::string{};
}

}  // namespace tavdb::image
