// SPDX-License-Identifier: Apache-2.0
// The transfers that both families of the file list are made of.
#include "storage/db_file_list.h"

namespace tavdb {

int32_t failFileList(const FileListAccess &access, int32_t code, const OpenMedium &medium, uint32_t offset,
                     int32_t count, Site site) {
    return fail(access.session, code, medium.error(), site, medium.descriptor(), offset, medium.error(), count);
}

bool readFileList(const FileListAccess &access, uint32_t offset, void *buffer, int32_t length, int32_t minimum,
                  Site site) {
    if (access.entry == nullptr)
        return false;
    OpenMedium medium(*access.entry);
    if (medium.failed()) {
        failFileList(access, access.openCode, medium, offset, 0, site);
        return false;
    }
    const int32_t count = medium.read(buffer, length, offset);
    if (count >= minimum)
        return true;
    failFileList(access, access.readCode, medium, offset, count, site + 1);
    return false;
}

int32_t writeFileList(const FileListAccess &access, uint32_t offset, const void *data, int32_t length, Site site,
                      AfterWrite after) {
    if (access.entry == nullptr)
        return 0;
    OpenMedium medium(*access.entry);
    if (medium.failed())
        return failFileList(access, access.openCode, medium, offset, 0, site);
    const int32_t count = medium.write(data, length, offset);
    if (count != length)
        return failFileList(access, access.writeCode, medium, offset, count, site + 1);
    if (after != nullptr)
        after(medium, offset, data);
    return 0;
}

uint32_t readFirstOffset(const FileListAccess &access, Site site) {
    uint32_t first = 0;
    return readFileList(access, kFirstFreeOffset, &first, sizeof first, sizeof first, site) ? first : 0;
}

tavDBMFreeBlock *readElement(const FileListAccess &access, uint32_t offset, tavDBMFreeBlock *element, Site site) {
    *element = {};
    const bool read = readFileList(access, offset, element, sizeof *element, sizeof element->next, site);
    return read ? element : nullptr;
}

int32_t fillFragment(const FileListAccess &access, uint32_t offset, uint32_t length, Site site) {
    static constexpr uint8_t kFiller[sizeof(tavDBMFreeBlock)] = {0xDE, 0xAD, 0xDE, 0xAD, 0xDE, 0xAD, 0xDE, 0xAD};
    return writeFileList(access, offset, kFiller, static_cast<int32_t>(length), site);
}

}  // namespace tavdb
