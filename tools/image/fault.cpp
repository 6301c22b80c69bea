// SPDX-License-Identifier: Apache-2.0
#include "image/fault.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <string_view>

#include "tavdb_errors.h"

namespace tavdb::image {

namespace {

/// What the detail of a code is.
enum class Detail { none, errorNumber, readErrorNumber, hookResult };

struct CodeRow {
    uint32_t code;
    FaultKind kind;
    Detail detail;
};

// Codes that are not listed are failures without a detail. What comes short
// without an error number lies outside of its medium: the link to it is damaged.
constexpr std::array kCodes = {
    CodeRow{TAVDB_ERR_KIND, FaultKind::damaged, Detail::none},
    CodeRow{TAVDB_ERR_NO_COMPONENT, FaultKind::damaged, Detail::none},
    CodeRow{TAVDB_ERR_NOT_BELOW, FaultKind::notFound, Detail::none},
    CodeRow{TAVDB_ERR_NO_MATCH, FaultKind::notFound, Detail::none},
    CodeRow{TAVDB_ERR_PRE_READ, FaultKind::hook, Detail::hookResult},
    CodeRow{TAVDB_ERR_POST_READ, FaultKind::hook, Detail::hookResult},
    CodeRow{TAVDB_ERR_PRE_WRITE, FaultKind::hook, Detail::hookResult},
    CodeRow{TAVDB_ERR_POST_WRITE, FaultKind::hook, Detail::hookResult},
    CodeRow{TAVDB_ERR_MEDIA_FILE, FaultKind::medium, Detail::none},
    CodeRow{TAVDB_ERR_MEDIA_ID, FaultKind::damaged, Detail::none},
    CodeRow{TAVDB_ERR_MEDIUM_OPEN, FaultKind::medium, Detail::errorNumber},
    CodeRow{TAVDB_ERR_MEDIUM_WRITE, FaultKind::medium, Detail::errorNumber},
    CodeRow{TAVDB_ERR_MEDIUM_READ, FaultKind::medium, Detail::readErrorNumber},
    CodeRow{TAVDB_ERR_MEDIUM_SYNC, FaultKind::medium, Detail::errorNumber},
    CodeRow{TAVDB_ERR_STRING_OPEN, FaultKind::medium, Detail::errorNumber},
    CodeRow{TAVDB_ERR_STRING_WRITE, FaultKind::medium, Detail::errorNumber},
    CodeRow{TAVDB_ERR_STRING_READ, FaultKind::medium, Detail::readErrorNumber},
    CodeRow{TAVDB_ERR_STRING_SLOT, FaultKind::medium, Detail::none},
    CodeRow{TAVDB_ERR_VALUE_OPEN, FaultKind::medium, Detail::errorNumber},
    CodeRow{TAVDB_ERR_VALUE_WRITE, FaultKind::medium, Detail::errorNumber},
    CodeRow{TAVDB_ERR_VALUE_READ, FaultKind::medium, Detail::readErrorNumber},
    CodeRow{TAVDB_ERR_COMPONENT_OPEN, FaultKind::medium, Detail::errorNumber},
    CodeRow{TAVDB_ERR_COMPONENT_WRITE, FaultKind::medium, Detail::errorNumber},
    CodeRow{TAVDB_ERR_COMPONENT_READ, FaultKind::medium, Detail::readErrorNumber},
    CodeRow{TAVDB_ERR_CONSTRAINT_OPEN, FaultKind::medium, Detail::errorNumber},
    CodeRow{TAVDB_ERR_CONSTRAINT_WRITE, FaultKind::medium, Detail::errorNumber},
    CodeRow{TAVDB_ERR_CONSTRAINT_READ, FaultKind::medium, Detail::readErrorNumber},
    CodeRow{TAVDB_ERR_CONSTRAINT_SLOT, FaultKind::medium, Detail::none},
    CodeRow{TAVDB_ERR_VALUE_TYPE, FaultKind::refused, Detail::none},
    CodeRow{TAVDB_ERR_LENGTH, FaultKind::refused, Detail::none},
    CodeRow{TAVDB_ERR_BELOW_MINIMUM, FaultKind::refused, Detail::none},
    CodeRow{TAVDB_ERR_ABOVE_MAXIMUM, FaultKind::refused, Detail::none},
    CodeRow{TAVDB_ERR_OFF_STEP, FaultKind::refused, Detail::none},
    CodeRow{TAVDB_ERR_CHECK_CONSTRAINT, FaultKind::damaged, Detail::none},
    CodeRow{TAVDB_ERR_CONSTRAINT_TYPE, FaultKind::damaged, Detail::none},
    CodeRow{TAVDB_ERR_NOT_ENUMERATED, FaultKind::refused, Detail::none},
    CodeRow{TAVDB_ERR_NO_CONSTRAINT, FaultKind::notFound, Detail::none},
    CodeRow{TAVDB_ERR_LOCK_FILE, FaultKind::medium, Detail::none},
    CodeRow{TAVDB_ERR_LOCKED, FaultKind::locked, Detail::none},
    CodeRow{TAVDB_ERR_LOCK_FULL, FaultKind::locked, Detail::none},
    CodeRow{TAVDB_ERR_SESSION_FILE, FaultKind::medium, Detail::none},
    CodeRow{TAVDB_ERR_CONTROL_FILE, FaultKind::medium, Detail::none},
    CodeRow{TAVDB_ERR_MEMORY, FaultKind::failed, Detail::errorNumber},
};

/// Codes of the Linux port are this or-ed with an error number.
constexpr uint32_t kPlatformCode = 0x1000;
constexpr uint32_t kErrorNumberMax = 4095;

std::string_view sentenceOf(uint32_t code) {
    switch (code) {
#define TAVDB_SENTENCE(number, name, sentence, action) \
    case number:                                       \
        return sentence;
        TAVDB_ERROR_LIST(TAVDB_SENTENCE)
#undef TAVDB_SENTENCE
        case 120:
            return "a line of the hook file is not well formed; TAVDB_TRACE=0 shows which";
        case 121:
            return "a library of the hook file cannot be loaded; TAVDB_TRACE=0 shows which";
        case 122:
            return "a function of the hook file is not found; TAVDB_TRACE=0 shows which";
        default:
            return {};
    }
}

FaultKind kindOfError(int error, FaultKind other) {
    switch (error) {
        case EACCES:
        case EPERM:
        case EROFS:
            return FaultKind::permission;
        case EAGAIN:
        case ETIMEDOUT:
            return FaultKind::locked;
        default:
            return other;
    }
}

std::string errorText(int error) {
    return std::strerror(error);
}

Fault platformFault(uint32_t code) {
    const auto error = static_cast<int>(code & ~kPlatformCode);
    return {kindOfError(error, FaultKind::failed), "the system refused: " + errorText(error), code, 0};
}

void addDetail(Fault &fault, Detail meaning) {
    if (meaning == Detail::hookResult)
        fault.sentence += " with result " + std::to_string(static_cast<int32_t>(fault.detail));
    if (meaning != Detail::errorNumber && meaning != Detail::readErrorNumber)
        return;
    if (fault.detail != 0 && fault.detail <= kErrorNumberMax) {
        const auto error = static_cast<int>(fault.detail);
        fault.kind = kindOfError(error, fault.kind);
        fault.sentence += ": " + errorText(error);
    } else if (meaning == Detail::readErrorNumber) {
        fault.kind = FaultKind::damaged;
    }
}

}  // namespace

Fault faultOfCode(uint32_t code, uint32_t detail) {
    if ((code & kPlatformCode) != 0 && code <= (kPlatformCode | kErrorNumberMax))
        return platformFault(code);
    const auto row = std::find_if(kCodes.begin(), kCodes.end(), [&](const auto &each) { return each.code == code; });
    Fault fault{FaultKind::failed, std::string(sentenceOf(code)), code, detail};
    if (static_cast<int32_t>(code) < 0)  // no code of the library's: what the medium's close function gave
        fault = {FaultKind::medium, "a medium could not be closed", code, 0};
    else if (fault.sentence.empty())
        fault.sentence = "the library reports code " + std::to_string(code);
    if (row == kCodes.end())
        return fault;
    fault.kind = row->kind;
    addDetail(fault, row->detail);
    return fault;
}

Fault faultOfError(int error, const std::string &what) {
    const bool isMissing = error == ENOENT || error == ENOTDIR;
    const auto otherKind = isMissing ? FaultKind::notFound : error == EISDIR ? FaultKind::usage : FaultKind::medium;
    return {kindOfError(error, otherKind), what + ": " + errorText(error), 0, static_cast<uint32_t>(error)};
}

Fault faultIn(const std::string &place, Fault fault) {
    fault.sentence.insert(0, place + ": ");
    return fault;
}

}  // namespace tavdb::image
