// SPDX-License-Identifier: Apache-2.0
// The typed reads and writes of all ten types, and those of texts: their width
// and nothing else is theirs; type checks are the constraint's, the frame is
// that of the generic functions.
#include <cmath>
#include <limits>

#include "model/tree_fixture.h"

namespace tavdb_test {
namespace {

template <typename T, int32_t Code, auto Get, auto Set>
struct Type {
    using Value = T;
    static constexpr int32_t code = Code;
    static constexpr auto get = Get;
    static constexpr auto set = Set;
};

using Types = testing::Types<Type<int8_t, TAVDB_TYPE_S8, tavDBMGetSint8, tavDBMSetSint8>,
                             Type<int16_t, TAVDB_TYPE_S16, tavDBMGetSint16, tavDBMSetSint16>,
                             Type<int32_t, TAVDB_TYPE_S32, tavDBMGetSint32, tavDBMSetSint32>,
                             Type<int64_t, TAVDB_TYPE_S64, tavDBMGetSint64, tavDBMSetSint64>,
                             Type<uint8_t, TAVDB_TYPE_U8, tavDBMGetUint8, tavDBMSetUint8>,
                             Type<uint16_t, TAVDB_TYPE_U16, tavDBMGetUint16, tavDBMSetUint16>,
                             Type<uint32_t, TAVDB_TYPE_U32, tavDBMGetUint32, tavDBMSetUint32>,
                             Type<uint64_t, TAVDB_TYPE_U64, tavDBMGetUint64, tavDBMSetUint64>,
                             Type<float, TAVDB_TYPE_F32, tavDBMGetFloat32, tavDBMSetFloat32>,
                             Type<double, TAVDB_TYPE_F64, tavDBMGetFloat64, tavDBMSetFloat64>>;

/// A number whose bytes all differ from those around it.
template <typename T>
T pattern() {
    const uint8_t bytes[8] = {0x41, 0x12, 0x23, 0x34, 0x45, 0x56, 0x67, 0x78};
    T value;
    memcpy(&value, bytes, sizeof value);
    return value;
}

template <typename T>
class TypedTest : public TreeFixture {
protected:
    static constexpr size_t kSize = sizeof(typename T::Value);

    void SetUp() override {
        TreeFixture::SetUp();
        valueKey = putValue(Bytes(kSize, 0x55), T::code);
        at = putLeaf("leaf", root, {.currentValue = valueKey});
    }
    /// Gives the leaf a value of another length.
    void setLength(size_t length) {
        valueKey = putValue(Bytes(length, 0x55), T::code);
        setKeys(at, {.currentValue = valueKey});
    }

