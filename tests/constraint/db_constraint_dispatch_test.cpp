// SPDX-License-Identifier: Apache-2.0
// From a stored type code to the functions of that type, for each of the twenty
// codes: length, data out, data in.
#include "constraint/constraint_test_support.h"

namespace tavdb_test {
namespace {

using testing::ElementsAre;

class ConstraintDispatchTest : public TypedConstraintTest {
protected:
    const TypeRow &type() const {
        return GetParam();
    }
    Bytes three(int32_t a, int32_t b, int32_t c) const {
        return joined({type().pack(a), type().pack(b), type().pack(c)});
    }
    uint32_t width() const {
        return static_cast<uint32_t>(type().width);
    }
};

INSTANTIATE_TEST_SUITE_P(Types, ConstraintDispatchTest, testing::ValuesIn(typeRows()), nameOfType);

TEST_P(ConstraintDispatchTest, TheTypeCodesAreTheStatedOnes) {
    constexpr int32_t kEnumerationCodes[] = {512, 768, 1024, 1280, 1536, 1792, 2048, 2304, 2560, 2816};
    putRange(type(), 10, 20, 5);
    EXPECT_EQ(constraint_getType(&session, kKey), type().code);
    putEnumeration(type(), three(1, 2, 3));
    EXPECT_EQ(constraint_getType(&session, kKey), kEnumerationCodes[type().code - 2]);
}

TEST_P(ConstraintDispatchTest, TheLengthOfARangeIsThreeWidthsFromTheHeaderAlone) {
    putHeader(type().code);
    observe();
    EXPECT_EQ(constraint_getLength(&session, kKey), type().dataBytes());
    EXPECT_THAT(mediumLines(), ElementsAre("open constraint.med", "read 8@1000", "close"));
    EXPECT_TRUE(silent());
}

TEST_P(ConstraintDispatchTest, TheLengthOfAnEnumerationIsItsElementsBytes) {
    putEnumeration(type(), three(1, 2, 3));
    observe();
    EXPECT_EQ(constraint_getLength(&session, kKey), type().dataBytes());
    EXPECT_THAT(mediumLines(), ElementsAre("open constraint.med", "read 8@1000", "close", "open constraint.med",
                                           "read 20@1000", "close"));
    EXPECT_TRUE(silent());
}

TEST_P(ConstraintDispatchTest, DataOfARangeComeOutThroughTheTypesOwnGetter) {
    putRange(type(), 10, 20, 5);
    Bytes buffer(static_cast<size_t>(type().dataBytes()));
    EXPECT_EQ(constraint_getData(&session, kKey, buffer.data(), type().dataBytes()), 0);
    EXPECT_EQ(hexText(buffer), hexText(three(10, 20, 5)));
}

TEST_P(ConstraintDispatchTest, DataOfARangeOneByteTooLongForTheBufferFailWith72) {
    putRange(type(), 10, 20, 5);
    Bytes buffer(static_cast<size_t>(type().dataBytes()), 0xEE);
    observe();
    EXPECT_EQ(constraint_getData(&session, kKey, buffer.data(), type().dataBytes() - 1), 72);
    EXPECT_TRUE(failedWith(72, 0,
                           errorLine(type().rangeFunction("getData"), rangeSite(type(), kGetDataSite),
                                     {kKey, 3 * width() - 1, 3 * width()})));
    EXPECT_EQ(buffer, Bytes(buffer.size(), 0xEE));
}

TEST_P(ConstraintDispatchTest, DataOfARangeGoInThroughTheTypesOwnSetter) {
    const RangeOnMedium stored = putRange(type(), 10, 20, 5);
    const Bytes data = three(1, 100, 3);
    EXPECT_EQ(constraint_setData(&session, kKey, data.data(), type().dataBytes()), 0);
    EXPECT_EQ(mediumText(kKey, type().recordBytes),
              hexText(RangeOnMedium{type(), type().pack(1), type().pack(100), type().pack(3), stored.key}.bytes()));
}

TEST_P(ConstraintDispatchTest, DataForARangeOneByteTooLongFailWith65) {
    putRange(type(), 10, 20, 5);
    const Bytes data(static_cast<size_t>(type().dataBytes()) + 1);
    observe();
    EXPECT_EQ(constraint_setData(&session, kKey, data.data(), type().dataBytes() + 1), 65);
    EXPECT_TRUE(failedWith(65, 0,
                           errorLine(type().rangeFunction("setData"), rangeSite(type(), kSetDataSite),
                                     {kKey, 3 * width() + 1, 3 * width()})));
    EXPECT_TRUE(mediaUnchanged());
}

TEST_P(ConstraintDispatchTest, ElementsComeOutIntoABufferOfExactlyTheirLength) {
    putEnumeration(type(), three(7, 8, 9));
    Bytes buffer(static_cast<size_t>(type().dataBytes()) + 1, 0xEE);
    EXPECT_EQ(constraint_getData(&session, kKey, buffer.data(), type().dataBytes()), 0);
    EXPECT_EQ(hexText(buffer), hexText(three(7, 8, 9)) + " ee");
}

TEST_P(ConstraintDispatchTest, ElementsOneByteTooLongForTheBufferFailWith72) {
    putEnumeration(type(), three(7, 8, 9));
    Bytes buffer(static_cast<size_t>(type().dataBytes()), 0xEE);
    observe();
    EXPECT_EQ(constraint_getData(&session, kKey, buffer.data(), type().dataBytes() - 1), 72);
    EXPECT_TRUE(failedWith(72, 0, errorLine("constraint_getData", 141, {kKey, 3 * width() - 1, 3 * width()})));
    EXPECT_EQ(buffer, Bytes(buffer.size(), 0xEE));
}

TEST_P(ConstraintDispatchTest, ElementsGoInAsManyAsAreWholeInTheTypesWidth) {
    putEnumeration(type(), three(7, 8, 9));
    const Bytes data = three(1, 2, 3);
    const int32_t length = type().dataBytes() - 1;  // the last element is not whole, unless it is a single byte
    EXPECT_EQ(constraint_setData(&session, kKey, data.data(), length), 0);
    EXPECT_EQ(mediumText(kArrayKey, type().dataBytes()), hexText(three(1, 2, 9)));
}

TEST_P(ConstraintDispatchTest, ElementsGoInByTheTypesWidthWhateverSizeTheRecordHas) {
    putEnumeration(type(), 24, 1, Bytes(24, 0xEE));
    const Bytes data = three(1, 2, 3);
    observe();
    EXPECT_EQ(constraint_setData(&session, kKey, data.data(), type().dataBytes()), 0);
    EXPECT_EQ(mediumText(kArrayKey, type().dataBytes()), hexText(three(1, 2, 3)));
    EXPECT_EQ(eventLog().count(Operation::mediaWrite), 1U);
}

}  // namespace
}  // namespace tavdb_test
