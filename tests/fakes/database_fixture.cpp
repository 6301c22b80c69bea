// SPDX-License-Identifier: Apache-2.0
#include "fakes/database_fixture.h"

#include <unistd.h>

#include <cstring>
#include <fstream>

#include "fakes/event_log.h"
#include "fakes/fake_media.h"
#include "fakes/fake_memory.h"
#include "fakes/fake_semaphores.h"
#include "fakes/fake_trace.h"
#include "fakes/fakes.h"
#include "fakes/fault_plan.h"
#include "fakes/home_folder.h"
#include "tavdb_modules.h"

namespace tavdb_test {

namespace {

void copyPath(char (&field)[TAVDB_PATH_SIZE], const std::string &path) {
    ASSERT_LT(path.size(), sizeof(field));
    memcpy(field, path.c_str(), path.size() + 1);
}

}  // namespace

void DatabaseFixture::SetUp() {
    ASSERT_FALSE(folder().empty()) << "no folder for the test below TMPDIR";
    resetFakes();
    setHomeFolder(folder());
    environment_.set("TAVDB_DBTABLE", file("control.tbl"));
    environment_.unset("TAVDB_DEFMEDIA");
    environment_.unset("SIM_BYTE_ORDER");
    createMedia();
    std::vector<std::string> lines;
    for (const char *const hint : kMediaHints)
        lines.push_back(mediaLine(hint));
    writeMediaConf(lines);
    fillDescription();
    before_ = OpenResources::now();
}

void DatabaseFixture::TearDown() {
    finish();
    resetFakes();
    setHomeFolder("");
}

void DatabaseFixture::createMedia() const {
    for (const char *const hint : kMediaHints)
        fakeMedia().create(hint);
    for (const uint32_t id : {kComponentMedia, kValueMedia, kConstraintMedia, kStringMedia})
        fakeMedia().createForRecords(kMediaHints[id - 1], kRecordMediumSize);
}

void DatabaseFixture::fillDescription() {
    copyPath(description.sessionPath, file("session.tbl"));
    copyPath(description.lockPath, file("lock.tbl"));
    copyPath(description.mediaPath, file("media.conf"));
    copyPath(description.hookPath, file("hooks.conf"));
    description.componentMedia = kComponentMedia;
    description.valueMedia = kValueMedia;
    description.constraintMedia = kConstraintMedia;
    description.stringMedia = kStringMedia;
}

std::string DatabaseFixture::mediaLine(const std::string &hint) {
    return "libtavdbfile.so tavdbMemOpen tavdbMemClose tavdbMemRead tavdbMemWrite tavdbMemSeek tavdbMemSync1 " + hint;
}

void DatabaseFixture::writeMediaConf(const std::vector<std::string> &lines) const {
    std::ofstream conf(description.mediaPath[0] != '\0' ? description.mediaPath : file("media.conf"));
    for (const std::string &line : lines)
        conf << line << '\n';
    conf.close();
    EXPECT_TRUE(conf) << "the media configuration file cannot be written";
}

uint32_t DatabaseFixture::putRoot() {
    const char *const medium = kMediaHints[kComponentMedia - 1];
    tavDBMMediumHeader header = fakeMedia().recordAt<tavDBMMediumHeader>(medium, 0);
    tavDBMFreeBlock block = fakeMedia().recordAt<tavDBMFreeBlock>(medium, header.firstFree);
    tavDBMNode root{};
    root.component.key = header.firstFree;
    root.component.kind = TAVDB_KIND_NODE;
    header.root = root.component.key;
    header.firstFree += static_cast<uint32_t>(sizeof(root));
    block.size -= static_cast<uint32_t>(sizeof(root));
    fakeMedia().setRecordAt(medium, 0, header);
    fakeMedia().setRecordAt(medium, header.firstFree, block);
    fakeMedia().setRecordAt(medium, root.component.key, root);
    return root.component.key;
}

void DatabaseFixture::removeTables() const {
    for (const char *const table : {"control.tbl", "session.tbl", "lock.tbl"})
        unlink(file(table).c_str());
}

int32_t DatabaseFixture::attach() {
    return attach(description);
}

int32_t DatabaseFixture::attach(const tavDBMDescription &other) {
    const Recording recording;
    attachError = 0;
    attached_.push_back(tavDBMInit(&other, &attachError));
    return attached_.back();
}

int32_t DatabaseFixture::detach() {
    if (attached_.empty()) {
        ADD_FAILURE() << "the test detaches, but is not attached";
        return -1;
    }
    const Recording recording;
    const int32_t dbId = attached_.back();
    attached_.pop_back();
    return tavDBMTerm(dbId > 0 ? static_cast<uint32_t>(dbId) : 0);
}

void DatabaseFixture::start() {
    const int32_t dbId = attach();
    ASSERT_GT(dbId, 0) << "attaching failed with " << attachError << "\n" << eventLog().text();
    const Recording recording;
    ASSERT_EQ(tavDBMInitSession(&session, static_cast<uint32_t>(dbId)), TAVDB_OK) << eventLog().text();
    sessionOpen_ = true;
    eventLog().clear();
    fakeTrace().clear();
}

void DatabaseFixture::stop() {
    {
        const Recording recording;
        sessionOpen_ = false;
        EXPECT_EQ(tavDBMTermSession(&session), TAVDB_OK) << eventLog().text();
    }
    EXPECT_EQ(detach(), TAVDB_OK) << eventLog().text();
}

void DatabaseFixture::finish() {
    faultPlan().endFaults();
    fakeSemaphores().onEventWait(nullptr);
    endWhatIsOpen();
    failForLeftovers();
}

// Results are not looked at here: a test that failed half-way may have left anything.
void DatabaseFixture::endWhatIsOpen() {
    if (sessionOpen_ && !attached_.empty()) {
        const Recording recording;
        tavDBMTermSession(&session);
    }
    sessionOpen_ = false;
    while (!attached_.empty())
        detach();
}

void DatabaseFixture::failForLeftovers() {
    LibcRecorder::instance().releaseRefusedMappings();
    fakeMemory().checkFreedBlocks();
    for (const std::string &sentence : leftInFakes())
        ADD_FAILURE() << "after the test " << sentence;
    for (const std::string &resource : OpenResources::now().newSince(before_))
        ADD_FAILURE() << "after the test there is still the " << resource;
}

}  // namespace tavdb_test
