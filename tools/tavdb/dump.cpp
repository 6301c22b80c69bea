// SPDX-License-Identifier: Apache-2.0
// tavdb dump: the records of a component, or everything on one medium, byte by byte.
#include <algorithm>
#include <cstdio>
#include <map>

#include "command.h"
#include "image/free_list.h"
#include "image/text_util.h"
#include "image/walk.h"
#include "record_view.h"
#include "view.h"

namespace tavdb::command {

namespace {

struct DumpOptions {
    std::string path = "/";
    std::string medium;
    bool secrets = false;
};

using Blocks = std::vector<RecordBlock>;

std::string offsetText(uint32_t offset) {
    std::array<char, 9> text{};
    snprintf(text.data(), text.size(), "%08x", offset);
    return text.data();
}

std::string toText(const RecordBlock &block) {
    auto text = mediumNameOf(block.medium) + " " + std::to_string(block.range.offset) + ": " + block.what +
                (block.owner.empty() ? "" : " of " + block.owner) + ", " +
                image::counted(block.range.sizeBytes, "byte") + "\n";
    size_t width = 0;
    for (const auto &line : block.lines)
        width = std::max(width, line.hex.size());
    for (const auto &line : block.lines)
        text += "  " + offsetText(line.offset) + "  " + line.hex + std::string(width - line.hex.size(), ' ') + "  " +
                line.meaning + "\n";
    return text;
}

Json toJson(const RecordBlock &block) {
    auto lines = Json::array();
    for (const auto &line : block.lines)
        lines.push_back({{"offset", line.offset}, {"hex", line.hex}, {"meaning", line.meaning}});
    return {{"medium", mediumNameOf(block.medium)},
            {"offset", block.range.offset},
            {"bytes", block.range.sizeBytes},
            {"what", block.what},
            {"path", block.owner.empty() ? Json() : Json(block.owner)},
            {"lines", std::move(lines)}};
}

/// The records of one component.
image::Result<Blocks> viewComponent(image::Database &database, const image::Located &at, bool isSecret) {
    using Viewed = image::Result<Blocks>;
    const auto records = image::recordsOf(database, at.component);
    if (!records)
        return Viewed::bad(records.error);
    Blocks blocks;
    for (const auto &record : *records.value) {
        auto block = viewRecord(database, record, isSecret && record.kind == image::RecordKind::data);
        if (!block)
            return Viewed::bad(image::faultIn(mediumNameOf(record.medium), block.error));
        block.value->owner = at.path;
        blocks.push_back(std::move(*block.value));
    }
    return Viewed::good(std::move(blocks));
}

/// Everything on a medium in the order of its offsets: header, free blocks, records
/// that can be reached from the root, and what is left between them.
class MediumViewer {
public:
    MediumViewer(OpenedDatabase &place, const image::MediumName &name, bool showsSecrets)
        : opened(place), database(*place.database), medium(name), secretsShown(showsSecrets) {}

    /// What can be shown; fault() says whether that is all.
    Blocks run() {
        const auto schema = opened.schema.readAll();
        const auto root = image::readRoot(database);
        // Without the one it is not known what is secret, without the other what there is.
        if (!schema || !root) {
            problem = schema ? root.error : schema.error;
            return {};
        }
        note(image::forEachFrom(database, {*root.value, "/"}, [&](const image::Located &at) {
            collect(*schema.value, at);
            return true;
        }));
        add(viewHeader(database, medium.id), "");
        if (medium.holdsRecords)
            addFreeBlocks();
        for (const auto &[offset, use] : uses)
            add(viewRecord(database, use.record, isHidden(use.record.range)), use.owner);
        sort();
        addUnused();
        sort();
        return std::move(blocks);
    }

    const image::Status &fault() const {
        return problem;
    }

private:
    struct Use {
        image::StoredRecord record;
        std::string owner;
    };

    void collect(const image::Schema &schema, const image::Located &at) {
        const auto records = image::recordsOf(database, at.component);
        if (!records) {
            note(image::faultIn(at.path, records.error));
            return;
        }
        const auto entry = schema.components.find(at.path);
        const bool isSecret = entry != schema.components.end() && entry->second.secret;
        for (const auto &record : *records.value) {
            if (record.medium != medium.id)
                continue;
            uses.emplace(record.range.offset, Use{record, at.path});
            if (isSecret && record.kind == image::RecordKind::data)
                secrets.push_back(record.range);
        }
    }

