// SPDX-License-Identifier: Apache-2.0
// Databases of the other byte order: built so, converted there and back, and what
// is refused or remarked on the way.
#include "image/convert.h"

#include <gmock/gmock.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <random>

#include "image/value_bytes.h"
#include "tools/image/attached.h"
#include "tools/test_place.h"

namespace tavdb::image {
namespace {

using tavdb_test::bytesOf;
using tavdb_test::filesIn;
using tavdb_test::patch;
using tavdb_test::TestPlace;
using tavdb_test::word;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

constexpr ByteOrder kOther = opposite(nativeOrder());

class Convert : public testing::Test {
protected:
    /// A copy of one directory as another; a fault is the test's failure.
    std::vector<std::string> convert(const std::string &from, const std::string &to, ByteOrder order) {
        auto copy = DatabaseCopy::read(place / from);
        EXPECT_TRUE(copy) << copy.error.sentence;
        if (!copy)
            return {};
        auto remarks = copy.value->convert(order);
        const auto written = copy.value->write(place / to, false, [] { return false; });
        EXPECT_TRUE(written) << written.error.sentence;
        EXPECT_EQ(written.value, place / to);
        return remarks;
    }
    std::map<std::string, std::string> imagesIn(const std::string &name) {
        auto files = filesIn(place / name);
        std::erase_if(files, [](const auto &file) { return !file.first.ends_with(".med"); });
        EXPECT_EQ(files.size(), 6U);
        return files;
    }
    void expectRefusal(FaultKind kind, const std::string &sentence, const std::string &name = "db") {
        const auto before = place.names();
        const auto copy = DatabaseCopy::read(place / name);
        ASSERT_FALSE(copy);
        EXPECT_EQ(copy.error.sentence, sentence);
        EXPECT_EQ(copy.error.kind, kind);
        EXPECT_EQ(place.names(), before);
    }

    TestPlace place;
};

/// A tree of any shape with leaves of every type, drawn by chance.
class RandomModel {
public:
    explicit RandomModel(std::mt19937 &source) : random(source) {}

    Model make() {
        Model model;
        fill(model.root, 0);
        return model;
    }

private:
    uint32_t below(size_t limit) {
        return static_cast<uint32_t>(std::uniform_int_distribution<size_t>(0, limit - 1)(random));
    }
    void fill(Node &node, int level) {
        for (uint32_t i = 1 + below(6); i > 0; i--) {
            if (level < 5 && below(3) == 0) {
                Node child;
                child.name = name(i);
                fill(child, level + 1);
                node.children.push_back({std::move(child)});
            } else {
                node.children.push_back({leaf(name(i))});
            }
        }
    }
    std::string name(uint32_t number) {
        return "n" + std::to_string(number) + std::string(below(9), 'x');
    }
    Leaf leaf(std::string name) {
        Leaf leaf;
        leaf.name = std::move(name);
        leaf.type = allTypes()[below(allTypes().size())].type;
        const auto &info = typeInfo(leaf.type);
        leaf.lengthBytes = info.isNumber() ? info.widthBytes : 1 + below(40);
        leaf.hookId = below(3);
        for (auto *value : {&leaf.current, &leaf.defaultValue, &leaf.factory})
            *value = drawn(info, leaf.lengthBytes);
        if (info.isNumber() && below(2) == 0)
            leaf.constraint = constraint(info);
        return leaf;
    }
    Value drawn(const TypeInfo &info, uint32_t length) {
        std::string bytes(length, '\0');
        for (auto &byte : bytes)
            byte = static_cast<char>(1 + below(127));
        if (info.family == Family::text)
            bytes.pop_back();
        return info.isNumber() ? *decodeValue(info.type, bytes).value : Value(bytes);
    }
    Constraint constraint(const TypeInfo &info) {
        const auto next = [&] { return drawn(info, info.widthBytes); };
        if (below(2) == 0)
            return Range{next(), next(), next()};
        Enumeration elements;
        for (uint32_t i = 1 + below(9); i > 0; i--)
            elements.push_back({std::nullopt, next()});
        return elements;
    }

