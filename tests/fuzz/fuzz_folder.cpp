// SPDX-License-Identifier: Apache-2.0
#include "fuzz/fuzz_folder.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>

#include "fuzz/fuzz_database.h"
#include "fuzz/fuzz_mended.h"
#include "fuzz/fuzz_place.h"
#include "image/build_folder.h"
#include "image/files.h"
#include "image/media_image.h"

namespace tavdb_fuzz {

using namespace tavdb::image;

namespace {

/// A number that no process has, see fuzz_machine.cpp.
constexpr int32_t kGoneProcess = 1'000'000;
constexpr uint32_t kRootKey = 16;

/// The power is cut.
struct Cut {};

std::string contentOf(const std::string &path) {
    auto content = readRegularFile(path, kMediumBytesMax);
    if (!content)
        fail(path + " " + content.error.sentence);
    return std::move(*content.value);
}

template <typename Table, typename Change>
std::string changedTable(const std::string &name, Change change) {
    auto content = contentOf(fileInPlace(name));
    change(*reinterpret_cast<Table *>(content.data()));
    return content;
}

RawImages imagesOf(const Files &files) {
    RawImages::Contents contents;
    for (const auto &medium : kMediumNames)
        if (const auto file = files.find(std::string(medium.file)); file != files.end())
            contents[static_cast<size_t>(medium.id)] = file->second;
    return {nativeOrder(), std::move(contents)};
}

std::vector<std::string> namesIn(const std::string &folder) {
    auto names = listFolder(folder);
    if (!names)
        fail(folder + " " + names.error.sentence);
    return std::move(*names.value);
}

/// Nobody repairs the control table: other databases use it.
bool mayBeFoundAgain(const Finding &finding) {
    return mayStay(finding) || finding.file == fileInPlace("control.tbl");
}

}  // namespace

RepairFolder::RepairFolder(std::string path) : folder(std::move(path)) {
    makeTables();
    found = read();
}

/// As a process leaves them that dies with a session and a lock: made by the library, for the database of this
/// process, and then said to be of another one.
void RepairFolder::makeTables() {
    const auto description = describeDirectory(folder);
    int32_t error = 0;
    const int32_t id = description ? dbs_me_db_control_init_table_entry(description.value->get(), &error) : -1;
    if (id <= 0 || tavDBMLock(&session(), kRootKey, TAVDB_LOCK_TRY) != 0)
        fail("the tables cannot be made");
    const auto sessions = changedTable<tavDBMSessionTable>("session.tbl", [&](tavDBMSessionTable &table) {
        table.slot[table.sessionHead].processId = kGoneProcess;
        table.slot[table.sessionHead].dbId = static_cast<uint32_t>(id);
    });
    const auto locks = changedTable<tavDBMLockTable>(
        "lock.tbl", [&](tavDBMLockTable &table) { table.entry[table.first].dbId = static_cast<uint32_t>(id); });
    tavDBMUnlock(&session(), kRootKey);
    writeFile(joinPath(folder, kSessionTable), sessions);
    writeFile(joinPath(folder, kLockTable), locks);
}

Files RepairFolder::read() const {
    Files files;
    for (const auto &name : namesIn(folder))
        if (const auto path = joinPath(folder, name); !std::filesystem::is_directory(path))
            files.emplace(name, contentOf(path));
    return files;
}

void RepairFolder::write(const Files &files) const {
    for (const auto &name : namesIn(folder))
        if (!files.contains(name))
            unlink(joinPath(folder, name).c_str());
    for (const auto &[name, content] : files) {
        const auto file = openFile(joinPath(folder, name), O_WRONLY | O_CREAT | O_TRUNC, 0600);
        if (writeAll(file.get(), content))
            fail(name + " cannot be written");
    }
}

std::optional<RawImages> RepairFolder::run(const Files &files, size_t cutBefore) {
    write(files);
    bool wasCut = false;
    const auto repaired = repairCutBefore(cutBefore, wasCut);
    if (!repaired) {
        expectRefused(files, repaired.error);
        return std::nullopt;
    }
    if (!repaired.value->check.tables.living.empty())
        fail("what is in use was repaired", repaired.value->check.findings());
    if (!wasCut)
        expectKept(files, repaired.value->original);
    const auto before = imagesOf(files);
    return mended(wasCut ? examine(before).images : repaired.value->check.examination.images);
}

/// A repair that is cut is begun again.
Result<Repaired> RepairFolder::repairCutBefore(size_t step, bool &wasCut) const {
    try {
        return repairDatabase(folder, [&](std::string_view) {
            if (--step == 0)
                throw Cut();
        });
    } catch (const Cut &) {
        wasCut = true;
        return repairDatabase(folder);
    }
}

/// Only what cannot be checked, for a reason that a person must look at, or is in use.
void RepairFolder::expectRefused(const Files &files, const Fault &why) const {
    const auto checked = checkDatabase(folder);
    const bool isRight = checked ? !checked.value->tables.living.empty()
                                 : why.kind == FaultKind::damaged || why.kind == FaultKind::mismatch;
    if (!isRight)
        fail("not repaired: " + why.sentence);
    if (read() != files)
        fail("a repair that was refused has changed something");
}

/// The folder with what was damaged holds every file as it was, or there is none when no file was replaced.
void RepairFolder::expectKept(const Files &files, const std::string &original) const {
    const bool isChanged = !imagesOf(read()).equals(imagesOf(files));
    if (original.empty() && isChanged)
        fail("what was damaged is not kept");
    if (original.empty())
        return;
    for (const auto &name : namesIn(joinPath(folder, original)))
        if (const auto file = files.find(name);
            file == files.end() || contentOf(joinPath(joinPath(folder, original), name)) != file->second)
            fail(name + " is not kept as it was");
}

/// Looks at what is there after a repair, by repairing it again. @return the images
RawImages RepairFolder::mended(const RawImages &expected) const {
    const auto files = read();
    const auto again = repairDatabase(folder);
    if (!again)
        fail("not to be repaired after a repair: " + again.error.sentence);
    const auto findings = again.value->check.findings();
    if (!std::all_of(findings.begin(), findings.end(), mayBeFoundAgain))
        fail("found again after a repair:", findings);
    if (!again.value->original.empty() || read() != files)
        fail("a second repair changes something", findings);
    RawImages images(nativeOrder(), again.value->check.contents);
    if (!images.equals(expected))
        fail("the images are not those that the check put right", findings);
    expectSettled();
    removeKept();
    return images;
}

/// Nothing stands there but a database and what was kept.
void RepairFolder::expectSettled() const {
    for (const auto &name : namesIn(folder))
        if (!found.contains(name) && !std::filesystem::is_directory(joinPath(folder, name)))
            fail(name + " is left behind");
    if (const auto opened = openDirectory(folder); !opened)
        fail("cannot be opened after a repair: " + opened.error.sentence);
}

void RepairFolder::removeKept() const {
    for (const auto &name : namesIn(folder))
        if (const auto path = joinPath(folder, name); std::filesystem::is_directory(path))
            std::filesystem::remove_all(path);
}

}  // namespace tavdb_fuzz
