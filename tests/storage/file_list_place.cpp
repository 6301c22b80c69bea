// SPDX-License-Identifier: Apache-2.0
#include "storage/file_list_place.h"

#include <fstream>

#include "fakes/libc_recorder.h"
#include "file_content.h"

namespace tavdb_test {

namespace {

constexpr char kMediumHint[] = "component.med";

const FamilyTraits kMediumFamily = {.name = "medium",
                                    .prefix = "flst_m_",
                                    .openCode = 22,
                                    .writeCode = 23,
                                    .readCode = 24,
                                    .open = Operation::mediaOpen,
                                    .close = Operation::mediaClose,
                                    .read = Operation::mediaRead,
                                    .write = Operation::mediaWrite,
                                    .fillsBodies = false,
                                    .showsSplitFailure = true};

const FamilyTraits kFileFamily = {.name = "file",
                                  .prefix = "flst_",
                                  .openCode = 53,
                                  .writeCode = 54,
                                  .readCode = 55,
                                  .open = Operation::sysOpen,
                                  .close = Operation::sysClose,
                                  .read = Operation::sysRead,
                                  .write = Operation::sysPwrite,
                                  .fillsBodies = true,
                                  .showsSplitFailure = false};

class MediumPlace : public ListPlace {
public:
    const FamilyTraits &family() const override {
        return kMediumFamily;
    }
    void store(const Bytes &image) override {
        fakeMedia().create(kMediumHint, image);
    }
    Bytes image() const override {
        return fakeMedia().snapshot(kMediumHint);
    }
    uint32_t get(tavDBMSession *session, uint32_t size) override {
        return flst_m_get(session, kComponentMedia, size);
    }
    int32_t release(tavDBMSession *session, uint32_t offset, uint32_t size) override {
        return flst_m_release(session, kComponentMedia, offset, size);
    }
    int32_t setFirstOffset(tavDBMSession *session, uint32_t offset) override {
        return flst_m_setFirstOffset(session, kComponentMedia, offset);
    }
    int32_t setElement(tavDBMSession *session, uint32_t offset, const tavDBMFreeBlock &element) override {
        return flst_m_setElement(session, kComponentMedia, offset, &element);
    }
};

class FilePlace : public ListPlace {
public:
    explicit FilePlace(std::string path) : path_(std::move(path)) {}

