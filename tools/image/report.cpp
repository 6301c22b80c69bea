// SPDX-License-Identifier: Apache-2.0
#include "image/report.h"

#include <iomanip>
#include <sstream>

namespace tavdb::image {

namespace {

constexpr std::array<KindText, kLossKinds> kLossTexts = {{
    {"units", "units are kept beside the database, not in it"},
    {"pattern", "a pattern is not checked"},
    {"min-length", "a minimum length is not checked"},
    {"length-gaps", "lengths between the stated ones are admitted too"},
    {"length-cut", "the stated length is more than a value may have"},
    {"length-assumed", "no length is stated, the default one is taken"},
    {"range-gaps", "values between the stated ranges are admitted too"},
    {"list-items", "the items of a list are not checked"},
    {"list-count", "the number of items of a list is not checked"},
    {"list-brackets", "the brackets of a list are not checked"},
    {"reference", "a reference to an object or parameter is not checked"},
    {"enumeration-reference", "the values that another parameter lists are not checked"},
    {"enumeration-marks", "access, status and codes of single listed values are not kept"},
    {"lexical-form", "the written form of a text type is not checked"},
    {"default-refused", "a default is left out that its own syntax does not admit"},
    {"default-kind", "a default is left out that belongs to no tier"},
    {"command", "a parameter that triggers an action is stored like any other"},
    {"facet-ignored", "a restriction is left out that does not fit its type"},
}};

constexpr std::array<KindText, kOmissionKinds> kOmissionTexts = {{
    {"unknown-type", "its type is not known"},
    {"bad-name", "its name cannot be a component's"},
    {"too-deep", "it lies too deep"},
    {"duplicate", "it is defined twice, the first one is kept"},
    {"name-taken", "a node and a leaf would have one name"},
}};

void appendRow(std::ostream &out, size_t indent, std::string_view key, size_t count, std::string_view sentence) {
    out << std::string(indent, ' ') << std::left << std::setw(static_cast<int>(26 - indent)) << key << std::right
        << std::setw(8) << count;
    if (!sentence.empty())
        out << "  " << sentence;
    out << '\n';
}

template <typename Kind>
void appendKinds(std::ostream &out, const Report &report) {
    for (size_t i = 0; i < static_cast<size_t>(Kind::count); i++) {
        const auto kind = static_cast<Kind>(i);
        if (report.count(kind) != 0)
            appendRow(out, 4, describe(kind).key, report.count(kind), describe(kind).sentence);
    }
}

}  // namespace

const KindText &describe(Loss loss) {
    return kLossTexts[static_cast<size_t>(loss)];
}

const KindText &describe(Omission omission) {
    return kOmissionTexts[static_cast<size_t>(omission)];
}

void Report::addExpressed(const std::string &path, const std::vector<LossDetail> &lost) {
    (lost.empty() ? full : lossy)++;
    std::array<bool, kLossKinds> hit{};
    for (const auto &[kind, what] : lost) {
        hit[static_cast<size_t>(kind)] = true;
        addLine(path, describe(kind), what);
    }
    for (size_t i = 0; i < kLossKinds; i++)
        losses[i] += hit[i] ? 1U : 0U;
}

void Report::addOmitted(const std::string &path, Omission why, const std::string &what) {
    omitted++;
    omissions[static_cast<size_t>(why)]++;
    addLine(path, describe(why), what);
}

void Report::addLine(const std::string &path, const KindText &kind, const std::string &what) {
    details.push_back(path);
    details.back().append(": ").append(kind.key).append(": ").append(what);
}

void Report::addNote(const std::string &what, size_t times) {
    noteCounts[what] += times;
}

std::string formatSummary(const Report &report) {
    std::ostringstream out;
    appendRow(out, 0, "parameters", report.parameters(), {});
    appendRow(out, 2, "expressed fully", report.expressedFully(), {});
    appendRow(out, 2, "expressed with losses", report.expressedWithLosses(), {});
    appendKinds<Loss>(out, report);
    appendRow(out, 2, "not expressed", report.notExpressed(), {});
    appendKinds<Omission>(out, report);
    if (!report.notes().empty())
        out << "outside of what a configuration tree holds\n";
    for (const auto &[what, times] : report.notes())
        appendRow(out, 2, what, times, {});
    return out.str();
}

}  // namespace tavdb::image
