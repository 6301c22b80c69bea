// SPDX-License-Identifier: Apache-2.0
#include "fuzz/fuzz_database.h"

#include <cerrno>
#include <cstdio>
#include <cstdlib>

#include "fuzz/fuzz_place.h"

namespace tavdb_fuzz {

namespace {

Bytes s_media[kMediaEnd];
tavDBMDescription s_description;
tavDBMSession s_session;

Bytes &mediumOf(int32_t fd) {
    return s_media[fd];
}

int32_t closeMedium(int32_t, uint32_t *) {
    return 0;
}

int32_t readMedium(int32_t fd, void *buffer, int32_t length, uint32_t offset, uint32_t *) {
    const Bytes &medium = mediumOf(fd);
    const size_t from = std::min<size_t>(offset, medium.size());
    const size_t moved = std::min(static_cast<size_t>(length), medium.size() - from);
    if (moved > 0)
        memcpy(buffer, medium.data() + from, moved);
    return static_cast<int32_t>(moved);
}

int32_t writeMedium(int32_t fd, const void *data, int32_t length, uint32_t offset, uint32_t *err) {
    Bytes &medium = mediumOf(fd);
    const uint64_t end = uint64_t{offset} + static_cast<uint32_t>(length);
    if (end > kMediumBytes) {
        *err = ENOSPC;
        return -1;
    }
    if (medium.size() < end)
        medium.resize(static_cast<size_t>(end));
    if (length > 0)
        memcpy(medium.data() + offset, data, static_cast<size_t>(length));
    return length;
}

int32_t seekMedium(int32_t fd, int32_t offset, int32_t whence, uint32_t *) {
    return whence == SEEK_END ? static_cast<int32_t>(mediumOf(fd).size()) + offset : offset;
}

int32_t syncMedium(int32_t, uint32_t *, uint32_t) {
    return 0;
}

/// The hint of a medium is its id.
int32_t openMedium(const char *hint, uint32_t, uint32_t *) {
    return hint[0] - '0';
}

void setPath(char (&field)[TAVDB_PATH_SIZE], const char *name) {
    const std::string path = fileInPlace(name);
    memcpy(field, path.c_str(), path.size() + 1);
}

void describe() {
    setPath(s_description.sessionPath, "session.tbl");
    setPath(s_description.lockPath, "lock.tbl");
    setPath(s_description.mediaPath, "media.conf");
    setPath(s_description.hookPath, "hooks.conf");
    s_description.componentMedia = kComponents;
    s_description.valueMedia = kValues;
    s_description.constraintMedia = kConstraints;
    s_description.stringMedia = kStrings;
}

void configureMedia() {
    std::string lines;
    for (int id = kComponents; id < kMediaEnd; ++id)
        lines += "libtavdbfile.so tavdbMemOpen tavdbMemClose tavdbMemRead tavdbMemWrite tavdbMemSeek tavdbMemSync1 " +
                 std::to_string(id) + '\n';
    writeFile(s_description.mediaPath, lines);
}

void takeMediaOver() {
    for (int id = kComponents; id < kMediaEnd; ++id) {
        tavDBMMediaEntry &entry = media_table.entry[id];
        entry.open = openMedium;
        entry.close = closeMedium;
        entry.read = readMedium;
        entry.write = writeMedium;
        entry.lseek = seekMedium;
        entry.sync = syncMedium;
    }
}

/// What the library prints is not looked at.
void attach() {
    setenv("TAVDB_DBTABLE", fileInPlace("control.tbl").c_str(), 1);
    describe();
    configureMedia();
    int32_t error = 0;
    const int32_t dbId = tavDBMInit(&s_description, &error);
    if (dbId < 0 || tavDBMInitSession(&s_session, static_cast<uint32_t>(dbId)) != 0 ||
        std::freopen("/dev/null", "w", stdout) == nullptr) {
        std::fprintf(stderr, "the database of the fuzz target cannot be attached: %d\n", error);
        std::exit(1);
    }
    takeMediaOver();
}

}  // namespace

tavDBMSession &session() {
    if (s_session.sessionId == 0)
        attach();
    s_session.errorCode = 0;
    s_session.errorDetail = 0;
    return s_session;
}

const tavDBMDescription &description() {
    session();
    return s_description;
}

void putImage(int32_t mediumId, std::string_view content) {
    s_media[mediumId].assign(content.begin(), content.end());
}

void putMedium(int32_t mediumId, const Bytes &content) {
    putImage(mediumId, {reinterpret_cast<const char *>(content.data()), std::min(content.size(), kMediumBytes)});
}

void putMedia(Input &input) {
    session().currentComponent = input.word<uint16_t>();
    for (int32_t id = kComponents; id < kMediaEnd; ++id)
        putMedium(id, input.section());
}

}  // namespace tavdb_fuzz
