// SPDX-License-Identifier: Apache-2.0
// Databases with random damage: every command ends in time, with an exit code of
// its own, and says something where it could not do its work.
#include <gmock/gmock.h>

#include <random>

#include "rounds.h"
#include "tools/command/command_fixture.h"

namespace tavdb_test {
namespace {

constexpr int kRounds = kEmulated ? 8 : 40;

class DamagedDatabase : public CommandTest {
protected:
    static constexpr const char *kImages[] = {"component.med", "value.med", "constraint.med",
                                              "string.med",    "data.med",  "text.med"};

    void damage(std::mt19937 &random, int words) {
        for (int i = 0; i < words; i++) {
            const auto image = (place / "db") + "/" + kImages[random() % std::size(kImages)];
            // Where the records of the small device lie; behind them is free space.
            const auto used = std::min<size_t>(bytesOf(image).size() - 4, 620);
            const uint32_t values[] = {0,
                                       1,
                                       16,
                                       44,
                                       72,
                                       0x7FFFFFFF,
                                       0xFFFFFFFF,
                                       static_cast<uint32_t>(random() % 700),
                                       static_cast<uint32_t>(random())};
            patch(image, random() % (used / 4) * 4, word(values[random() % std::size(values)]));
        }
    }
    void restore(const std::map<std::string, std::string> &files) {
        std::filesystem::remove_all(place / "db");
        std::filesystem::create_directory(place / "db");
        for (const auto &[name, content] : files)
            place.write("db/" + name, content);
    }
    void expectDecentEnd(const std::vector<std::string> &arguments) {
        const auto result = tavdb(arguments);
        EXPECT_LE(result.exitCode, 10) << arguments[0] << ": " << result.err;
        EXPECT_EQ(result.exitCode == 0, result.err.empty()) << arguments[0] << " " << result.exitCode << result.err;
    }
};

TEST_F(DamagedDatabase, NoDamageMakesACommandCrashOrHang) {
    build(kDevice);
    const auto whole = filesIn(place / "db");
    std::mt19937 random(randomSeed());
    for (int round = 0; round < kRounds && !HasFailure(); round++) {
        SCOPED_TRACE("round " + std::to_string(round));
        damage(random, 1 + round % 4);
        for (const auto &call : std::vector<std::vector<std::string>>{{"tree", "--secrets"},
                                                                      {"list", "-l", "/network/lan"},
                                                                      {"describe", "/network/lan/mode"},
                                                                      {"info"},
                                                                      {"get", "/level"},
                                                                      {"set", "/network/lan/mode", "on"}})
            expectDecentEnd(call);
        restore(whole);
    }
}

TEST_F(DamagedDatabase, NoTruncationMakesACommandCrashOrHang) {
    build(kDevice);
    const auto whole = filesIn(place / "db");
    for (const auto *image : kImages) {
        const auto size = whole.at(image).size();
        for (const size_t kept : {size_t{0}, size_t{15}, size_t{16}, size_t{40}, size / 2, size - 1}) {
            SCOPED_TRACE(std::string(image) + " of " + std::to_string(kept) + " bytes");
            std::filesystem::resize_file((place / "db") + "/" + image, kept);
            expectDecentEnd({"tree", "--secrets"});
            expectDecentEnd({"info"});
            restore(whole);
        }
    }
}

TEST_F(DamagedDatabase, DamagedTablesDoNotStopACommandForGood) {
    build(kDevice);
    const auto whole = filesIn(place / "db");
    std::mt19937 random(randomSeed());
    for (int round = 0; round < 20 && !HasFailure(); round++) {
        SCOPED_TRACE("round " + std::to_string(round));
        const auto *table = round % 2 == 0 ? "session.tbl" : "lock.tbl";
        for (int i = 0; i < 3; i++)
            patch((place / "db") + "/" + table, random() % 30 * 4, word(static_cast<uint32_t>(random())));
        expectDecentEnd({"info"});
        expectDecentEnd({"set", "--timeout", "0.02", "/level", "1"});
        restore(whole);
    }
}

}  // namespace
}  // namespace tavdb_test