    const FamilyTraits &family() const override {
        return kFileFamily;
    }
    void store(const Bytes &image) override {
        std::ofstream stream(path_, std::ios::binary);
        stream.write(reinterpret_cast<const char *>(image.data()), static_cast<std::streamsize>(image.size()));
        stream.close();
        ASSERT_TRUE(stream);
    }
    Bytes image() const override {
        return contentOf<Bytes>(path_);
    }
    uint32_t get(tavDBMSession *session, uint32_t size) override {
        const Recording recording;
        return flst_get(session, path_.c_str(), size);
    }
    int32_t release(tavDBMSession *session, uint32_t offset, uint32_t size) override {
        const Recording recording;
        return flst_release(session, path_.c_str(), offset, size);
    }
    int32_t setFirstOffset(tavDBMSession *session, uint32_t offset) override {
        const Recording recording;
        return flst_setFirstOffset(session, path_.c_str(), offset);
    }
    int32_t setElement(tavDBMSession *session, uint32_t offset, const tavDBMFreeBlock &element) override {
        const Recording recording;
        return flst_setElement(session, path_.c_str(), offset, &element);
    }

private:
    std::string path_;
};

std::vector<Event> accessEvents() {
    return eventLog().events(Category::media | Category::libc);
}

}  // namespace

void PrintTo(const FreeRange &range, std::ostream *stream) {
    *stream << range.offset << '+' << range.size;
}

ListImage::ListImage(uint32_t sizeBytes, const std::vector<FreeRange> &blocks) : bytes(sizeBytes, kUntouched) {
    put(0, bytesOf(FakeMedia::kPreparer[0], FakeMedia::kPreparer[1], kRoot, blocks.empty() ? 0 : blocks[0].offset));
    for (size_t i = 0; i < blocks.size(); ++i)
        head(blocks[i].offset, i + 1 < blocks.size() ? blocks[i + 1].offset : 0, blocks[i].size);
}

ListImage &ListImage::word(uint32_t offset, uint32_t value) {
    return put(offset, bytesOf(value));
}

ListImage &ListImage::head(uint32_t offset, uint32_t next, uint32_t size) {
    return put(offset, bytesOf(next, size));
}

ListImage &ListImage::put(uint32_t offset, const Bytes &content) {
    EXPECT_LE(offset + content.size(), bytes.size()) << "the test writes beyond its image";
    std::copy(content.begin(), content.end(), bytes.begin() + static_cast<std::ptrdiff_t>(offset));
    return *this;
}

std::vector<FreeRange> freeListOf(const Bytes &image) {
    const auto wordAt = [&](uint32_t offset) {
        uint32_t word = 0;
        memcpy(&word, image.data() + offset, sizeof(word));
        return word;
    };
    std::vector<FreeRange> list;
    for (uint32_t offset = wordAt(kFirstFreeWord); offset != 0; offset = wordAt(offset)) {
        if (offset > image.size() - sizeof(tavDBMFreeBlock) || list.size() > image.size()) {
            ADD_FAILURE() << "the list leaves the medium or does not end; the last block is at " << offset;
            return list;
        }
        list.push_back({offset, wordAt(offset + 4)});
    }
    return list;
}

testing::AssertionResult isSound(const std::vector<FreeRange> &list) {
    for (size_t i = 1; i < list.size(); ++i) {
        if (list[i - 1].end() >= list[i].offset)
            return testing::AssertionFailure()
                   << "blocks out of order, overlapping or not merged: " << testing::PrintToString(list);
    }
    return testing::AssertionSuccess();
}

std::vector<std::string> ListPlace::accesses() const {
    std::vector<std::string> lines;
    for (const Event &event : accessEvents()) {
        if (event.operation == family().open)
            lines.emplace_back("open");
        else if (event.operation == family().close)
            lines.emplace_back("close");
        else
            lines.push_back((event.operation == family().write ? "write " : "read ") + event.details);
    }
    return lines;
}

std::vector<std::string> ListPlace::transfers() const {
    const std::vector<std::string> lines = accesses();
    std::vector<std::string> transfers;
    for (size_t i = 0; i < lines.size(); ++i) {
        if (lines[i] == "open" || lines[i] == "close")
            continue;
        EXPECT_TRUE(i > 0 && lines[i - 1] != "close") << lines[i] << " without an open";
        transfers.push_back(lines[i]);
    }
    EXPECT_EQ(std::count(lines.begin(), lines.end(), "open"), std::count(lines.begin(), lines.end(), "close"));
    return transfers;
}

uint32_t ListPlace::failedDescriptor() const {
    uint32_t descriptor = UINT32_MAX;
    for (const Event &event : accessEvents()) {
        if (event.failed && event.operation != family().close)
            descriptor = static_cast<uint32_t>(event.fd);
    }
    return descriptor;
}

ListImage &ListPlace::writeElement(ListImage &image, uint32_t offset, uint32_t next, uint32_t size) const {
    image.head(offset, next, size);
    if (family().fillsBodies && size >= 9 && size <= 1032)
        image.put(offset + 8, Bytes(size - 8, ListImage::kBodyFill));
    return image;
}

std::string nameOf(Family family) {
    return family == Family::medium ? "medium" : "file";
}

void PrintTo(Family family, std::ostream *stream) {
    *stream << nameOf(family);
}

std::unique_ptr<ListPlace> makePlace(Family family, const std::string &path) {
    if (family == Family::medium)
        return std::make_unique<MediumPlace>();
    return std::make_unique<FilePlace>(path);
}

void ListTest::usePlace(Family family) {
    place_ = makePlace(family, file("list.img"));
}

const ListImage &ListTest::putList(const std::vector<FreeRange> &blocks, uint32_t sizeBytes) {
    putImage(ListImage(sizeBytes, blocks));
    return stored_;
}

void ListTest::putImage(const ListImage &image) {
    stored_ = image;
    place().store(image.bytes);
    observe();
}

void ListTest::expectDropped(uint32_t offset, uint32_t size) {
    eventLog().clear();
    EXPECT_EQ(release(offset, size), 0) << offset << '+' << size;
    EXPECT_TRUE(imageUntouched()) << offset << '+' << size;
    EXPECT_TRUE(silent());
    EXPECT_EQ(eventLog().count(Operation::mediaWrite), 0U) << offset << '+' << size;
    EXPECT_EQ(eventLog().count(Operation::sysPwrite), 0U) << offset << '+' << size;
}

testing::AssertionResult ListTest::imageIs(const ListImage &expected) const {
    const std::vector<std::string> lines = differences(expected.bytes, place().image());
    if (lines.empty())
        return testing::AssertionSuccess();
    return testing::AssertionFailure() << "expected -> actual: " << testing::PrintToString(lines);
}

testing::AssertionResult ListTest::accessFailed(const std::string &function, int32_t site, int32_t code,
                                                uint32_t offset, uint32_t detail, int32_t count) const {
    const std::string line = errorLine(functionName(function), site,
                                       {place().failedDescriptor(), offset, detail, static_cast<uint32_t>(count)});
    return failedWith(code, detail, {line});
}

}  // namespace tavdb_test
