// SPDX-License-Identifier: Apache-2.0
// Every code of the library and the error numbers of the system as faults: a
// sentence each, and the kind that decides the exit code.
#include "image/fault.h"

#include <gmock/gmock.h>

#include <cerrno>

#include "tavdb_errors.h"

namespace tavdb::image {
namespace {

TEST(Fault, EveryCodeHasASentence) {
#define TAVDB_CHECK(number, name, text, action)                            \
    EXPECT_EQ(faultOfCode(number, 0).code, static_cast<uint32_t>(number)); \
    EXPECT_THAT(faultOfCode(number, 0).sentence, testing::StartsWith(text));
    TAVDB_ERROR_LIST(TAVDB_CHECK)
#undef TAVDB_CHECK
    EXPECT_EQ(faultOfCode(98765, 0).sentence, "the library reports code 98765");
    EXPECT_EQ(faultOfCode(UINT32_MAX, 0).sentence, "a medium could not be closed");
    EXPECT_EQ(faultOfCode(UINT32_MAX, 0).kind, FaultKind::medium);
}

TEST(Fault, KindFollowsTheCode) {
    const std::pair<uint32_t, FaultKind> kinds[] = {
        {TAVDB_ERR_ABOVE_MAXIMUM, FaultKind::refused}, {TAVDB_ERR_NOT_ENUMERATED, FaultKind::refused},
        {TAVDB_ERR_LENGTH, FaultKind::refused},        {TAVDB_ERR_LOCKED, FaultKind::locked},
        {TAVDB_ERR_NO_MATCH, FaultKind::notFound},     {TAVDB_ERR_MEDIUM_WRITE, FaultKind::medium},
        {TAVDB_ERR_PRE_WRITE, FaultKind::hook},        {TAVDB_ERR_POST_READ, FaultKind::hook},
        {TAVDB_ERR_NO_COMPONENT, FaultKind::damaged},  {TAVDB_ERR_CHECK_CONSTRAINT, FaultKind::damaged},
        {TAVDB_ERR_DATABASES_FULL, FaultKind::failed},
    };
    for (const auto &[code, kind] : kinds)
        EXPECT_EQ(faultOfCode(code, EIO).kind, kind) << code;
}

TEST(Fault, DetailIsToldWhereItMeansSomething) {
    EXPECT_THAT(faultOfCode(TAVDB_ERR_MEDIUM_WRITE, ENOSPC).sentence, testing::EndsWith(": No space left on device"));
    EXPECT_EQ(faultOfCode(TAVDB_ERR_MEDIUM_WRITE, EROFS).kind, FaultKind::permission);
    EXPECT_THAT(faultOfCode(TAVDB_ERR_PRE_WRITE, static_cast<uint32_t>(-7)).sentence,
                testing::EndsWith(" with result -7"));
    // A read that came short without an error number lies behind the end of its medium.
    EXPECT_EQ(faultOfCode(TAVDB_ERR_MEDIUM_READ, 0).kind, FaultKind::damaged);
    EXPECT_EQ(faultOfCode(TAVDB_ERR_MEDIUM_READ, EIO).kind, FaultKind::medium);
    EXPECT_EQ(faultOfCode(0x1000 | EACCES, 0).sentence, "the system refused: Permission denied");
    EXPECT_EQ(faultOfCode(0x1000 | ETIMEDOUT, 0).kind, FaultKind::locked);
}

TEST(Fault, ErrorNumbersHaveTheirKind) {
    EXPECT_EQ(faultOfError(ENOENT, "x").kind, FaultKind::notFound);
    EXPECT_EQ(faultOfError(ENOTDIR, "x").kind, FaultKind::notFound);
    EXPECT_EQ(faultOfError(EACCES, "x").kind, FaultKind::permission);
    EXPECT_EQ(faultOfError(EISDIR, "x").kind, FaultKind::usage);
    EXPECT_EQ(faultOfError(EIO, "x").kind, FaultKind::medium);
    EXPECT_EQ(faultOfError(EIO, "cannot be read").sentence, "cannot be read: Input/output error");
    EXPECT_EQ(faultIn("a", faultOfError(EIO, "b")).sentence, "a: b: Input/output error");
}

}  // namespace
}  // namespace tavdb::image
