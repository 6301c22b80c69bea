// SPDX-License-Identifier: Apache-2.0
// What every function that reaches a constraint has in common: the database must
// be open, its constraint medium known and willing to open; nothing is cached.
// What the functions do beyond that is tested with each of them.
#include <cerrno>
#include <functional>

#include "constraint/constraint_test_support.h"
#include "tavdb_platform.h"

namespace tavdb_test {
namespace {

using testing::IsEmpty;

constexpr uint32_t kPlace = 1000;
constexpr uint32_t kArrayPlace = 2000;

/// How a function says that its first access failed.
enum class Says : uint8_t { nothing, minusOne, theCode };

/// One function, called with sound arguments.
struct Access {
    std::string name;
    Says says;
    std::string traced;  ///< the function that accesses the medium
    int32_t site;
    uint32_t key;  ///< in the trace
    std::function<int64_t(tavDBMSession *session)> call;
    bool alsoTraces = false;  ///< a line of its own behind the access's
};

int64_t given(const void *pointer) {
    return pointer != nullptr ? 1 : 0;
}

/// An array that is read belongs to the caller.
int64_t freed(void *elements) {
    if (elements != nullptr)
        tavOSWOrgFreeMemPart(0, elements);
    return given(elements);
}

std::vector<Access> headerAccesses() {
    static uint8_t room[32];
    static const tavDBMConstraint header = {kPlace, 4};
    const auto read = [](const char *name, Says says, auto call) {
        return Access{name, says, "constraint_get", 120, kPlace, call};
    };
    return {
        {"new", Says::nothing, "constraint_new", 100, 0,
         [](tavDBMSession *s) {
             uint32_t key = 0;
             return given(constraint_new(s, &key));
         }},
        {"set", Says::theCode, "constraint_set", 110, kPlace,
         [](tavDBMSession *s) { return int64_t{constraint_set(s, &header)}; }},
        read("get", Says::nothing, [](tavDBMSession *s) { return given(constraint_get(s, kPlace, room)); }),
        read("getType", Says::nothing, [](tavDBMSession *s) { return int64_t{constraint_getType(s, kPlace)}; }),
        read("getLength", Says::nothing, [](tavDBMSession *s) { return int64_t{constraint_getLength(s, kPlace)}; }),
        read("getData", Says::theCode,
             [](tavDBMSession *s) { return int64_t{constraint_getData(s, kPlace, room, sizeof room)}; }),
        read("setData", Says::theCode,
             [](tavDBMSession *s) { return int64_t{constraint_setData(s, kPlace, room, 12)}; }),
        // deliberate: what cannot be read refuses nothing
        read("check", Says::nothing, [](tavDBMSession *s) { return int64_t{constraint_check(s, kPlace, 4, room, 4)}; }),
    };
}

std::vector<Access> enumerationAccesses() {
    static uint8_t room[32];
    static tavDBMEnumeration record = {kPlace, 1024, kArrayPlace, 4, 2};
    return {
        {"newEnumArray", Says::minusOne, "constraint_newEnumArray", 100, 0,
         [](tavDBMSession *s) { return int64_t{static_cast<int32_t>(constraint_newEnumArray(s, 4, 2))}; }},
        {"setEnumArray", Says::theCode, "constraint_setEnumArray", 120, kArrayPlace,
         [](tavDBMSession *s) { return int64_t{constraint_setEnumArray(s, kArrayPlace, 4, 2, room)}; }},
        {"getEnumArray", Says::nothing, "constraint_getEnumArray", 130, kArrayPlace,
         [](tavDBMSession *s) { return freed(constraint_getEnumArray(s, kArrayPlace, 4, 2)); }},
        {"enum_new", Says::nothing, "enum_new", 150, 0, [](tavDBMSession *s) { return given(enum_new(s, &record)); }},
        {"enum_get", Says::nothing, "enum_get", 160, kPlace,
         [](tavDBMSession *s) { return given(enum_get(s, kPlace, room)); }},
        {"enum_set", Says::theCode, "enum_set", 170, kPlace,
         [](tavDBMSession *s) { return int64_t{enum_set(s, &record)}; }},
        {"enum_setData", Says::nothing, "enum_get", 160, kPlace,
         [](tavDBMSession *s) { return int64_t{enum_setData(s, kPlace, 4, 2, room)}; }, true},
    };
}

std::vector<Access> typedAccesses(const TypeRow &row) {
    static uint8_t room[32];
    static uint32_t record[8] = {kPlace};
    const std::string name = row.name;
    const auto range = [&](const char *verb, Says says, RangeSite site, uint32_t key, auto call) {
        return Access{"range" + name + verb, says, row.rangeFunction(verb), rangeSite(row, site), key, call};
    };
    const auto reader = [&](const std::string &function, auto call) {
        return Access{function, Says::theCode, row.rangeFunction("get"), rangeSite(row, kGetSite), kPlace, call};
    };
    return {
        range("new", Says::nothing, kNewSite, 0, [row](tavDBMSession *s) { return given(row.create(s, record)); }),
        range("get", Says::nothing, kGetSite, kPlace,
              [row](tavDBMSession *s) { return given(row.get(s, kPlace, room)); }),
        range("set", Says::theCode, kSetSite, kPlace, [row](tavDBMSession *s) { return int64_t{row.set(s, record)}; }),
        reader("range" + name + "getData",
               [row](tavDBMSession *s) { return int64_t{row.getData(s, kPlace, room, row.dataBytes())}; }),
        reader("range" + name + "setData",
               [row](tavDBMSession *s) { return int64_t{row.setData(s, kPlace, room, row.dataBytes())}; }),
        reader("checkRange" + name,
               [row](tavDBMSession *s) { return int64_t{row.checkRange(s, kPlace, row.code, room, row.width)}; }),
        {"checkEnum" + name, Says::theCode, "enum_get", 160, kPlace,
         [row](tavDBMSession *s) { return int64_t{row.checkEnum(s, kPlace, row.code, room, row.width)}; }},
    };
}

/// Functions that are looked at together.
struct AccessGroup {
    std::string name;
    std::vector<Access> accesses;
};

void PrintTo(const AccessGroup &group, std::ostream *stream) {
    *stream << group.name;
}

std::string nameOfGroup(const testing::TestParamInfo<AccessGroup> &info) {
    return info.param.name;
}

std::vector<AccessGroup> accessGroups() {
    std::vector<AccessGroup> groups = {{"AnyConstraint", headerAccesses()}, {"Enumerations", enumerationAccesses()}};
    for (const TypeRow &row : typeRows())
        groups.push_back({row.name, typedAccesses(row)});
    return groups;
}

class ConstraintAccessTest : public ConstraintTest, public testing::WithParamInterface<AccessGroup> {
protected:
    /// One failure of the first access: what it records, and the fields of its line behind the key.
    struct Failure {
        int32_t code;
        uint32_t detail;
        StepSite step;
        std::vector<uint32_t> fields;
    };

