// SPDX-License-Identifier: Apache-2.0
#include <fcntl.h>
#include <unistd.h>

#include <cstring>

#include "faults/fault_rows.h"

namespace tavdb_test {

namespace {

constexpr const char *kDefaultMedium = "TAVDB_DEFMEDIA";
constexpr tavDBMFreeBlock kElement = {0, 64};

void nameDefaultMedium(World &w) {
    setenv(kDefaultMedium, w.listFile.c_str(), 1);
}

void openDefaultMedium(World &w) {
    nameDefaultMedium(w);
    uint32_t error = 0;
    w.descriptor = dbs_me_db_media_def_open("", 0, &error);
}

void closeDescriptor(World &w) {
    unsetenv(kDefaultMedium);
    if (w.descriptor >= 0)
        close(w.descriptor);
}

/// One call of a default medium's function on the descriptor, with its error word as the session's detail.
template <typename Call>
int64_t onDefault(World &w, Call call) {
    w.session->errorDetail = 0;
    return call(w.descriptor, &w.session->errorDetail);
}

void loadLibrary(World &w) {
    w.entry = {};
    dbs_me_db_media_entry_set_handle("libm.so.6", &w.entry);
    dbs_me_db_media_entry_set_hint("hint", &w.entry);
}

void closeEntry(World &w) {
    dbs_me_db_media_entry_close(&w.entry);
}

int64_t fillEntry(World &w, const char *line) {
    char text[256];
    strcpy(text, line);
    w.entry = {};
    return dbs_me_db_media_fill_media_entry(&w.entry, text);
}

constexpr FaultRow kStorageRows[] = {
    {"flst_m_get", [](World &w) { return int64_t{flst_m_get(w.session, kValueMedia, 28)}; }},
    {"flst_m_get/large", [](World &w) { return int64_t{flst_m_get(w.session, kValueMedia, 60)}; }},
    {"flst_m_get/too large", [](World &w) { return int64_t{flst_m_get(w.session, kValueMedia, 20000)}; }},
    {"flst_m_release", [](World &w) { return int64_t{flst_m_release(w.session, kValueMedia, w.otherValue, 28)}; }},
    {"flst_m_release/behind", [](World &w) { return int64_t{flst_m_release(w.session, kValueMedia, 17000, 28)}; }},
    {"flst_m_setElement", [](World &w) { return int64_t{flst_m_setElement(w.session, kValueMedia, 4000, &kElement)}; }},
    {"flst_m_setFirstOffset", [](World &w) { return int64_t{flst_m_setFirstOffset(w.session, kValueMedia, 4000)}; }},
    {"flst_m_getRoot", [](World &w) { return int64_t{flst_m_getRoot(w.session, kComponentMedia)}; }},
    {"flst_m_setRoot", [](World &w) { return int64_t{flst_m_setRoot(w.session, kComponentMedia, w.node)}; }},
    {"flst_get", [](World &w) { return int64_t{flst_get(w.session, w.listFile.c_str(), 28)}; }},
    {"flst_get/large", [](World &w) { return int64_t{flst_get(w.session, w.listFile.c_str(), 60)}; }},
    {"flst_release", [](World &w) { return int64_t{flst_release(w.session, w.listFile.c_str(), 13, 3)}; }},
    {"flst_setElement",
     [](World &w) { return int64_t{flst_setElement(w.session, w.listFile.c_str(), 600, &kElement)}; }},
    {"flst_setFirstOffset", [](World &w) { return int64_t{flst_setFirstOffset(w.session, w.listFile.c_str(), 600)}; }},
    {"tavDBMSync", [](World &w) { return int64_t{tavDBMSync(w.session, kDataMedia, 7)}; }},
    {"dbs_me_db_media_sync", [](World &w) { return int64_t{dbs_me_db_media_sync(w.session, kDataMedia, 7)}; }},
    {"dbs_me_db_media_sync/default", [](World &w) { return int64_t{dbs_me_db_media_sync(w.session, 0, 7)}; },
     nameDefaultMedium, closeDescriptor},
    {"dbs_me_db_media_def_open",
     [](World &w) {
         w.descriptor = dbs_me_db_media_def_open("", 0, &w.session->errorDetail);
         return int64_t{w.descriptor >= 0 ? 1 : w.descriptor};
     },
     nameDefaultMedium, closeDescriptor},
    {"dbs_me_db_media_def_close",
     [](World &w) {
         const int32_t fd = w.descriptor;
         w.descriptor = -1;
         return int64_t{dbs_me_db_media_def_close(fd, &w.session->errorDetail)};
     },
     openDefaultMedium, closeDescriptor},
    {"dbs_me_db_media_def_read",
     [](World &w) {
         uint8_t bytes[16];
         return onDefault(
             w, [&](int32_t fd, uint32_t *error) { return dbs_me_db_media_def_read(fd, bytes, 16, 0, error); });
     },
     openDefaultMedium, closeDescriptor},
    {"dbs_me_db_media_def_write",
     [](World &w) {
         return onDefault(
             w, [](int32_t fd, uint32_t *error) { return dbs_me_db_media_def_write(fd, "abcd", 4, 100, error); });
     },
     openDefaultMedium, closeDescriptor},
    {"dbs_me_db_media_def_seek",
     [](World &w) {
         return onDefault(w,
                          [](int32_t fd, uint32_t *error) { return dbs_me_db_media_def_seek(fd, 0, SEEK_END, error); });
     },
     openDefaultMedium, closeDescriptor},
    {"dbs_me_db_media_def_sync",
     [](World &w) {
         return onDefault(w, [](int32_t fd, uint32_t *error) { return dbs_me_db_media_def_sync(fd, error, 0); });
     },
     openDefaultMedium, closeDescriptor},
    {"compFileRead",
     [](World &w) {
         uint8_t bytes[16];
         return onDefault(w, [&](int32_t fd, uint32_t *error) { return compFileRead(fd, bytes, 16, 0, error); });
     },
     openDefaultMedium, closeDescriptor},
    {"dbs_me_db_media_entry_init",
     [](World &w) { return int64_t{dbs_me_db_media_entry_init(w.mediaPath.c_str(), 3)}; }},
    {"dbs_me_db_media_entry_set_handle",
     [](World &w) {
         w.entry = {};
         return int64_t{dbs_me_db_media_entry_set_handle("libm.so.6", &w.entry)};
     },
     nullptr, closeEntry},
    {"dbs_me_db_media_entry_set_hint",
     [](World &w) {
         w.entry = {};
         return int64_t{dbs_me_db_media_entry_set_hint("flash0", &w.entry)};
     },
     nullptr, closeEntry},
    {"dbs_me_db_media_entry_close", [](World &w) { return int64_t{dbs_me_db_media_entry_close(&w.entry)}; },
     loadLibrary},
    {"dbs_me_db_media_fill_media_entry",
     [](World &w) {
         return fillEntry(w,
                          "libtavdbfile.so tavdbMemOpen tavdbMemClose tavdbMemRead tavdbMemWrite tavdbMemSeek "
                          "tavdbMemSync1 hint");
     },
     nullptr, closeEntry},
    {"dbs_me_db_media_fill_media_entry/library", [](World &w) { return fillEntry(w, "libm.so.6 a b c d e f hint"); },
     nullptr, closeEntry},
};

}  // namespace

std::span<const FaultRow> storageRows() {
    return kStorageRows;
}

}  // namespace tavdb_test
