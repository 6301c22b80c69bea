// SPDX-License-Identifier: Apache-2.0
// tavdb check and repair: what is wrong with a database, a line for each finding, and
// putting it right. Images and tables are read as files; nothing is attached to.
#include <algorithm>

#include "command.h"
#include "ending_signals.h"
#include "image/repair.h"
#include "image/text_util.h"
#include "view.h"

namespace tavdb::command {

namespace {

struct CheckOptions {
    std::string directory;
    bool dryRun = false;
};

/// The operand, else what all commands take.
std::optional<std::string> directoryOf(const CheckOptions &options, const Common &common, Console &console) {
    const auto &directory = options.directory.empty() ? common.directory : options.directory;
    if (!directory.empty())
        return directory;
    console.report("", {image::FaultKind::usage, "no database: name one, or set TAVDB_DIR"});
    return std::nullopt;
}

Json toJson(const image::Finding &finding) {
    const auto textOrNull = [](const std::string &text) { return text.empty() ? Json() : Json(text); };
    return {{"file", finding.file},     {"record", textOrNull(finding.record)},
            {"offset", finding.offset}, {"path", textOrNull(finding.path)},
            {"what", finding.what},     {"gravity", finding.gravity == image::Gravity::damage ? "damage" : "oddity"},
            {"repair", finding.remedy}, {"lost", textOrNull(finding.lost)}};
}

void print(const std::vector<image::Finding> &findings, bool asJson, Console &console) {
    auto list = Json::array();
    for (const auto &finding : findings)
        if (asJson)
            list.push_back(toJson(finding));
        else
            console.print(image::formatFinding(finding) + "\n");
    if (asJson)
        console.print(dumpJson(list));
    console.flush();
}

size_t countOf(const std::vector<image::Finding> &findings, image::Gravity gravity) {
    return static_cast<size_t>(std::count_if(
        findings.begin(), findings.end(), [&](const image::Finding &finding) { return finding.gravity == gravity; }));
}

/// "2 nodes, 6 leaves", "3 oddities" behind it.
std::string soundness(const image::DatabaseCheck &check, const std::vector<image::Finding> &findings) {
    const auto &counts = check.examination.counts;
    const size_t oddities = countOf(findings, image::Gravity::oddity);
    return image::counted(counts.nodes, "node") + ", " + image::counted(counts.leaves, "leaf", "leaves") +
           (oddities == 0 ? "" : ", " + image::counted(oddities, "oddity", "oddities"));
}

void reportChecked(const std::string &directory, const image::DatabaseCheck &check, Console &console) {
    const auto findings = check.findings();
    const size_t damages = countOf(findings, image::Gravity::damage);
    if (damages == 0)
        console.remark(directory, "sound: " + soundness(check, findings));
    else
        console.report(directory, {image::FaultKind::damaged,
                                   "is damaged in " + image::counted(damages, "place") + "; see 'tavdb repair'"});
}

/// @return what was found, which is printed then
std::optional<image::DatabaseCheck> look(const std::string &directory, const Common &common, Console &console) {
    auto check = image::checkDatabase(directory);
    if (!check) {
        console.report(directory, check.error);
        return std::nullopt;
    }
    if (!check.value->tables.living.empty())
        console.remark(directory, "is in use by process " + std::to_string(check.value->tables.living[0]) +
                                      "; what it is writing may look damaged");
    print(check.value->findings(), common.json, console);
    return std::move(*check.value);
}

void check(const CheckOptions &options, const Common &common, Console &console) {
    const auto directory = directoryOf(options, common, console);
    if (!directory)
        return;
    if (const auto found = look(*directory, common, console))
        reportChecked(*directory, *found, console);
}

void reportRepaired(const std::string &directory, const image::Repaired &repaired, Console &console) {
    const auto findings = repaired.check.findings();
    const auto kept = repaired.original.empty() ? "" : "; what it was like is kept in " + repaired.original;
    const auto losses = static_cast<size_t>(std::count_if(
        findings.begin(), findings.end(), [](const image::Finding &finding) { return !finding.lost.empty(); }));
    if (losses != 0)
        console.report(directory, {image::FaultKind::damaged,
                                   "repaired, with " + image::counted(losses, "loss", "losses") + kept});
    else
        console.remark(directory,
                       (repaired.original.empty() ? "sound: " : "repaired: ") + soundness(repaired.check, {}) + kept);
    for (const auto &finding : findings)
        if (finding.file.starts_with('/'))
            console.report(finding.file, {image::FaultKind::damaged, finding.what});
}

void repair(const CheckOptions &options, const Common &common, Console &console) {
    const auto directory = directoryOf(options, common, console);
    if (!directory)
        return;
    if (options.dryRun)
        return check(options, common, console);
    // A signal waits until it is done: it could only come between two steps.
    const EndingSignals signals(EndingSignals::Second::waits);
    const auto repaired = image::repairDatabase(*directory);
    if (!repaired) {
        console.report(*directory, repaired.error);
        return;
    }
    print(repaired.value->check.findings(), common.json, console);
    reportRepaired(*directory, *repaired.value, console);
}

}  // namespace

void addCheck(Declarations &place) {
    auto options = std::make_shared<CheckOptions>();
    auto &command = place.add("check", "Look for damage in a database, without changing it");
    command.add("DIR", &options->directory, "the database directory; else -d or TAVDB_DIR names it");
    command.action = [options](const Common &common, Console &console) { check(*options, common, console); };
}

void addRepair(Declarations &place) {
    auto options = std::make_shared<CheckOptions>();
    auto &command = place.add("repair", "Put a damaged database right, keeping the damaged one");
    command.add("DIR", &options->directory, "the database directory; else -d or TAVDB_DIR names it");
    command.add("-n,--dry-run", &options->dryRun, "only say what would be done");
    command.action = [options](const Common &common, Console &console) { repair(*options, common, console); };
}

}  // namespace tavdb::command
