// SPDX-License-Identifier: Apache-2.0
// The folder of the media configuration. It is made absolute once, at start, so
// that a process may change its working folder afterwards.
#include "mediafile/media_path.h"

#include <errno.h>
#include <string.h>
#include <unistd.h>

namespace tavdb {
namespace {

char s_folder[PATH_MAX];  // with its last slash, or empty
size_t s_folderLength;

/// Puts "working folder/" into a buffer; leaves it empty when there is no working folder any more.
size_t writeWorkingFolder(char (&buffer)[PATH_MAX]) {
    if (getcwd(buffer, sizeof buffer - 1) == nullptr || buffer[0] != '/')
        return 0;
    size_t length = strlen(buffer);
    if (buffer[length - 1] != '/')
        buffer[length++] = '/';
    return length;
}

void keepFolder(const char *head, size_t headLength, const char *tail, size_t tailLength) {
    memcpy(s_folder, head, headLength);
    memcpy(s_folder + headLength, tail, tailLength);
    s_folderLength = headLength + tailLength;
}

}  // namespace

int setMediaFolder(const char *path) {
    if (path == nullptr) {
        s_folderLength = 0;
        return 0;
    }
    const char *const slash = strrchr(path, '/');
    const size_t folderLength = slash != nullptr ? static_cast<size_t>(slash - path) + 1 : 0;
    char working[PATH_MAX];
    const size_t workingLength = path[0] != '/' ? writeWorkingFolder(working) : 0;
    if (workingLength + folderLength >= PATH_MAX)
        return ENAMETOOLONG;
    keepFolder(working, workingLength, path, folderLength);
    return 0;
}

int MediaPath::resolve(const char *hint) {
    if (hint == nullptr)
        return EFAULT;
    if (hint[0] == '\0')
        return ENOENT;
    text_ = hint;
    if (hint[0] == '/' || s_folderLength == 0)
        return 0;
    const size_t hintSize = strlen(hint) + 1;
    if (s_folderLength + hintSize > sizeof buffer_)
        return ENAMETOOLONG;
    memcpy(buffer_, s_folder, s_folderLength);
    memcpy(buffer_ + s_folderLength, hint, hintSize);
    text_ = buffer_;
    return 0;
}

}  // namespace tavdb
