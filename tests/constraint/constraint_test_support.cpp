// SPDX-License-Identifier: Apache-2.0
#include "constraint/constraint_test_support.h"

#include <algorithm>
#include <limits>

namespace tavdb_test {

namespace {

template <typename T>
Bytes packNumber(int32_t number) {
    return bytesOf(static_cast<T>(number));
}

template <typename T>
Bytes lowestOf() {
    return bytesOf(std::numeric_limits<T>::lowest());
}

template <typename T>
Bytes highestOf() {
    return bytesOf(std::numeric_limits<T>::max());
}

#define TAVDB_TEST_TYPE(suffix, code, type, width, recordBytes)                                     \
    {                                                                                               \
#suffix, code, width, recordBytes, packNumber < type>, lowestOf < type>, highestOf < type>, \
            range##suffix##_new, range##suffix##_get, range##suffix##_set, range##suffix##_getData, \
            range##suffix##_setData, checkRange##suffix, checkEnum##suffix                          \
    }

}  // namespace

const std::vector<TypeRow> &typeRows() {
    static const std::vector<TypeRow> rows = {
        TAVDB_TEST_TYPE(S8, 2, int8_t, 1, 12),    TAVDB_TEST_TYPE(S16, 3, int16_t, 2, 16),
        TAVDB_TEST_TYPE(S32, 4, int32_t, 4, 20),  TAVDB_TEST_TYPE(S64, 5, int64_t, 8, 32),
        TAVDB_TEST_TYPE(U8, 6, uint8_t, 1, 12),   TAVDB_TEST_TYPE(U16, 7, uint16_t, 2, 16),
        TAVDB_TEST_TYPE(U32, 8, uint32_t, 4, 20), TAVDB_TEST_TYPE(U64, 9, uint64_t, 8, 32),
        TAVDB_TEST_TYPE(F32, 10, float, 4, 20),   TAVDB_TEST_TYPE(F64, 11, double, 8, 32),
    };
    return rows;
}
#undef TAVDB_TEST_TYPE

const TypeRow &typeRow(const std::string &name) {
    const auto &rows = typeRows();
    return *std::find_if(rows.begin(), rows.end(), [&](const TypeRow &row) { return row.name == name; });
}

void PrintTo(const TypeRow &row, std::ostream *stream) {
    *stream << row.name;
}

std::string nameOfType(const testing::TestParamInfo<TypeRow> &info) {
    return info.param.name;
}

int32_t rangeSite(const TypeRow &row, RangeSite function) {
    return 100 * row.code + function;
}

int32_t checkRangeSite(const TypeRow &row, int32_t code) {
    return 100 + 20 * row.code + code - TAVDB_ERR_VALUE_TYPE;
}

int32_t checkEnumSite(const TypeRow &row, int32_t code) {
    return 110 + 20 * row.code + (code == TAVDB_ERR_NOT_ENUMERATED ? 2 : code - TAVDB_ERR_VALUE_TYPE);
}

Bytes joined(std::initializer_list<Bytes> parts) {
    Bytes all;
    for (const Bytes &part : parts)
        all.insert(all.end(), part.begin(), part.end());
    return all;
}

Bytes RangeOnMedium::bytes() const {
    Bytes record = joined({bytesOf(key, type.code), data()});
    record.resize(static_cast<size_t>(type.recordBytes));
    return record;
}

RangeOnMedium ConstraintTest::putRange(const TypeRow &type, int32_t minimum, int32_t maximum, int32_t step) {
    return putRange(type, type.pack(minimum), type.pack(maximum), type.pack(step));
}

RangeOnMedium ConstraintTest::putRange(const TypeRow &type, Bytes minimum, Bytes maximum, Bytes step) {
    const RangeOnMedium range = {type, std::move(minimum), std::move(maximum), std::move(step), kKey};
    put(kKey, range.bytes());
    return range;
}

void ConstraintTest::putEnumeration(const TypeRow &type, const Bytes &elements) {
    putEnumeration(type, type.width, static_cast<int32_t>(elements.size()) / type.width, elements);
}

void ConstraintTest::putEnumeration(const TypeRow &type, int32_t elementSize, int32_t elementCount,
                                    const Bytes &elements) {
    put(kKey, bytesOf(kKey, type.enumerationCode(), kArrayKey, elementSize, elementCount));
    put(kArrayKey, elements);
}

void ConstraintTest::observe() {
    before_ = fakeMedia().snapshotAll();
    errorBefore_ = session.errorCode;
    detailBefore_ = session.errorDetail;
    fakeTrace().clear();
    eventLog().clear();
}

testing::AssertionResult ConstraintTest::mediaUnchanged() const {
    const std::vector<std::string> changes = fakeMedia().changesSince(before_);
    if (changes.empty())
        return testing::AssertionSuccess();
    return testing::AssertionFailure() << "the media changed: " << testing::PrintToString(changes);
}

testing::AssertionResult ConstraintTest::failed(const tavDBMSession &session, int32_t code, uint32_t detail,
                                                const std::vector<std::string> &lines) {
    if (session.errorCode != static_cast<uint32_t>(code) || session.errorDetail != detail)
        return testing::AssertionFailure() << "the session has " << session.errorCode << " (" << session.errorDetail
                                           << "), expected " << code << " (" << detail << ")\n"
                                           << eventLog().text();
    return fakeTrace().errorsAre(lines);
}

testing::AssertionResult ConstraintTest::silent() const {
    if (session.errorCode != errorBefore_ || session.errorDetail != detailBefore_)
        return testing::AssertionFailure()
               << "the session's error became " << session.errorCode << " (" << session.errorDetail << ")\n"
               << eventLog().text();
    return fakeTrace().noErrors();
}

tavDBMSession ConstraintTest::sessionElsewhere() const {
    tavDBMSession other = session;
    other.dbId = 30;
    return other;
}

tavDBMSession ConstraintTest::sessionWithoutMedium() {
    tavDBMDescription other = description;
    other.constraintMedia = 9;
    const int32_t dbId = attach(other);
    EXPECT_GT(dbId, 0) << "attaching failed with " << attachError;
    tavDBMSession session2 = session;
    session2.dbId = static_cast<uint32_t>(dbId);
    return session2;
}

int32_t CheckTest::check(const TypeRow &type, int32_t valueType, const void *value, int32_t length) {
    const TypeRow::Check call = kind_ == Kind::range ? type.checkRange : type.checkEnum;
    return call(&session, kKey, valueType, value, length);
}

int32_t CheckTest::check(const TypeRow &type, const Bytes &value) {
    return check(type, type.code, value.data(), static_cast<int32_t>(value.size()));
}

testing::AssertionResult CheckTest::accepts(const TypeRow &type, const Bytes &value) {
    session_setError(&session, kStaleError, 5);
    observe();
    const int32_t result = check(type, value);
    if (result != 0)
        return testing::AssertionFailure() << hexText(value) << " gave " << result;
    return silent() ? mediaUnchanged() : silent();
}

testing::AssertionResult CheckTest::refuses(const TypeRow &type, const Bytes &value, int32_t code) {
    return refuses(type, type.code, value.data(), static_cast<int32_t>(value.size()), code);
}

testing::AssertionResult CheckTest::refuses(const TypeRow &type, int32_t valueType, const void *value, int32_t length,
                                            int32_t code) {
    observe();
    const int32_t result = check(type, valueType, value, length);
    if (result != code)
        return testing::AssertionFailure() << "the result was " << result << " and not " << code;
    const bool isRange = kind_ == Kind::range;
    const std::string function = isRange ? type.checkRangeFunction() : type.checkEnumFunction();
    const int32_t site = isRange ? checkRangeSite(type, code) : checkEnumSite(type, code);
    const testing::AssertionResult recorded = failedWith(
        code, 0,
        errorLine(
            function, site,
            {kKey, static_cast<uint32_t>(valueType), static_cast<uint32_t>(length), static_cast<uint32_t>(code)}));
    return recorded ? mediaUnchanged() : recorded;
}

}  // namespace tavdb_test
