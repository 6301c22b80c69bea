// SPDX-License-Identifier: Apache-2.0
// Check and repair: the images of a sound database, in both byte orders, and its tables,
// overwritten here and there by an input, or images that are made up altogether. In memory,
// or in a folder as the command does it, with the power cut before one of the steps.
#include <dlfcn.h>

#include <cstdlib>
#include <cstring>

#include "fuzz/fuzz_database.h"
#include "fuzz/fuzz_folder.h"
#include "fuzz/fuzz_images.h"
#include "fuzz/fuzz_mended.h"
#include "fuzz/fuzz_place.h"
#include "fuzz/fuzz_table.h"
#include "fuzz/fuzz_target.h"

namespace tavdb_fuzz {
namespace {

using namespace tavdb::image;

/// The first byte of an input.
struct Mode {
    explicit Mode(uint8_t bits)
        : order((bits & 1) != 0 ? opposite(nativeOrder()) : nativeOrder()),
          isMadeUp((bits & 2) != 0),
          // A folder takes several times as long, and there a repair refuses the other order.
          isInFolder((bits & 12) == 12 && order == nativeOrder()),
          areMissing((bits & 16) != 0) {}

    ByteOrder order;
    bool isMadeUp;
    bool isInFolder;
    bool areMissing;  ///< images without a byte; else their files are there
};

/// More than a repair has.
constexpr size_t kStepsMax = 40;

bool s_isMapped;

struct Sound {
    RawImages foreign;
    RawImages native;
    RepairFolder folder;
};

/// Made before this process attaches to a database of its own, but for the tables.
Sound &sound() {
    static auto foreign = buildSound(fileInPlace("foreign"), opposite(nativeOrder()));
    static auto native = buildSound(fileInPlace("db"), nativeOrder());
    session();
    static Sound all{std::move(foreign), std::move(native), RepairFolder(fileInPlace("db"))};
    control();  // as it is from here on
    s_isMapped = true;
    return all;
}

/// What an input overwrites: the files of a database, and the order of its words.
struct Target {
    RawImages images;
    std::string sessions;
    std::string locks;
    bool hasControl = false;  ///< else there is no control table: to read it takes longer than all the rest
};

void cut(std::string &content, uint32_t size) {
    content.resize(size % (content.size() + 1));
}

/// A word in the order of the images, so that an input does the same in both of them.
void overwrite(std::string &content, uint32_t offset, uint32_t word, ByteOrder order) {
    if (content.size() < sizeof word)
        return;
    if (order != nativeOrder())
        word = __builtin_bswap32(word);
    memcpy(content.data() + offset % (content.size() - sizeof word + 1), &word, sizeof word);
}

void overwrite(std::string &content, uint32_t offset, const Bytes &bytes) {
    if (content.empty())
        return;
    const size_t from = offset % content.size();
    std::copy_n(bytes.begin(), std::min(bytes.size(), content.size() - from),
                content.begin() + static_cast<std::ptrdiff_t>(from));
}

/// A word among the records becomes another place among the records: what links are made of, in three bytes.
void link(std::string &content, ByteOrder order, Input &input) {
    const uint32_t offset = input.word<uint8_t>() * uint32_t{sizeof(uint32_t)};
    overwrite(content, offset, input.word<uint8_t>() * uint32_t{sizeof(uint32_t)}, order);
}

void edit(std::string &content, uint32_t how, ByteOrder order, Input &input) {
    if (how % 4 == 0)
        return link(content, order, input);
    const auto offset = input.word<uint32_t>();
    if (how % 4 == 1)
        overwrite(content, offset, input.word<uint32_t>(), order);
    else if (how % 4 == 2)
        overwrite(content, offset, input.bytes(input.word<uint8_t>()));
    else
        cut(content, offset);
}

/// One file and what is done to it.
void edit(RawImages::Contents &images, Target &target, Input &input) {
    constexpr uint32_t kFiles = 9;
    const uint32_t what = input.word<uint8_t>();
    const uint32_t file = what % kFiles;
    const uint32_t how = what / kFiles;
    if (file < kMediumNames.size())
        return edit(images[file + 1], how, target.images.order(), input);
    if (file == kMediumNames.size())
        return edit(target.sessions, how, nativeOrder(), input);
    if (file == kMediumNames.size() + 1)
        return edit(target.locks, how, nativeOrder(), input);
    target.hasControl = true;
    const auto offset = input.word<uint32_t>();
    control().overwrite(offset, input.word<uint32_t>());
}

void overwriteAll(Target &target, const Mode &mode, Input &input) {
    constexpr int kMostEdits = 40;
    RawImages::Contents images;
    for (const auto &medium : kMediumNames) {
        const auto id = static_cast<size_t>(medium.id);
        images[id] = mode.isMadeUp ? input.text() : target.images.content(medium.id);
    }
    for (int edits = 0; edits < kMostEdits && !input.isEmpty(); ++edits)
        edit(images, target, input);
    target.images = RawImages(mode.order, std::move(images));
}

std::optional<RawImages> repairInFolder(const Target &target, bool areMissing, size_t cutBefore) {
    static const std::string control = fileInPlace("control.tbl");
    static const std::string none = fileInPlace("none.tbl");
    setenv("TAVDB_DBTABLE", (target.hasControl ? control : none).c_str(), 1);
    Files files = sound().folder.sound();
    for (const auto &medium : kMediumNames) {
        const auto &content = target.images.content(medium.id);
        files[std::string(medium.file)] = content;
        if (areMissing && content.empty())
            files.erase(std::string(medium.file));
    }
    files[std::string(kSessionTable)] = target.sessions;
    files[std::string(kLockTable)] = target.locks;
    return sound().folder.run(files, cutBefore);
}

}  // namespace
}  // namespace tavdb_fuzz

/// A repair maps the table for the rest of its process, which repairs once. Here it is mapped already.
int32_t dbs_me_db_control_init_table() {
    static const auto next = reinterpret_cast<int32_t (*)()>(dlsym(RTLD_NEXT, __func__));
    return tavdb_fuzz::s_isMapped ? 0 : next();
}

int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    using namespace tavdb_fuzz;
    auto &base = sound();
    Input input(data, size);
    const Mode mode(input.word<uint8_t>());
    const auto &files = base.folder.sound();
    Target target{mode.order == nativeOrder() ? base.native : base.foreign, files.at(std::string(kSessionTable)),
                  files.at(std::string(kLockTable)), false};
    const size_t cutBefore = mode.isInFolder ? input.word<uint8_t>() % kStepsMax : 0;
    overwriteAll(target, mode, input);
    const auto mended = mode.isInFolder ? repairInFolder(target, mode.areMissing, cutBefore)
                                        : std::optional(tavdb::image::examine(target.images).images);
    control().writtenLinks();
    control().restore();
    if (mended)
        expectMended(*mended);
    return 0;
}
