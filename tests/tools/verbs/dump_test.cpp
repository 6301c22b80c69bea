// SPDX-License-Identifier: Apache-2.0
// tavdb dump: every byte of a medium is accounted for, and secrets are not shown.
#include <algorithm>

#include "image/text_util.h"
#include "tools/verbs/verbs_fixture.h"

namespace tavdb_test {
namespace {

using testing::HasSubstr;
using testing::Not;

class Dump : public VerbTest {
protected:
    void SetUp() override {
        build(kDevice);
    }
};

std::string hexOf(const std::string &bytes) {
    std::string hex;
    char text[4];
    for (const char byte : bytes) {
        snprintf(text, sizeof text, "%02x ", static_cast<uint8_t>(byte));
        hex += text;
    }
    return hex.substr(0, hex.empty() ? 0 : hex.size() - 1);
}

TEST_F(Dump, ComponentWordByWord) {
    const auto text = tavdb({"dump", "/level"}).out;
    const auto key = json({"dump", "/level"})[0]["offset"].get<uint32_t>();
    char offset[9];
    snprintf(offset, sizeof offset, "%08x", key);
    EXPECT_THAT(text, testing::StartsWith("component " + std::to_string(key) + ": leaf of /level, 40 bytes\n  " +
                                          offset + "  " + hexOf(word(key)) + "  key " + std::to_string(key) + "\n"));
    EXPECT_THAT(text, HasSubstr("  kind 1, leaf\n"));
    EXPECT_THAT(text, HasSubstr("  fd  value -3\n"));
    EXPECT_THAT(text, HasSubstr("  type 2, range of s8\n"));
    EXPECT_THAT(text, HasSubstr("  fb           minimum -5\n"));
    EXPECT_THAT(text, HasSubstr("  |level.|\n"));
}

TEST_F(Dump, EveryLineShowsTheBytesOfItsPlace) {
    std::map<std::string, std::string> media;
    for (const auto *name : {"component", "value", "constraint", "string", "data", "text"})
        media[name] = bytesOf(place / ("db/" + std::string(name) + ".med"));
    size_t lines = 0;
    for (const auto &[name, content] : media) {
        const auto blocks = json({"dump", "--media", name, "--secrets"});
        for (const auto &block : blocks)
            for (const auto &line : block["lines"]) {
                const auto hex = line["hex"].get<std::string>();
                EXPECT_EQ(hex, hexOf(content.substr(line["offset"], (hex.size() + 1) / 3)));
                lines++;
            }
    }
    EXPECT_GT(lines, 100U);
}

TEST_F(Dump, MediumIsCoveredFromItsStartToItsEnd) {
    for (const auto *name : {"component", "value", "constraint", "string", "data", "text"}) {
        uint64_t end = 0;
        for (const auto &block : json({"dump", "--media", name})) {
            EXPECT_EQ(block["offset"], end) << name;
            EXPECT_NE(block["what"], "not used by anything") << name;
            end = block["offset"].get<uint64_t>() + block["bytes"].get<uint64_t>();
        }
        EXPECT_EQ(end, bytesOf(place / ("db/" + std::string(name) + ".med")).size()) << name;
    }
}

TEST_F(Dump, SecretsAreMasked) {
    const std::string secret = "00 ff 7e 01";
    for (const auto &arguments :
         std::vector<std::vector<std::string>>{{"dump", "/network/lan/key"}, {"dump", "--media", "data"}}) {
        EXPECT_THAT(tavdb(arguments).out, Not(HasSubstr(secret)));
        EXPECT_THAT(tavdb(arguments).out, HasSubstr("***  --secrets shows it\n"));
        auto shown = arguments;
        shown.push_back("--secrets");
        EXPECT_THAT(tavdb(shown).out, HasSubstr(secret));
        shown.back() = "--json";
        EXPECT_THAT(tavdb(shown).out, Not(HasSubstr(secret)));
    }
}

TEST_F(Dump, RemovedSecretsStayMasked) {
    ASSERT_EQ(tavdb({"rm", "/network/lan/key"}), says(""));
    const auto text = tavdb({"dump", "--media", "data"}).out;
    EXPECT_THAT(text, Not(HasSubstr("00 ff 7e 01")));
    EXPECT_THAT(text, HasSubstr("not used by anything, 12 bytes\n"));
}

TEST_F(Dump, FreeBlocksAndLostSpace) {
    uint32_t lost = 0;
    {
        tavdb::image::Attached attached(directory());
        lost = flst_m_get(attached.session(), 2, 28);
    }
    const auto text = tavdb({"dump", "--media", "value"}).out;
    EXPECT_THAT(text, HasSubstr("value " + std::to_string(lost) + ": not used by anything, 28 bytes\n"));
    EXPECT_THAT(text, HasSubstr(": free block, "));
    EXPECT_THAT(text, testing::StartsWith("value 0: header, 16 bytes\n  00000000  " + hexOf(word(0x54415644)) +
                                          "  magic 0x54415644\n"));
}

TEST_F(Dump, Faults) {
    EXPECT_EQ(tavdb({"dump", "/none"}), fails(3, "tavdb: /none: there is no 'none' in /\n"));
    EXPECT_EQ(tavdb({"dump", "--media", "none"}).exitCode, 2);
    EXPECT_EQ(tavdb({"dump", "/level", "--media", "value"}).exitCode, 2);
}

TEST_F(Dump, DamagedRecordsAreFaultsAndNoCrash) {
    const auto key = json({"dump", "/level"})[0]["offset"].get<uint32_t>();
    // The current value's key leads out of its medium.
    patch(place / "db/component.med", key + 24, word(0x7FFFFFF0));
    const auto result = tavdb({"dump", "/level"});
    EXPECT_EQ(result.exitCode, 8) << result.err;
    EXPECT_THAT(result.err, testing::StartsWith("tavdb: /level: the value at 2147483632: "));
    const auto medium = tavdb({"dump", "--media", "value"});
    EXPECT_EQ(medium.exitCode, 8);
    EXPECT_THAT(medium.out, HasSubstr("value of /baud")) << "the others are shown";
    EXPECT_THAT(medium.err, testing::StartsWith("tavdb: value: /level: the value at 2147483632: "));
}

TEST_F(Dump, WithoutTheSchemaNothingIsShown) {
    place.write("db/schema.json", "{");
    const auto result = tavdb({"dump", "--media", "data"});
    EXPECT_EQ(result.exitCode, 8);
    EXPECT_EQ(result.out, "");
    EXPECT_EQ(tavdb({"dump", "/network/lan/key"}).out, "");
}

}  // namespace
}  // namespace tavdb_test
