// SPDX-License-Identifier: Apache-2.0
// The generated C header: its constants, and that a C compiler takes it whatever
// the names are.
#include "image/c_header.h"

#include <gmock/gmock.h>

#include <cstdlib>
#include <fstream>

#include "tools/image/reading.h"

namespace tavdb::image {
namespace {

using testing::HasSubstr;

struct KeyMaker {
    ComponentKeys &keys;

    template <typename Part>
    void operator()(const std::string &path, const Part &) const {
        keys.emplace(path, static_cast<uint32_t>(100 + keys.size()));
    }
};

ComponentKeys keysOf(const Model &model) {
    ComponentKeys keys = {{"/", 64}};
    forEachBelow(model.root, "/", KeyMaker{keys});
    return keys;
}

std::string headerOf(const std::string &text) {
    const auto description = readGood(text);
    const auto header = formatHeader(description.model, keysOf(description.model));
    EXPECT_TRUE(header) << header.error;
    return header.value.value_or("");
}

void expectCompiles(const std::string &header, const std::string &use) {
    const auto path = testing::TempDir() + "c_header_test." + std::to_string(getpid()) + ".c";
    std::ofstream(path) << header << header << use;
    const auto command =
        std::string(TAVDB_C_COMPILER) + " -std=c11 -Wall -Wextra -Wpedantic -Werror -fsyntax-only " + path;
    EXPECT_EQ(std::system(command.c_str()), 0) << header;
    std::remove(path.c_str());
}

TEST(CHeader, HasOneConstantPerComponentAndOneEnumeratorPerLabel) {
    const auto header = headerOf("net:\n  mode: {type: u8, enum: {on: 1, auto-2: 5}}\n  mtu: {type: u32}\n");
    EXPECT_EQ(header,
              "/* Generated from d.yaml, do not edit. */\n"
              "#ifndef TAVDB_D_YAML_H\n#define TAVDB_D_YAML_H\n\n#include <stdint.h>\n\n"
              "/* Component keys. */\n"
              "#define TAVDB_KEY_ROOT UINT32_C(64) /* / */\n"
              "#define TAVDB_KEY_NET UINT32_C(101) /* /net */\n"
              "#define TAVDB_KEY_NET_MODE UINT32_C(102) /* /net/mode */\n"
              "#define TAVDB_KEY_NET_MTU UINT32_C(103) /* /net/mtu */\n\n"
              "/* Labels of enumerations. */\n"
              "/* /net/mode */\n"
              "enum {\n    TAVDB_LABEL_NET_MODE_ON = 1,\n    TAVDB_LABEL_NET_MODE_AUTO_2 = 5,\n};\n\n"
              "#endif\n");
    expectCompiles(header, "_Static_assert(TAVDB_KEY_NET_MTU == 103 && TAVDB_LABEL_NET_MODE_AUTO_2 == 5, \"\");\n");
}

TEST(CHeader, NumbersThatAreNoIntBecomeMacros) {
    const auto header = headerOf(
        "a: {type: u64, enum: {max: 18446744073709551615}}\n"
        "b: {type: s64, enum: {min: -9223372036854775808, one: 1}}\n"
        "c: {type: f32, enum: {half: 0.5, one: 1, big: 1e30}}\n"
        "d: {type: s32, enum: {min: -2147483648, max: 2147483647}}\n"
        "e: {type: u32, enum: {top: 2147483648}}\n");
    EXPECT_THAT(header, HasSubstr("#define TAVDB_LABEL_A_MAX UINT64_C(18446744073709551615)\n"));
    EXPECT_THAT(header, HasSubstr("    TAVDB_LABEL_D_MIN = (-2147483647 - 1),\n"));
    expectCompiles(header,
                   "_Static_assert(TAVDB_LABEL_A_MAX == UINT64_MAX && TAVDB_LABEL_B_MIN == INT64_MIN, \"\");\n"
                   "_Static_assert(TAVDB_LABEL_D_MIN == INT32_MIN && TAVDB_LABEL_D_MAX == INT32_MAX, \"\");\n"
                   "_Static_assert(TAVDB_LABEL_E_TOP == 2147483648, \"\");\n"
                   "double values[] = {TAVDB_LABEL_C_HALF, TAVDB_LABEL_C_ONE, TAVDB_LABEL_C_BIG};\n");
}

TEST(CHeader, NamesThatLookAlikeAreToldApart) {
    const auto header = headerOf(
        "a-b: {type: u8}\na_b: {type: u8}\na b: {type: u8}\na_b_2: {type: u8}\nroot: {type: u8}\n"
        "x: {type: u8, enum: [\"+\", \"-\", \"*\"]}\n");
    for (const auto *name : {"KEY_A_B ", "KEY_A_B_2 ", "KEY_A_B_3 ", "KEY_A_B_2_2 ", "KEY_ROOT ", "KEY_ROOT_2 ",
                             "LABEL_X__ ", "LABEL_X___2 ", "LABEL_X___3 "})
        EXPECT_THAT(header, HasSubstr(std::string("TAVDB_") + name));
    expectCompiles(header, "int used;\n");
}

TEST(CHeader, NoNameBreaksTheComments) {
    expectCompiles(headerOf("x*:\n  y: {}\n\"*\":\n  \"*\": {type: u8, enum: [\"*/\", \"\\\\\"]}\n\xC3\xA9: {}\n"),
                   "int used;\n");
}

TEST(CHeader, EmptyLabelHasAName) {
    const auto description = readGood(
        "<document><model><parameter name='P'><syntax><string><enumeration value=''/></string>"
        "</syntax></parameter></model></document>");
    const auto header = formatHeader(description.model, keysOf(description.model), "MY");
    ASSERT_TRUE(header);
    EXPECT_THAT(*header.value, HasSubstr("    MY_LABEL_P_EMPTY = 0,\n"));
}

TEST(CHeader, ComponentWithoutAKeyIsAnError) {
    const auto description = readGood("a: {}\nb: {}\n");
    EXPECT_EQ(formatHeader(description.model, {{"/", 1}, {"/a", 2}}).error, "there is no key for /b");
}

}  // namespace
}  // namespace tavdb::image