    std::mt19937 &random;
};

TEST_F(Convert, RandomDatabasesComeBackByteForByte) {
    std::mt19937 random(tavdb_test::randomSeed());
    // Few enough for the tables that one process can know.
    for (int round = 0; round < 8 && !HasFailure(); round++) {
        SCOPED_TRACE("round " + std::to_string(round));
        const auto model = RandomModel(random).make();
        const auto native = buildDatabase(model, place / "native", {});
        ASSERT_TRUE(native) << native.error.sentence;
        const auto built = buildDatabase(model, place / "built", {.order = kOther});
        ASSERT_TRUE(built) << built.error.sentence;
        EXPECT_THAT(convert("native", "other", kOther), IsEmpty());
        EXPECT_THAT(convert("other", "back", nativeOrder()), IsEmpty());
        EXPECT_NE(imagesIn("native"), imagesIn("other"));
        EXPECT_EQ(imagesIn("other"), imagesIn("built"));
        EXPECT_EQ(imagesIn("back"), imagesIn("native"));
        for (const auto *name : {"native", "built", "other", "back"})
            std::filesystem::remove_all(place / name);
    }
}

TEST_F(Convert, HeadersOfTheOtherOrderAreMirrored) {
    buildText("a: {type: u8}\n", place / "db", {.order = kOther});
    const auto image = bytesOf(place / "db/value.med");
    EXPECT_EQ(image.substr(0, 4), kOther == ByteOrder::big ? "TAVD" : "DVAT");
    EXPECT_EQ(image.substr(4, 12), kOther == ByteOrder::big ? std::string("\0\1\0\2\0\0\0\0\0\0\0\144", 12)
                                                            : std::string("\2\0\1\0\0\0\0\0\144\0\0\0", 12));
}

TEST_F(Convert, BuildForTheOtherOrderHasNoTables) {
    buildText("a: {type: u8}\n", place / "db", {.order = kOther});
    std::vector<std::string> names;
    for (const auto &[name, content] : filesIn(place / "db"))
        names.push_back(name);
    EXPECT_THAT(names, ElementsAre("component.med", "constraint.med", "data.med", "media.conf", "schema.json",
                                   "string.med", "text.med", "value.med"));
}

TEST_F(Convert, EverythingButTablesIsCopied) {
    buildText("a: {type: u8, description: x}\n", place / "db");
    place.write("db/hooks.conf", "# mine\n");
    place.write("db/session.tbl.sem", "");
    convert("db", "other", kOther);
    auto expected = filesIn(place / "db");
    auto files = filesIn(place / "other");
    for (const auto *table : {"session.tbl", "session.tbl.sem", "lock.tbl"})
        EXPECT_EQ(expected.erase(table), 1U);
    for (const auto *text : {"media.conf", "hooks.conf", "schema.json"})
        EXPECT_EQ(files.at(text), expected.at(text));
    EXPECT_EQ(files.size(), expected.size());
}

TEST_F(Convert, SameOrderIsACopyThatWorks) {
    buildText("a: {type: u8, current: 7}\n", place / "db");
    convert("db", "copy", nativeOrder());
    EXPECT_EQ(imagesIn("copy"), imagesIn("db"));
    Attached database(place / "copy");
    EXPECT_EQ(database.current(database.at("/a")), "\7");
}

TEST_F(Convert, RightsAreThoseOfTheSource) {
    buildText("a: {type: u8}\n", place / "db");
    ASSERT_EQ(chmod((place / "db").c_str(), 0700), 0);
    ASSERT_EQ(chmod((place / "db/data.med").c_str(), 0600), 0);
    ASSERT_EQ(chmod((place / "db/schema.json").c_str(), 0440), 0);
    convert("db", "other", kOther);
    const auto rights = [&](const std::string &name) {
        struct stat status = {};
        EXPECT_EQ(stat((place / name).c_str(), &status), 0);
        return status.st_mode & 0777U;
    };
    EXPECT_EQ(rights("other"), 0700U);
    EXPECT_EQ(rights("other/data.med"), 0600U);
    EXPECT_EQ(rights("other/schema.json"), 0640U);
    EXPECT_EQ(rights("other/text.med"), rights("db/text.med"));
}

TEST_F(Convert, FilesOfOthersAreNamedAndLeft) {
    buildText("a: {type: u8}\n", place / "db");
    place.write("db/letter", "dear");
    const auto copy = DatabaseCopy::read(place / "db");
    ASSERT_TRUE(copy);
    EXPECT_THAT(copy.value->leftOut(), ElementsAre("letter"));
}

TEST_F(Convert, WhatNothingRefersToStaysAndIsCounted) {
    buildText("a: {type: u8}\nb: {type: u16, range: [1, 9]}\n", place / "db");
    {
        Attached database(place / "db");
        ASSERT_EQ(tavDBMDeleteComponent(database.session(), database.at("/b")), 0);
        ASSERT_NE(value_create(database.session(), TAVDB_TYPE_U8, 0, nullptr, 3, kDataMedium), 0U);
    }
    const auto before = imagesIn("db");
    const auto remarks = convert("db", "other", kOther);
    convert("other", "back", nativeOrder());
    EXPECT_EQ(imagesIn("back"), before);
    EXPECT_THAT(remarks, testing::Contains("data.med: 9 bytes that nothing refers to were copied as they are"));
}

TEST_F(Convert, DataThatAreNoWholeNumbersAreRemarked) {
    buildText("a: {type: bytes, size: 6, current: 010203040506}\nb: {type: bytes, size: 2, current: 0102}\n",
              place / "db");
    for (int tier = 0; tier < 3; tier++) {
        patch(place / "db/value.med", 16 + static_cast<size_t>(tier) * 28 + 4, word(TAVDB_TYPE_U32));
        patch(place / "db/value.med", 16 + static_cast<size_t>(tier + 3) * 28 + 4, word(99));
    }
    EXPECT_THAT(
        convert("db", "other", kOther),
        ElementsAre("3 values of no known type: copied byte by byte",
                    "3 values of a length that its type does not divide: the bytes left over are copied as they are"));
    EXPECT_EQ(bytesOf(place / "other/data.med").substr(16),
              std::string("\4\3\2\1\5\6\4\3\2\1\5\6\4\3\2\1\5\6\1\2\1\2\1\2", 24));
}

TEST_F(Convert, DamagedSourceIsRefused) {
    buildText("a: {type: u8}\n", place / "db");
    const auto whole = imagesIn("db");
    const auto restore = [&] {
        for (const auto &[name, content] : whole)
            place.write("db/" + name, content);
    };
    patch(place / "db/component.med", 44 + 24, word(17));
    expectRefusal(FaultKind::damaged,
                  "component.med: the leaf at 44: its current value, at 17, is no record: it does not name itself");
    restore();
    patch(place / "db/value.med", 0, std::string(16, '\0'));
    expectRefusal(FaultKind::damaged, "value.med: the header is damaged: it does not begin with TAVD");
    restore();
    std::filesystem::resize_file(place / "db/data.med", 17);
    expectRefusal(FaultKind::damaged, "value.med: the value at 44: its data, at 17, lies outside of its medium");
    std::filesystem::remove(place / "db/data.med");
    expectRefusal(FaultKind::damaged, "data.med: the database is incomplete: this image is missing");
    expectRefusal(FaultKind::notFound, "there is no such directory", "none");
}

TEST_F(Convert, DatabaseInUseIsRefused) {
    buildText("a: {type: u8}\n", place / "db");
    Attached database(place / "db");
    expectRefusal(FaultKind::locked,
                  "is in use by process " + std::to_string(getpid()) + ", which could write meanwhile");
}

TEST_F(Convert, SessionThatADeadProcessLeftKeepsNobodyOut) {
    buildText("a: {type: u8}\n", place / "db");
    if (const int child = fork(); child == 0) {
        const auto description = describeDirectory(place / "db");
        int32_t error = 0;
        tavDBMSession session = {};
        const int32_t id = tavDBMInit(description.value->get(), &error);
        _exit(id > 0 && tavDBMInitSession(&session, static_cast<uint32_t>(id)) == 0 ? 0 : 1);
    } else {
        int status = -1;
        ASSERT_EQ(waitpid(child, &status, 0), child);
        ASSERT_EQ(status, 0);
    }
    convert("db", "other", kOther);
}

TEST_F(Convert, TablesOfACopiedDirectoryKeepNobodyOut) {
    buildText("a: {type: u8}\n", place / "db");
    Attached database(place / "db");
    std::filesystem::copy(place / "db", place / "copied");
    convert("copied", "other", kOther);
}

TEST_F(Convert, ImagesElsewhereAreRefused) {
    buildText("a: {type: u8}\n", place / "db");
    const auto media = bytesOf(place / "db/media.conf");
    const auto with = [&](const std::string &old, const std::string &fresh) {
        auto text = media;
        place.write("db/media.conf", text.replace(text.find(old), old.size(), fresh));
    };
    const auto elsewhere = place / "db/../value.med";
    std::filesystem::copy(place / "db/value.med", elsewhere);
    with("value.med", elsewhere);
    expectRefusal(FaultKind::failed,
                  "media.conf: the value medium is " + elsewhere + ", not the directory's own value.med");
    with("tavdbMemOpen", "myOpen");
    expectRefusal(FaultKind::failed, "media.conf: the component medium is no file that can be copied");
    place.write("db/media.conf", media + "libtavdbfile.so a b c d e f seven\n");
    expectRefusal(FaultKind::failed, "media.conf: it names more than the six media of a database directory");
}

TEST_F(Convert, InterruptionLeavesNothing) {
    buildText("a: {type: u8}\n", place / "db");
    const auto copy = DatabaseCopy::read(place / "db");
    ASSERT_TRUE(copy);
    for (size_t end = 0; end < 8; end++) {
        size_t count = 0;
        const auto written = copy.value->write(place / "other", false, [&] { return count++ == end; });
        EXPECT_FALSE(written);
        EXPECT_EQ(written.error.sentence, "interrupted");
        EXPECT_THAT(place.names(), ElementsAre("db")) << end;
    }
}

}  // namespace
}  // namespace tavdb::image
