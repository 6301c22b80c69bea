// SPDX-License-Identifier: Apache-2.0
// What the tests of constraints share: the ten value types as one table, records
// laid onto the medium by their bytes and not by the functions under test, and
// the look at a failure from all its sides. What a constraint means is in the
// tests themselves.
#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdint>
#include <ostream>
#include <string>
#include <vector>

#include "fakes/byte_text.h"
#include "fakes/database_fixture.h"
#include "fakes/event_log.h"
#include "fakes/fake_media.h"
#include "fakes/fake_trace.h"
#include "fakes/fault_plan.h"
#include "tavdb_modules.h"

namespace tavdb_test {

inline constexpr char kMedium[] = "constraint.med";

/// One value type, and everything that exists for it.
struct TypeRow {
    using Check = int32_t (*)(tavDBMSession *session, uint32_t key, int32_t valueType, const void *value,
                              int32_t length);

    const char *name;
    int32_t code;
    int32_t width;
    int32_t recordBytes;  ///< of its range, padding included
    Bytes (*pack)(int32_t number);
    Bytes (*lowest)();
    Bytes (*highest)();
    void *(*create)(tavDBMSession *session, void *record);
    void *(*get)(tavDBMSession *session, uint32_t key, void *buffer);
    int32_t (*set)(tavDBMSession *session, const void *record);
    int32_t (*getData)(tavDBMSession *session, uint32_t key, void *buffer, int32_t bufferLength);
    int32_t (*setData)(tavDBMSession *session, uint32_t key, const void *data, int32_t length);
    Check checkRange;
    Check checkEnum;

    int32_t dataBytes() const {
        return 3 * width;
    }
    int32_t enumerationCode() const {
        return code * 256;
    }
    std::string rangeFunction(const std::string &verb) const {
        return "range" + std::string(name) + '_' + verb;
    }
    std::string checkRangeFunction() const {
        return "checkRange" + std::string(name);
    }
    std::string checkEnumFunction() const {
        return "checkEnum" + std::string(name);
    }
};

/// All ten, in the order of their codes.
const std::vector<TypeRow> &typeRows();
const TypeRow &typeRow(const std::string &name);
void PrintTo(const TypeRow &row, std::ostream *stream);
std::string nameOfType(const testing::TestParamInfo<TypeRow> &info);

/// The row of a C type, for cases with numbers that not every type has.
template <typename T>
const TypeRow &typeRowOf();

// clang-format off
template <> inline const TypeRow &typeRowOf<int8_t>()   { return typeRow("S8"); }
template <> inline const TypeRow &typeRowOf<int16_t>()  { return typeRow("S16"); }
template <> inline const TypeRow &typeRowOf<int32_t>()  { return typeRow("S32"); }
template <> inline const TypeRow &typeRowOf<int64_t>()  { return typeRow("S64"); }
template <> inline const TypeRow &typeRowOf<uint8_t>()  { return typeRow("U8"); }
template <> inline const TypeRow &typeRowOf<uint16_t>() { return typeRow("U16"); }
template <> inline const TypeRow &typeRowOf<uint32_t>() { return typeRow("U32"); }
template <> inline const TypeRow &typeRowOf<uint64_t>() { return typeRow("U64"); }
template <> inline const TypeRow &typeRowOf<float>()    { return typeRow("F32"); }
template <> inline const TypeRow &typeRowOf<double>()   { return typeRow("F64"); }
// clang-format on

/// @name Trace sites. They name their places for good, whatever moves in the library.
/// @{
/// First site of a function of the range family; each type has a hundred.
enum RangeSite : int32_t { kNewSite = 0, kGetSite = 20, kSetSite = 30, kGetDataSite = 40, kSetDataSite = 50 };
/// The steps of an access, counted from a function's first site.
enum StepSite : int32_t {
    kNoDatabaseStep = 0,
    kNotOpenedStep = 3,
    kTransferStep = 4,
    kNoSlotStep = 6,
    kNoBufferStep = 7
};
int32_t rangeSite(const TypeRow &row, RangeSite function);
/// Of a check, by the code that refuses: 64 to 68 of a range, 64, 65 and 71 of an enumeration.
int32_t checkRangeSite(const TypeRow &row, int32_t code);
int32_t checkEnumSite(const TypeRow &row, int32_t code);
/// @}

/// The bytes one after another.
Bytes joined(std::initializer_list<Bytes> parts);

/// A range as it lies on the medium: header, three values, padding of zeros.
struct RangeOnMedium {
    const TypeRow &type;
    Bytes minimum;
    Bytes maximum;
    Bytes step;
    uint32_t key;

