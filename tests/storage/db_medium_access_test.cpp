// SPDX-License-Identifier: Apache-2.0
// The one door to a medium: what reaches its functions, what never does, and
// that it is closed exactly once. How records use it is tested with them.
#include "storage/db_medium_access.h"

#include <cerrno>
#include <climits>

#include "storage/storage_test_support.h"

namespace tavdb_test {
namespace {

using tavdb::OpenMedium;
using testing::ElementsAre;

constexpr char kMedium[] = "data.med";

class MediumAccess : public MediaTest {
protected:
    void SetUp() override {
        MediaTest::SetUp();
        fakeMedia().create(kMedium, Bytes(16, 0x33));
        entry_ = {.handle = nullptr,
                  .hint = kMedium,
                  .openArg = 0,
                  .open = tavdbMemOpen,
                  .close = tavdbMemClose,
                  .read = tavdbMemRead,
                  .write = tavdbMemWrite,
                  .lseek = tavdbMemSeek,
                  .sync = tavdbMemSync1,
                  .debug = nullptr};
        observe();
    }
    static std::vector<std::string> steps() {
        return eventLog().lines(Category::media);
    }
    tavDBMMediaEntry entry_{};
    uint8_t buffer_[8] = {};
};

TEST_F(MediumAccess, ClosesAtTheEndOfItsScope) {
    {
        OpenMedium medium(entry_);
        EXPECT_FALSE(medium.failed());
        EXPECT_EQ(medium.read(buffer_, 8, 4), 8);
        EXPECT_EQ(medium.error(), 0U);
    }
    EXPECT_THAT(steps(), ElementsAre("open data.med", "read 8@4", "close"));
}

TEST_F(MediumAccess, ClosesOnceWhenClosedBefore) {
    {
        OpenMedium medium(entry_);
        EXPECT_EQ(medium.close(), 0);
        EXPECT_EQ(medium.close(), 0);
    }
    EXPECT_THAT(steps(), ElementsAre("open data.med", "close"));
}

TEST_F(MediumAccess, AMediumThatDidNotOpenIsNotClosed) {
    faultPlan().add({.operation = Operation::mediaOpen, .fault = returning(-1, EACCES)});
    {
        OpenMedium medium(entry_);
        EXPECT_TRUE(medium.failed());
        EXPECT_EQ(medium.descriptor(), -1);
        EXPECT_EQ(medium.error(), static_cast<uint32_t>(EACCES));
        EXPECT_EQ(medium.close(), 0);
    }
    EXPECT_THAT(steps(), ElementsAre("open data.med -> -1 EACCES"));
}

TEST_F(MediumAccess, GivesTheResultOfTheClose) {
    faultPlan().add({.operation = Operation::mediaClose, .fault = returning(-5, EIO)});
    OpenMedium medium(entry_);
    EXPECT_EQ(medium.close(), -5);
    EXPECT_EQ(medium.error(), static_cast<uint32_t>(EIO));
}

class NegativeLength : public MediumAccess, public testing::WithParamInterface<int32_t> {};

TEST_P(NegativeLength, NeverReachesTheMediumAndIsAnInvalidArgument) {
    OpenMedium medium(entry_);
    EXPECT_EQ(medium.read(buffer_, GetParam(), 0), -1);
    EXPECT_EQ(medium.error(), static_cast<uint32_t>(EINVAL));
    EXPECT_EQ(medium.write(buffer_, GetParam(), 0), -1);
    EXPECT_EQ(medium.error(), static_cast<uint32_t>(EINVAL));
    EXPECT_THAT(steps(), ElementsAre("open data.med"));
    EXPECT_TRUE(mediaUnchanged());
}
INSTANTIATE_TEST_SUITE_P(Lengths, NegativeLength, testing::Values(-1, -4096, INT32_MIN));

TEST_F(MediumAccess, AMissingBufferNeverReachesTheMedium) {
    OpenMedium medium(entry_);
    EXPECT_EQ(medium.read(nullptr, 4, 0), -1);
    EXPECT_EQ(medium.error(), static_cast<uint32_t>(EFAULT));
    EXPECT_EQ(medium.write(nullptr, 4, 0), -1);
    EXPECT_THAT(steps(), ElementsAre("open data.med"));
}

TEST_F(MediumAccess, ALargerCountThanAskedIsAFailedTransfer) {
    faultPlan().add({.operation = Operation::mediaRead, .fault = moreBy(1)});
    faultPlan().add({.operation = Operation::mediaWrite, .fault = moreBy(100)});
    OpenMedium medium(entry_);
    EXPECT_EQ(medium.read(buffer_, 8, 0), -1);
    EXPECT_EQ(medium.write(buffer_, 8, 0), -1);
}

TEST_F(MediumAccess, AShortTransferGivesItsCount) {
    faultPlan().add({.operation = Operation::mediaWrite, .fault = shortBy(3)});
    OpenMedium medium(entry_);
    EXPECT_EQ(medium.read(buffer_, 8, 12), 4);
    EXPECT_EQ(medium.write(buffer_, 8, 0), 5);
    EXPECT_EQ(medium.error(), 0U);
}

TEST_F(MediumAccess, TheEndOfTheMediumIsItsLength) {
    OpenMedium medium(entry_);
    EXPECT_EQ(medium.seekEnd(), 16);
    EXPECT_THAT(steps(), ElementsAre("open data.med", "seek 0 end"));
}

}  // namespace
}  // namespace tavdb_test