    uint32_t valueKey = 0;
    uint32_t at = 0;
};

TYPED_TEST_SUITE(TypedTest, Types);

TYPED_TEST(TypedTest, WritesItsWidthInTheMachinesOwnOrder) {
    const auto value = pattern<typename TypeParam::Value>();
    EXPECT_EQ(TypeParam::set(&this->session, this->at, value), 0);
    EXPECT_EQ(this->dataOf(this->valueKey), bytesOf(value));
    EXPECT_EQ(eventLog().events(Category::media).at(7).length, static_cast<int64_t>(this->kSize));
}

TYPED_TEST(TypedTest, ReadsWhatWasWritten) {
    using Value = typename TypeParam::Value;
    for (const Value value : {pattern<Value>(), std::numeric_limits<Value>::lowest(), std::numeric_limits<Value>::max(),
                              Value{0}, static_cast<Value>(-1)}) {
        Value read = 99;
        ASSERT_EQ(TypeParam::set(&this->session, this->at, value), 0);
        EXPECT_EQ(TypeParam::get(&this->session, this->at, &read), 0);
        EXPECT_EQ(bytesOf(read), bytesOf(value));
    }
}

TYPED_TEST(TypedTest, AReadDiscardsTheCountThatCame) {
    this->setLength(0);
    auto value = pattern<typename TypeParam::Value>();
    EXPECT_EQ(TypeParam::get(&this->session, this->at, &value), 0);
    EXPECT_EQ(value, pattern<typename TypeParam::Value>()) << "nothing came, and nothing tells";
    EXPECT_TRUE(this->recorded(0, 0));
}

TYPED_TEST(TypedTest, AReadDiscardsTheLengthThatAHookLeaves) {
    fakeHooks().putReady(6);
    fakeHooks().onCall([](const HookCall &call) {
        *call.length = call.phase == HookPhase::postRead ? 12345 : *call.length;
        return 0;
    });
    this->setKeys(this->at, {.currentValue = this->valueKey, .hookId = 6});
    typename TypeParam::Value value{};
    EXPECT_EQ(TypeParam::get(&this->session, this->at, &value), 0);
    EXPECT_EQ(bytesOf(value), Bytes(this->kSize, 0x55));
}

TYPED_TEST(TypedTest, AWriteToALongerValueLeavesTheRest) {
    this->setLength(this->kSize + 2);
    const auto value = pattern<typename TypeParam::Value>();
    EXPECT_EQ(TypeParam::set(&this->session, this->at, value), 0);
    Bytes expected = bytesOf(value);
    expected.insert(expected.end(), {0x55, 0x55});
    EXPECT_EQ(this->dataOf(this->valueKey), expected);
}

TYPED_TEST(TypedTest, TheTypeOfAnUnconstrainedValueIsNotCompared) {
    fakeMedia().setWordAt(kValues, this->valueKey + offsetof(tavDBMValue, type), 4711);
    typename TypeParam::Value value{};
    EXPECT_EQ(TypeParam::set(&this->session, this->at, value), 0);
    EXPECT_EQ(TypeParam::get(&this->session, this->at, &value), 0);
}

TYPED_TEST(TypedTest, AConstraintComparesTypeAndLengthOfAWrite) {
    const tavDBMRangeS32 range = {.key = 0, .type = 0, .minimum = -5, .maximum = 5, .step = 0};
    fakeMedia().setWordAt(kValues, this->valueKey + offsetof(tavDBMValue, constraintKey), this->putRange(range));
    const int32_t expected = TypeParam::code == TAVDB_TYPE_S32 ? 0 : 64;
    EXPECT_EQ(TypeParam::set(&this->session, this->at, typename TypeParam::Value{1}), expected);
    EXPECT_EQ(this->session.errorCode, static_cast<uint32_t>(expected));
}

TYPED_TEST(TypedTest, OfANodeIsCode1AndTheNumberUntouched) {
    auto value = pattern<typename TypeParam::Value>();
    EXPECT_EQ(TypeParam::get(&this->session, this->root, &value), 1);
    EXPECT_EQ(value, pattern<typename TypeParam::Value>());
    EXPECT_EQ(TypeParam::set(&this->session, this->root, value), 1);
    EXPECT_TRUE(this->recorded(1, 0));
}

TYPED_TEST(TypedTest, WithoutARoomForTheNumberIsCode89) {
    EXPECT_EQ(TypeParam::get(&this->session, this->at, nullptr), 89);
    EXPECT_TRUE(this->recorded(89, 0));
}

TYPED_TEST(TypedTest, TheTypesOfANewValueAreReported) {
    EXPECT_EQ(tavDBMGetType(&this->session, this->at), TypeParam::code);
    EXPECT_EQ(tavDBMGetLength(&this->session, this->at), static_cast<int32_t>(this->kSize));
}

class FloatingPoint : public TreeFixture {};

TEST_F(FloatingPoint, ANumberThatIsNoneKeepsItsBits) {
    const uint32_t at = putLeaf("leaf", root, {.currentValue = putValue(Bytes(8, 0), TAVDB_TYPE_F64)});
    double value = 0;
    ASSERT_EQ(tavDBMSetFloat64(&session, at, std::nan("0x1234")), 0);
    ASSERT_EQ(tavDBMGetFloat64(&session, at, &value), 0);
    EXPECT_EQ(bytesOf(value), bytesOf(std::nan("0x1234")));
}

class Text : public TreeFixture {
protected:
    void SetUp() override {
        TreeFixture::SetUp();
        valueKey = putValue(Bytes(6, 'x'), TAVDB_TYPE_TEXT);
        at = putLeaf("leaf", root, {.currentValue = valueKey});
    }
    std::string stored() const {
        return textOfBytes(dataOf(valueKey));
    }
    int32_t get(int32_t size) {
        return tavDBMGetString(&session, at, buffer, size);
    }

    uint32_t valueKey = 0;
    uint32_t at = 0;
    char buffer[12] = "...........";
};

TEST_F(Text, IsStoredWithItsNul) {
    EXPECT_EQ(tavDBMSetString(&session, at, "abc"), 0);
    EXPECT_EQ(stored(), std::string("abc\0xx", 6));
}

TEST_F(Text, TheEmptyTextIsOneByte) {
    EXPECT_EQ(tavDBMSetString(&session, at, ""), 0);
    EXPECT_EQ(stored(), std::string("\0xxxxx", 6));
    EXPECT_THAT(transfers().back(), testing::StartsWith("data write 1@"));
}

TEST_F(Text, ThatIsTooLongIsCutOffWithoutANul) {
    EXPECT_EQ(tavDBMSetString(&session, at, "abcdefgh"), 0);
    EXPECT_EQ(stored(), "abcdef");
    EXPECT_TRUE(recorded(0, 0));
}

TEST_F(Text, IsReadWithItsNulWhenItFits) {
    ASSERT_EQ(tavDBMSetString(&session, at, "abc"), 0);
    EXPECT_EQ(get(12), 0);
    EXPECT_STREQ(buffer, "abc");
    EXPECT_EQ(buffer[6], '.') << "only the value's own length is read";
}

TEST_F(Text, ThatFillsTheBufferHasNoNul) {
    ASSERT_EQ(tavDBMSetString(&session, at, "abcde"), 0);
    EXPECT_EQ(get(3), 0);
    EXPECT_STREQ(buffer, "abc........");
}

TEST_F(Text, WithoutATextOrABufferIsCode89) {
    EXPECT_EQ(tavDBMSetString(&session, at, nullptr), 89);
    EXPECT_TRUE(recorded(89, 0));
    EXPECT_EQ(tavDBMGetString(&session, at, nullptr, 5), 89);
    EXPECT_EQ(stored(), "xxxxxx");
}

TEST_F(Text, ANegativeBufferLengthReadsNothing) {
    EXPECT_EQ(get(-1), 0);
    EXPECT_EQ(session.errorCode, 24U);
    EXPECT_STREQ(buffer, "...........");
}

TEST_F(Text, OfANodeIsCode1) {
    EXPECT_EQ(tavDBMSetString(&session, root, "abc"), 1);
    EXPECT_EQ(tavDBMGetString(&session, root, buffer, 12), 1);
    EXPECT_STREQ(buffer, "...........");
}

}  // namespace
}  // namespace tavdb_test