    /// Keeps the first fault.
    void note(image::Status found) {
        if (!problem)
            problem = std::move(found);
    }

    bool isHidden(const image::ByteRange &range) const {
        return !secretsShown && std::any_of(secrets.begin(), secrets.end(), [&](const image::ByteRange &secret) {
            return secret.offset < range.end() && range.offset < secret.end();
        });
    }

    void addFreeBlocks() {
        const auto blocksThere = image::readFreeList(database, medium.id);
        if (!blocksThere)
            note(blocksThere.error);
        for (const auto &block : blocksThere.value.value_or(std::vector<image::ByteRange>{}))
            add(viewFreeBlock(database, medium.id, block), "");
    }

    /// Data that were removed stay where they were, and may be secrets.
    void addUnused() {
        const auto size = image::mediumSize(database, medium.id);
        uint64_t end = 0;
        std::vector<image::ByteRange> gaps;
        const auto closeGap = [&](uint64_t offset) {
            if (offset > end)
                gaps.push_back({static_cast<uint32_t>(end), static_cast<uint32_t>(offset - end)});
        };
        for (const auto &block : blocks) {
            closeGap(block.range.offset);
            end = std::max(end, block.range.end());
        }
        closeGap(size.value.value_or(0));
        for (const auto &gap : gaps)
            add(viewUnused(database, medium.id, gap, !medium.holdsRecords && !secretsShown), "");
    }

    void add(image::Result<RecordBlock> block, const std::string &owner) {
        if (!block) {
            note(block.error);
            return;
        }
        block.value->owner = owner;
        blocks.push_back(std::move(*block.value));
    }

    void sort() {
        std::stable_sort(blocks.begin(), blocks.end(),
                         [](const RecordBlock &a, const RecordBlock &b) { return a.range.offset < b.range.offset; });
    }

    OpenedDatabase &opened;
    image::Database &database;
    const image::MediumName &medium;
    const bool secretsShown;
    std::multimap<uint32_t, Use> uses;
    std::vector<image::ByteRange> secrets;
    Blocks blocks;
    image::Status problem;
};

const image::MediumName *findMedium(const std::string &name) {
    for (const auto &medium : image::kMediumNames)
        if (medium.kind == name)
            return &medium;
    return nullptr;
}

image::Result<Blocks> viewOne(OpenedDatabase &opened, const DumpOptions &options) {
    using Viewed = image::Result<Blocks>;
    const auto located = image::locate(*opened.database, options.path);
    if (!located)
        return Viewed::bad(located.error);
    const auto entry = opened.schema.find(located.value->path);
    if (!entry)
        return Viewed::bad(entry.error);
    return viewComponent(*opened.database, *located.value, entry.value->secret && !options.secrets);
}

void print(const Blocks &blocks, bool asJson, Console &console) {
    auto list = Json::array();
    for (const auto &block : blocks)
        if (asJson)
            list.push_back(toJson(block));
        else
            console.print(toText(block));
    if (asJson)
        console.print(dumpJson(list));
}

void dump(const DumpOptions &options, const Common &common, Console &console) {
    auto opened = openDatabase(common, console);
    if (!opened)
        return;
    if (options.medium.empty()) {
        const auto blocks = viewOne(*opened, options);
        if (blocks)
            print(*blocks.value, common.json, console);
        else
            console.report(options.path, blocks.error);
        return;
    }
    MediumViewer viewer(*opened, *findMedium(options.medium), options.secrets);
    print(viewer.run(), common.json, console);
    if (viewer.fault())
        console.report(options.medium, *viewer.fault());
}

}  // namespace

void addDump(Declarations &place) {
    auto options = std::make_shared<DumpOptions>();
    auto &command = place.add("dump", "Print the records of a component or of a medium, byte by byte");
    command.add("PATH", &options->path, "the component; without it the root");
    command.add("--media MEDIUM", &options->medium, "a whole medium: component, value, constraint, string, data, text",
                {.values = {"component", "value", "constraint", "string", "data", "text"}, .excludes = {"PATH"}});
    command.add("--secrets", &options->secrets, "show secret values");
    command.action = [options](const Common &common, Console &console) { dump(*options, common, console); };
}

}  // namespace tavdb::command
