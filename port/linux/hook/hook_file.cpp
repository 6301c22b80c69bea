// SPDX-License-Identifier: Apache-2.0
// Reading a hook file line by line: comments off, six tokens, an id, two kinds
// of name. The text of a line is kept behind its FileHook, the tokens point
// into it.
#include "hook/hook_file.h"

#include <errno.h>
#include <fcntl.h>
#include <stdio.h>
#include <string.h>
#include <unistd.h>

#include "tavdb_platform.h"

namespace tavdb {
namespace {

constexpr size_t kTokens = 2 + kHookFunctions;
constexpr size_t kPathShown = 480;  // a longer path is shown by its end

/// The file being read, and what is read of it so far.
struct Reader {
    FILE *stream;
    HookFile *file;
    uint32_t line;
    char text[kHookLineMax + 1];
};

int32_t refuseLine(const Reader &reader, HookSite site, const char *reason, const char *detail) {
    return refuseHookFile(kHookMalformed, site, reader.file->path, reader.line, reason, detail);
}

int32_t refuseSystem(const char *path, HookSite site, const char *reason, int error) {
    char number[24];
    snprintf(number, sizeof number, "errno %d", error);
    return refuseHookFile(kHookSystemError | error, site, path, 0, reason, number);
}

bool isBlank(char c) {
    return c == ' ' || c == '\t' || c == '\r';
}

/// Splits in place. @return how many tokens there are; those beyond the array are only counted
size_t split(char *text, char *(&tokens)[kTokens]) {
    size_t count = 0;
    for (char *at = text; *at != '\0';) {
        while (isBlank(*at))
            *at++ = '\0';
        if (*at == '\0')
            break;
        if (count < kTokens)
            tokens[count] = at;
        count++;
        while (*at != '\0' && !isBlank(*at))
            at++;
    }
    return count;
}

/// @return the digit's value, or 16 when it is none
uint32_t digitValue(char c) {
    if (c >= '0' && c <= '9')
        return static_cast<uint32_t>(c - '0');
    const char lower = static_cast<char>(c | 0x20);
    return lower >= 'a' && lower <= 'f' ? static_cast<uint32_t>(lower - 'a') + 10 : 16;
}

/// Decimal, or hexadecimal behind "0x". @return the id, or 0 when the text is none
uint32_t parseId(const char *text) {
    const bool isHex = text[0] == '0' && (text[1] | 0x20) == 'x';
    const uint32_t base = isHex ? 16 : 10;
    uint64_t id = 0;
    for (const char *at = isHex ? text + 2 : text; *at != '\0'; at++) {
        const uint32_t digit = digitValue(*at);
        if (digit >= base)
            return 0;
        id = id * base + digit;
        if (id > UINT32_MAX)
            return 0;
    }
    return static_cast<uint32_t>(id);
}

void append(HookFile *file, FileHook *hook) {
    if (file->last != nullptr)
        file->last->next = hook;
    else
        file->first = hook;
    file->last = hook;
    file->hookCount++;
}

/// A hook with a copy of the reader's line behind it.
FileHook *newHook(const Reader &reader, char **text) {
    const size_t textSize = strlen(reader.text) + 1;
    auto *const hook = static_cast<FileHook *>(tavOSWSubAllocMem(static_cast<uint32_t>(sizeof(FileHook) + textSize)));
    if (hook == nullptr)
        return nullptr;
    *hook = {};
    hook->line = reader.line;
    *text = reinterpret_cast<char *>(hook + 1);
    memcpy(*text, reader.text, textSize);
    return hook;
}

int32_t fill(const Reader &reader, FileHook *hook, char *text) {
    char *tokens[kTokens] = {};
    if (split(text, tokens) != kTokens)
        return refuseLine(reader, kSiteTokens, "a line has an id, a library and four functions", nullptr);
    hook->id = parseId(tokens[0]);
    if (hook->id == 0)
        return refuseLine(reader, kSiteId, "not an id from 1 to 0xFFFFFFFF", tokens[0]);
    hook->libraryName = tokens[1];
    for (size_t i = 0; i < kHookFunctions; i++)
        hook->functionNames[i] = tokens[2 + i];
    return 0;
}

bool isEmptyLine(const char *text) {
    while (isBlank(*text))
        text++;
    return *text == '\0';
}

int32_t addLine(Reader &reader) {
    reader.text[strcspn(reader.text, "#")] = '\0';
    if (isEmptyLine(reader.text))
        return 0;
    char *text = nullptr;
    FileHook *const hook = newHook(reader, &text);
    if (hook == nullptr)
        return refuseSystem(reader.file->path, kSiteMemory, "no memory", ENOMEM);
    append(reader.file, hook);
    return fill(reader, hook, text);
}

/// Reads up to the next line end or the end of the file. @return 0 or the code of a line that is no text line
int32_t readLine(Reader &reader, bool *isEnd) {
    size_t length = 0;
    int c = getc(reader.stream);
    *isEnd = c == EOF;
    for (; c != EOF && c != '\n'; c = getc(reader.stream)) {
        if (c == '\0')
            return refuseLine(reader, kSiteNulByte, "the line holds a NUL byte", nullptr);
        if (length == kHookLineMax)
            return refuseLine(reader, kSiteLineTooLong, "the line is longer than 4095 characters", nullptr);
        reader.text[length++] = static_cast<char>(c);
    }
    reader.text[length] = '\0';
    if (ferror(reader.stream) != 0)
        return refuseSystem(reader.file->path, kSiteUnreadable, "cannot be read", errno);
    return 0;
}

int32_t readLines(Reader &reader) {
    for (bool isEnd = false; !isEnd;) {
        reader.line++;
        int32_t code = readLine(reader, &isEnd);
        if (code == 0)
            code = addLine(reader);
        if (code != 0)
            return code;
    }
    return 0;
}

/// Without O_NONBLOCK a path that names a FIFO would hold the start up for ever.
FILE *openStream(const char *path) {
    const int fd = open(path, O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY);
    FILE *const stream = fd >= 0 ? fdopen(fd, "r") : nullptr;
    if (fd >= 0 && stream == nullptr) {
        const int error = errno;
        close(fd);
        errno = error;
    }
    return stream;
}

int32_t readAll(HookFile *file) {
    FILE *const stream = openStream(file->path);
    if (stream == nullptr)
        return errno == ENOENT ? 0 : refuseSystem(file->path, kSiteUnreadable, "cannot be opened", errno);
    int32_t code = kHookSystemError | ENOMEM;
    auto *const reader = static_cast<Reader *>(tavOSWSubAllocMem(sizeof(Reader)));
    if (reader != nullptr) {
        *reader = {};
        reader->stream = stream;
        reader->file = file;
        code = readLines(*reader);
        tavOSWOrgFreeMemPart(0, reader);
    } else {
        refuseSystem(file->path, kSiteMemory, "no memory", ENOMEM);
    }
    fclose(stream);
    return code;
}

HookFile *newFile(const char *path) {
    const size_t pathSize = strlen(path) + 1;
    auto *const file = static_cast<HookFile *>(tavOSWSubAllocMem(static_cast<uint32_t>(sizeof(HookFile) + pathSize)));
    if (file == nullptr)
        return nullptr;
    char *const text = reinterpret_cast<char *>(file + 1);
    memcpy(text, path, pathSize);
    *file = {};
    file->path = text;
    return file;
}

}  // namespace

int32_t refuseHookFile(int32_t code, HookSite site, const char *path, uint32_t line, const char *reason,
                       const char *detail) {
    char place[16] = "";
    if (line != 0)
        snprintf(place, sizeof place, ":%u", line);
    const size_t pathLength = strlen(path);
    const char *const shownPath = pathLength > kPathShown ? path + (pathLength - kPathShown) : path;
    char text[kPathShown + 512];
    if (detail != nullptr)
        snprintf(text, sizeof text, "%s%s: %s: %s", shownPath, place, reason, detail);
    else
        snprintf(text, sizeof text, "%s%s: %s", shownPath, place, reason);
    dbs_me_debug_trace(0, "%s():[Error]:[%d][%s]\n", "hook_init", static_cast<int32_t>(site), text);
    return code;
}

int32_t readHookFile(const char *path, HookFile **file) {
    *file = newFile(path);
    if (*file == nullptr)
        return refuseSystem(path, kSiteMemory, "no memory", ENOMEM);
    const int32_t code = readAll(*file);
    if (code != 0) {
        freeHookFile(*file);
        *file = nullptr;
    }
    return code;
}

void freeHookFile(HookFile *file) {
    for (FileHook *hook = file->first; hook != nullptr;) {
        FileHook *const next = hook->next;
        tavOSWOrgFreeMemPart(0, hook);
        hook = next;
    }
    tavOSWOrgFreeMemPart(0, file);
}

}  // namespace tavdb
