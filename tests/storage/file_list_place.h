// SPDX-License-Identifier: Apache-2.0
// The two places a free list can lie in, a medium and a file, behind one
// interface, so that a test can say the same of both; and images of free lists,
// laid out byte by byte and not by the functions under test.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <ostream>
#include <string>
#include <vector>

#include "storage/storage_test_support.h"

namespace tavdb_test {

inline constexpr uint32_t kRootWord = 8;
inline constexpr uint32_t kFirstFreeWord = 12;

/// A free block.
struct FreeRange {
    uint32_t offset;
    uint32_t size;

    uint32_t end() const {
        return offset + size;
    }
    bool operator==(const FreeRange &) const = default;
};
void PrintTo(const FreeRange &range, std::ostream *stream);

/// The bytes of a medium: header, free blocks, and between them bytes that nobody may touch.
class ListImage {
public:
    static constexpr uint8_t kUntouched = 0x77;
    static constexpr uint8_t kBodyFill = 0xBA;
    static constexpr uint32_t kRoot = 0x00C0FFEE;

    /// The blocks are linked in the order given.
    ListImage(uint32_t sizeBytes, const std::vector<FreeRange> &blocks);

    ListImage &word(uint32_t offset, uint32_t value);
    /// The head of a free block.
    ListImage &head(uint32_t offset, uint32_t next, uint32_t size);
    ListImage &put(uint32_t offset, const Bytes &content);

    Bytes bytes;
};

/// The free blocks in the order of their links; a list without an end, or one that leaves the medium, fails the test.
std::vector<FreeRange> freeListOf(const Bytes &image);

/// Whether the list is ascending, without overlaps, and without two blocks that touch.
testing::AssertionResult isSound(const std::vector<FreeRange> &list);

/// What the two families of functions differ in.
struct FamilyTraits {
    const char *name;
    const char *prefix;  ///< of the functions' names
    int32_t openCode;
    int32_t writeCode;
    int32_t readCode;
    Operation open;
    Operation close;
    Operation read;
    Operation write;
    bool fillsBodies;
    bool showsSplitFailure;
};

class ListPlace {
public:
    virtual ~ListPlace() = default;

    virtual const FamilyTraits &family() const = 0;
    virtual void store(const Bytes &image) = 0;
    virtual Bytes image() const = 0;
    virtual uint32_t get(tavDBMSession *session, uint32_t size) = 0;
    virtual int32_t release(tavDBMSession *session, uint32_t offset, uint32_t size) = 0;
    virtual int32_t setFirstOffset(tavDBMSession *session, uint32_t offset) = 0;
    virtual int32_t setElement(tavDBMSession *session, uint32_t offset, const tavDBMFreeBlock &element) = 0;

    /// The place's accesses since the log was cleared: "open", "read 4@12", "close".
    std::vector<std::string> accesses() const;
    /// The same without opens and closes, after a look that each transfer stands between the two.
    std::vector<std::string> transfers() const;
    /// Descriptor of the last access that failed; -1 when it did not open.
    uint32_t failedDescriptor() const;
    /// The image after an element was written by this family's function.
    ListImage &writeElement(ListImage &image, uint32_t offset, uint32_t next, uint32_t size) const;
};

enum class Family : uint8_t { medium, file };
std::string nameOf(Family family);
void PrintTo(Family family, std::ostream *stream);

/// The component medium, which must be loaded, or the file at that path.
std::unique_ptr<ListPlace> makePlace(Family family, const std::string &path);

/// The media are loaded, the place is ready for a list.
class ListTest : public LoadedMediaTest {
protected:
    void usePlace(Family family);
    /// Stores a list and remembers the image; what happened before is forgotten.
    const ListImage &putList(const std::vector<FreeRange> &blocks, uint32_t sizeBytes = 4096);
    void putImage(const ListImage &image);

    testing::AssertionResult imageIs(const ListImage &expected) const;
    testing::AssertionResult imageUntouched() const {
        return imageIs(stored_);
    }
    /// One failed access: code and detail in the session, one trace line with descriptor, offset, detail, count.
    testing::AssertionResult accessFailed(const std::string &function, int32_t site, int32_t code, uint32_t offset,
                                          uint32_t detail, int32_t count) const;
    std::string functionName(const std::string &name) const {
        return place().family().prefix + name;
    }

    int32_t release(uint32_t offset, uint32_t size) {
        return place().release(&session, offset, size);
    }
    /// Expects the range dropped: result 0, nothing written, nothing recorded.
    void expectDropped(uint32_t offset, uint32_t size);

    ListPlace &place() const {
        return *place_;
    }
    const ListImage &stored() const {
        return stored_;
    }

private:
    std::unique_ptr<ListPlace> place_;
    ListImage stored_{16, {}};
};

/// The same for both families.
class BothListsTest : public ListTest, public testing::WithParamInterface<Family> {
protected:
    void SetUp() override {
        ListTest::SetUp();
        usePlace(GetParam());
    }
};

/// @name Sites of the file list, the same in both families and fixed for good. A transfer's is one above its open's.
/// @{
inline constexpr int32_t kGetFirstOffsetSite = 100;
inline constexpr int32_t kGetElementSite = 110;
inline constexpr int32_t kSetNextSite = 120;
inline constexpr int32_t kFillSite = 130;
inline constexpr int32_t kGetCircleSite = 140;
inline constexpr int32_t kReleaseCircleSite = 150;
inline constexpr int32_t kSetFirstOffsetSite = 160;
inline constexpr int32_t kSetElementSite = 170;
inline constexpr int32_t kGetRootSite = 180;
inline constexpr int32_t kSetRootSite = 190;
/// @}

}  // namespace tavdb_test

#define TAVDB_BOTH_FAMILIES(suite)                                                           \
    INSTANTIATE_TEST_SUITE_P(Families, suite, testing::Values(Family::medium, Family::file), \
                             [](const auto &test) { return nameOf(test.param); })
