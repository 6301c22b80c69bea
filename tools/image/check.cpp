// SPDX-License-Identifier: Apache-2.0
#include "image/check.h"

#include <algorithm>
#include <set>

#include "image/bench.h"
#include "image/check_areas.h"
#include "image/check_names.h"
#include "image/check_space.h"
#include "image/check_tree.h"
#include "image/check_values.h"

namespace tavdb::image {

namespace {

/// The steps of a check, in the order in which each knows what it needs: what is in
/// use is claimed before anything new takes a place.
class Check {
public:
    explicit Check(RawImages images) : bench(std::move(images)), tree(bench), values(bench) {}

    Examination run() {
        checkHeaders(bench);
        tree.run();
        NameCheck(bench).run(tree);
        values.run(tree);
        claimAreas(bench);
        checkAdmission(bench, values);
        checkFreeLists(bench);
        writeValues();
        gatherOrphans();
        writeNames();
        renewFreeLists(bench);
        return result();
    }

private:
    uint32_t word(uint32_t key, uint32_t place) const {
        return bench.images.read<uint32_t>(kComponentMedium, key + place).value_or(0);
    }
    void setWord(uint32_t key, uint32_t place, uint32_t value) {
        bench.images.write(kComponentMedium, key + place, value);
    }

    void writeValues() {
        for (const auto &wish : values.wishes()) {
            auto value = *bench.images.read<tavDBMValue>(kValueMedium, wish.source);
            // Of a value without bytes it does not matter where they are.
            const auto data =
                value.length == 0
                    ? std::string()
                    : bench.images.content(value.dataMedia).substr(value.dataOffset, static_cast<size_t>(value.length));
            const auto place = bench.append(kDataMedium, data);
            const auto key = place ? bench.allocate(kValueMedium, sizeof value) : std::nullopt;
            if (!key)
                continue;
            value.key = *key;
            value.dataMedia = kDataMedium;
            value.dataOffset = *place;
            bench.images.write(kValueMedium, *key, value);
            setWord(wish.leaf, kTierPlace + static_cast<uint32_t>(wish.tier * sizeof(uint32_t)), *key);
        }
    }

    void gatherOrphans() {
        if (tree.orphans().empty())
            return;
        const uint32_t folder = lostAndFound();
        if (folder == 0)
            return;
        uint32_t before = lastChild(folder);
        for (const uint32_t orphan : tree.orphans()) {
            before == 0 ? setWord(folder, kFirstChildPlace, orphan) : setWord(before, kNextPlace, orphan);
            setWord(orphan, kParentPlace, folder);
            setWord(orphan, kNextPlace, 0);
            makeUnique(folder, orphan);
            before = orphan;
        }
    }

    /// The node, made where there is none.
    uint32_t lostAndFound() {
        for (uint32_t child = word(tree.root(), kFirstChildPlace); child != 0; child = word(child, kNextPlace))
            if (word(child, offsetof(tavDBMComponent, kind)) == TAVDB_KIND_NODE && nameOf(child) == folderName())
                return child;
        const auto key = bench.allocate(kComponentMedium, sizeof(tavDBMNode));
        if (!key)
            return 0;
        const uint32_t last = lastChild(tree.root());
        bench.images.write(kComponentMedium, *key, tavDBMNode{{*key, 0, 0, tree.root(), 0, TAVDB_KIND_NODE}, 0});
        last == 0 ? setWord(tree.root(), kFirstChildPlace, *key) : setWord(last, kNextPlace, *key);
        bench.newNames[*key] = folderName();
        return *key;
    }

    static std::string folderName() {
        return std::string(kLostAndFound) + "/";
    }

    uint32_t lastChild(uint32_t node) const {
        uint32_t last = 0;
        for (uint32_t child = word(node, kFirstChildPlace); child != 0; child = word(child, kNextPlace))
            last = child;
        return last;
    }

    /// The name that a component has, or will have.
    std::string nameOf(uint32_t component) const {
        const auto fresh = bench.newNames.find(component);
        if (fresh != bench.newNames.end())
            return fresh->second;
        const uint32_t key = word(component, kNamePlace);
        return key == 0 ? std::string() : textOf(bench.images, key);
    }

    void makeUnique(uint32_t folder, uint32_t orphan) {
        auto name = nameOf(orphan);
        if (takenNames.empty())
            for (uint32_t child = word(folder, kFirstChildPlace); child != 0; child = word(child, kNextPlace))
                if (child != orphan)
                    takenNames.insert(nameOf(child));
        const bool endsAsNode = name.ends_with('/');
        const auto stem = endsAsNode ? name.substr(0, name.size() - 1) : name;
        if (!name.empty() && !takenNames.contains(name)) {
            takenNames.insert(name);
            return;
        }
        name = (stem.empty() ? kRecovered : stem + "-") + std::to_string(orphan) + (endsAsNode ? "/" : "");
        takenNames.insert(name);
        bench.newNames[orphan] = name;
    }