    /// The result and the lines of each function of the group, called with that session.
    void expectEach(tavDBMSession *caller, const Failure &failure, const std::vector<std::string> &mediumSteps) {
        for (const Access &access : GetParam().accesses)
            expectOne(access, caller, failure.code, ownLine(access, failure), failure.detail, mediumSteps);
    }
    void expectOne(const Access &access, tavDBMSession *caller, int32_t code, const std::string &line, uint32_t detail,
                   const std::vector<std::string> &mediumSteps) {
        SCOPED_TRACE(access.name);
        observe();
        errno = kErrno;
        EXPECT_EQ(access.call(caller), resultFor(access, code));
        std::vector<std::string> lines = {line};
        if (access.alsoTraces)
            lines.push_back(errorLine("enum_setData", 180, {kPlace, static_cast<uint32_t>(code)}));
        EXPECT_TRUE(caller != nullptr ? failed(*caller, code, detail, lines) : fakeTrace().errorsAre(lines));
        EXPECT_EQ(mediumLines(), mediumSteps);
        EXPECT_TRUE(mediaUnchanged());
    }

private:
    static int64_t resultFor(const Access &access, int32_t code) {
        if (access.says == Says::theCode)
            return code;
        return access.says == Says::minusOne ? -1 : 0;
    }
    static std::string ownLine(const Access &access, const Failure &failure) {
        std::string line = errorLine(access.traced, access.site + failure.step, {access.key});
        line.pop_back();
        for (const uint32_t field : failure.fields) {
            const std::string word = dumpLine(field, "");
            line += word.substr(0, word.find(':'));
        }
        return line + '\n';
    }
};

INSTANTIATE_TEST_SUITE_P(Functions, ConstraintAccessTest, testing::ValuesIn(accessGroups()), nameOfGroup);

TEST_P(ConstraintAccessTest, ADatabaseThatIsNotOpenFailsWith83WithoutAnAccess) {
    tavDBMSession other = sessionElsewhere();
    expectEach(&other, {83, 0, kNoDatabaseStep, {30}}, {});
}

TEST_P(ConstraintAccessTest, WithoutASessionNothingIsReachedAndNothingCrashes) {
    expectEach(nullptr, {83, 0, kNoDatabaseStep, {0}}, {});
}

TEST_P(ConstraintAccessTest, AnUnknownMediumFailsWith21WithoutAnAccess) {
    tavDBMSession other = sessionWithoutMedium();
    for (const Access &access : GetParam().accesses)
        expectOne(access, &other, 21, errorLine("getMedia", 240, {9}), 0, {});
}

TEST_P(ConstraintAccessTest, AMediumThatDoesNotOpenFailsWith59AndItsErrorWord) {
    faultPlan().add({.operation = Operation::mediaOpen, .times = kForEver, .fault = returning(-1, ENXIO)});
    expectEach(&session, {59, ENXIO, kNotOpenedStep, {0xFFFFFFFF, ENXIO}}, {"open constraint.med -> -1 ENXIO"});
}

TEST_P(ConstraintAccessTest, AnyNegativeDescriptorIsAMediumThatDoesNotOpen) {
    faultPlan().add({.operation = Operation::mediaOpen, .times = kForEver, .fault = returning(-9)});
    expectEach(&session, {59, 0, kNotOpenedStep, {static_cast<uint32_t>(-9), 0}}, {"open constraint.med -> -9"});
}

TEST_F(ConstraintTest, ANegativeMediumIdFailsWith59LikeAMediumThatDoesNotOpen) {
    tavDBMDescription other = description;
    other.constraintMedia = 0xFFFFFFFF;
    const int32_t dbId = attach(other);
    ASSERT_GT(dbId, 0);
    tavDBMSession elsewhere = session;
    elsewhere.dbId = static_cast<uint32_t>(dbId);
    uint8_t buffer[8];
    observe();
    EXPECT_EQ(constraint_get(&elsewhere, kKey, buffer), nullptr);
    EXPECT_EQ(elsewhere.errorCode, 59U);
    EXPECT_THAT(mediumLines(), IsEmpty());
}

TEST_F(ConstraintTest, NothingIsCachedBetweenTwoReads) {
    putRange(typeRow("S32"), 10, 20, 5);
    EXPECT_EQ(constraint_getType(&session, kKey), 4);
    putHeader(1024);
    EXPECT_EQ(constraint_getType(&session, kKey), 1024);
}

}  // namespace
}  // namespace tavdb_test
