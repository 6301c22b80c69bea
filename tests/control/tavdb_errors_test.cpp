// SPDX-License-Identifier: Apache-2.0
// The result codes: applications are built against their numbers, so each one
// stands here once more by hand.
#include "tavdb_errors.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace {

struct Listed {
    int code;
    std::string name;
    std::string sentence;
    std::string action;
};

std::vector<Listed> listed() {
#define TAVDB_TEST_ROW(code, name, sentence, action) {code, #name, sentence, action},
    return {TAVDB_ERROR_LIST(TAVDB_TEST_ROW)};
#undef TAVDB_TEST_ROW
}

TEST(ErrorCodes, AreTheseNumbers) {
    std::vector<int> codes;
    for (const Listed &row : listed())
        codes.push_back(row.code);
    EXPECT_THAT(codes, testing::ElementsAre(1, 2, 3, 4, 5, 7, 8, 9, 10, 12, 13, 14, 15, 16, 17, 18, 19, 20, 21, 22, 23,
                                            24, 26, 38, 39, 40, 41, 44, 45, 46, 49, 50, 51, 53, 54, 55, 59, 60, 61, 62,
                                            64, 65, 66, 67, 68, 69, 70, 71, 72, 73, 74, 75, 76, 77, 78, 79, 80, 81, 82,
                                            83, 84, 85, 86, 87, 88, 89, 95, 100));
}

TEST(ErrorCodes, HaveASentenceAndAnAction) {
    for (const Listed &row : listed()) {
        EXPECT_GT(row.sentence.size(), 10U) << row.name;
        EXPECT_GT(row.action.size(), 10U) << row.name;
    }
}

struct Named {
    int constant;
    int code;
    const char *name;
};

class ErrorCode : public testing::TestWithParam<Named> {};

TEST_P(ErrorCode, HasItsNumber) {
    EXPECT_EQ(GetParam().constant, GetParam().code);
}

INSTANTIATE_TEST_SUITE_P(
    Control, ErrorCode,
    testing::Values(Named{TAVDB_OK, 0, "Success"}, Named{TAVDB_ERR_LOCK_FILE, 74, "LockFile"},
                    Named{TAVDB_ERR_SESSION_FILE, 79, "SessionFile"},
                    Named{TAVDB_ERR_SESSIONS_FULL, 80, "SessionsFull"}, Named{TAVDB_ERR_NO_SESSION, 81, "NoSession"},
                    Named{TAVDB_ERR_CONTROL_FILE, 82, "ControlFile"}, Named{TAVDB_ERR_NOT_OPEN, 83, "NotOpen"},
                    Named{TAVDB_ERR_DATABASES_FULL, 84, "DatabasesFull"},
                    Named{TAVDB_ERR_DATABASE_ID, 85, "DatabaseId"}, Named{TAVDB_ERR_MEMORY, 86, "Memory"},
                    Named{TAVDB_ERR_MAP, 87, "Map"}, Named{TAVDB_ERR_UNMAP, 88, "Unmap"},
                    Named{TAVDB_ERR_NULL_ARGUMENT, 89, "NullArgument"},
                    Named{TAVDB_ERR_CONTROL_MUTEX, 95, "ControlMutex"}, Named{TAVDB_ERR_NO_MATCH, 100, "NoMatch"}),
    [](const auto &row) { return std::string(row.param.name); });

}  // namespace