    void writeNames() {
        for (const auto &[component, text] : bench.newNames)
            setWord(component, kNamePlace, newString(text));
        dropUnusedNames();
    }

    /// Entries that only components referred to that have other names now.
    void dropUnusedNames() {
        if (bench.newNames.empty())
            return;
        std::set<uint32_t> used;
        for (const auto &component : tree.components())
            used.insert(word(component.key, kNamePlace));
        for (const auto &area : bench.areas) {
            if (area.holder.kind != RecordKind::string || used.contains(area.holder.offset))
                continue;
            bench.claimsOf(kStringMedium).giveBack({area.holder.offset, sizeof(tavDBMString)});
            if (area.isClaimed)
                bench.claimsOf(area.medium).giveBack(area.range);
        }
    }

    uint32_t newString(const std::string &text) {
        const auto key = bench.allocate(kStringMedium, sizeof(tavDBMString));
        return key && bench.setText(*key, text) ? *key : 0;
    }

    Examination result() {
        Counts counts;
        for (const auto &component : tree.components())
            (component.isNode ? counts.nodes : counts.leaves)++;
        counts.nodes--;
        for (auto &finding : bench.findings)
            finding.path = finding.component != 0 ? pathIn(bench.images, finding.component) : "";
        Examination examination{std::move(bench.findings), std::move(bench.images), {}, {}, counts};
        sortLeaves(examination);
        return examination;
    }

    void sortLeaves(Examination &examination) const {
        const std::set<uint32_t> tops(bench.displaced.begin(), bench.displaced.end());
        if (tops.empty())
            return;
        const auto &images = examination.images;
        for (const auto &component : tree.components()) {
            if (component.isNode)
                continue;
            uint32_t above = component.key;
            for (size_t steps = 0; above != 0 && !tops.contains(above) && steps <= tree.components().size(); steps++)
                above = *images.read<uint32_t>(kComponentMedium, above + kParentPlace);
            const auto path = pathIn(images, component.key);
            if (above != 0)
                examination.displaced.push_back(path);
            else
                examination.settled.insert(path);
        }
    }

    /// As the commands write it; a component without a name is @KEY there.
    std::string pathIn(const RawImages &images, uint32_t component) const {
        std::string path;
        for (size_t depth = 0; component != tree.root() && component != 0 && depth <= tree.components().size();
             depth++) {
            const auto header = *images.read<tavDBMComponent>(kComponentMedium, component);
            auto name = header.name == 0 ? std::string() : textOf(images, header.name);
            if (name.ends_with('/'))
                name.pop_back();
            path.insert(0, "/" + (name.empty() ? "@" + std::to_string(component) : name));
            component = header.parent;
        }
        return path.empty() ? "/" : path;
    }

    Bench bench;
    TreeCheck tree;
    ValueCheck values;
    std::set<std::string> takenNames;
};

constexpr size_t kPassesMax = 8;

bool isSame(const Finding &a, const Finding &b) {
    return a.file == b.file && a.record == b.record && a.what == b.what;
}

/// Adds what a further pass found, and takes what it put right.
void takeOver(Examination &examination, Examination next) {
    for (auto &finding : next.findings)
        if (std::none_of(examination.findings.begin(), examination.findings.end(),
                         [&](const Finding &known) { return isSame(known, finding); }))
            examination.findings.push_back(std::move(finding));
    next.displaced.insert(next.displaced.end(), examination.displaced.begin(), examination.displaced.end());
    if (next.settled.empty())
        next.settled = std::move(examination.settled);
    next.findings = std::move(examination.findings);
    examination = std::move(next);
}

}  // namespace

bool Examination::isDamaged() const {
    return std::any_of(findings.begin(), findings.end(),
                       [](const Finding &finding) { return finding.gravity == Gravity::damage; });
}

bool Examination::hasLosses() const {
    return std::any_of(findings.begin(), findings.end(), [](const Finding &finding) { return !finding.lost.empty(); });
}

Examination examine(RawImages images) {
    auto examination = Check(images).run();
    // What was put right may show what else is wrong, in images that are damaged all over.
    for (size_t pass = 1; pass < kPassesMax && !images.equals(examination.images); pass++) {
        images = examination.images;
        auto next = Check(images).run();
        if (!images.equals(next.images))
            takeOver(examination, std::move(next));
    }
    return examination;
}

std::string formatFinding(const Finding &finding) {
    return finding.file + ": " + finding.record + (finding.path.empty() ? "" : " of " + finding.path) +
           (finding.record.empty() ? "" : ": ") + finding.what +
           (finding.gravity == Gravity::damage ? " (damage): " : " (oddity): ") + finding.remedy +
           (finding.lost.empty() ? "" : "; lost: " + finding.lost);
}

}  // namespace tavdb::image