    Bytes data() const {
        return joined({minimum, maximum, step});
    }
    Bytes bytes() const;
};

class ConstraintTest : public OpenDatabaseFixture {
protected:
    /// @name Places on the medium; what lies there belongs to the free block, so nothing else is in the way
    /// @{
    static constexpr uint32_t kKey = 1000;
    static constexpr uint32_t kArrayKey = 2000;
    /// The first slot that a fresh medium gives.
    static constexpr uint32_t kFirstSlot = 16;
    /// @}
    static constexpr int32_t kStaleError = 33;  ///< a code that nothing here records
    static constexpr uint32_t kErrno = 77;      ///< what errno stood at before, where a detail is errno

    void put(uint32_t offset, const Bytes &bytes) {
        fakeMedia().setBytesAt(kMedium, offset, bytes);
    }
    void putHeader(int32_t type) {
        put(kKey, bytesOf(kKey, type));
    }
    /// A range of small numbers, or of the type's own bytes.
    RangeOnMedium putRange(const TypeRow &type, int32_t minimum, int32_t maximum, int32_t step);
    RangeOnMedium putRange(const TypeRow &type, Bytes minimum, Bytes maximum, Bytes step);
    /// Record and elements; size and count as they follow from the type, or as told.
    void putEnumeration(const TypeRow &type, const Bytes &elements);
    void putEnumeration(const TypeRow &type, int32_t elementSize, int32_t elementCount, const Bytes &elements);

    std::string mediumText(uint32_t offset, int32_t length) const {
        return hexText(fakeMedia().bytesAt(kMedium, offset, static_cast<size_t>(length)));
    }

    /// From here on: errors of the session, trace, log and changes of the media.
    void observe();
    testing::AssertionResult mediaUnchanged() const;
    /// Session code and detail, and the lines of level 0.
    static testing::AssertionResult failed(const tavDBMSession &session, int32_t code, uint32_t detail,
                                           const std::vector<std::string> &lines);
    testing::AssertionResult failedWith(int32_t code, uint32_t detail, const std::string &line) const {
        return failed(session, code, detail, {line});
    }
    /// No line of level 0, and the session's error stands as it stood.
    testing::AssertionResult silent() const;
    static std::vector<std::string> mediumLines() {
        return eventLog().lines(Category::media);
    }

    /// A session of a database that is not open.
    tavDBMSession sessionElsewhere() const;
    /// A session of a second database, whose constraint medium is not in the configuration.
    tavDBMSession sessionWithoutMedium();

private:
    MediaImage before_;
    uint32_t errorBefore_ = 0;
    uint32_t detailBefore_ = 0;
};

/// Values against the constraint at kKey, through the check of one type and one kind.
class CheckTest : public ConstraintTest {
protected:
    enum class Kind : uint8_t { range, enumeration };
    explicit CheckTest(Kind kind) : kind_(kind) {}

    int32_t check(const TypeRow &type, int32_t valueType, const void *value, int32_t length);
    int32_t check(const TypeRow &type, const Bytes &value);
    /// 0 is returned, nothing recorded, nothing traced, nothing written.
    testing::AssertionResult accepts(const TypeRow &type, const Bytes &value);
    /// The code is returned, recorded with detail 0 and traced once; nothing is written.
    testing::AssertionResult refuses(const TypeRow &type, const Bytes &value, int32_t code);
    testing::AssertionResult refuses(const TypeRow &type, int32_t valueType, const void *value, int32_t length,
                                     int32_t code);

private:
    Kind kind_;
};

/// The same for each of the ten types.
class TypedConstraintTest : public ConstraintTest, public testing::WithParamInterface<TypeRow> {};

}  // namespace tavdb_test
