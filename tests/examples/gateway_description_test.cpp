// SPDX-License-Identifier: Apache-2.0
// The example description shows what a description can say: every type, every
// kind of constraint, three tiers that differ, hooks and secrets.
#include <gmock/gmock.h>

#include <map>
#include <nlohmann/json.hpp>
#include <set>

#include "gateway_test_support.h"

namespace tavdb::test {

namespace {

using nlohmann::json;
using testing::HasSubstr;
using testing::Not;

constexpr size_t kLeavesMin = 150;

void collectLeaves(const json &component, std::vector<json> &leaves) {
    if (component.at("kind") == "leaf")
        leaves.push_back(component);
    else
        for (const auto &child : component.at("children"))
            collectLeaves(child, leaves);
}

class GatewayDescription : public GatewayTest {
protected:
    void SetUp() override {
        GatewayTest::SetUp();
        build();
    }

    std::vector<json> leaves(const Words &options = {}) {
        Words arguments = {"--json", "tree"};
        arguments.insert(arguments.end(), options.begin(), options.end());
        const auto printed = tavdb(arguments);
        EXPECT_EQ(printed.code, 0) << printed.output;
        std::vector<json> found;
        collectLeaves(json::parse(printed.output), found);
        return found;
    }

    json describe(const std::string &path) {
        const auto printed = tavdb({"--json", "describe", path});
        EXPECT_EQ(printed.code, 0) << printed.output;
        return json::parse(printed.output);
    }

    /// Leaves whose values differ between two tiers.
    size_t differences(const Words &one, const Words &other) {
        const auto first = leaves(one);
        const auto second = leaves(other);
        EXPECT_EQ(first.size(), second.size());
        size_t count = 0;
        for (size_t i = 0; i < std::min(first.size(), second.size()); i++)
            count += first[i].at("value") != second[i].at("value") ? 1U : 0U;
        return count;
    }
};

TEST_F(GatewayDescription, HasLeavesEnoughForARealDevice) {
    EXPECT_GE(leaves().size(), kLeavesMin);
}

TEST_F(GatewayDescription, UsesEveryType) {
    std::set<std::string> types;
    for (const auto &leaf : leaves())
        types.insert(leaf.at("type").get<std::string>());
    EXPECT_EQ(types, (std::set<std::string>{"bytes", "f32", "f64", "s16", "s32", "s64", "s8", "text", "u16", "u32",
                                            "u64", "u8"}));
}

TEST_F(GatewayDescription, HasRangesWithAndWithoutStepsAndBothKindsOfEnumerations) {
    EXPECT_EQ(describe("/network/lan/mtuBytes").at("constraint").at("step"), 4);
    EXPECT_EQ(describe("/system/fan/startC").at("constraint").at("step"), 0.5);
    EXPECT_EQ(describe("/wireless/radio0/noiseLimitDbm").at("constraint").at("step"), 0);
    EXPECT_EQ(describe("/system/hostName").at("constraint"), nullptr);
    EXPECT_EQ(describe("/network/wan/protocol").at("constraint").at("values").at(2),
              (json{{"value", 2}, {"label", "pppoe"}}));
    EXPECT_EQ(describe("/wireless/radio1/channel").at("constraint").at("values").at(0),
              (json{{"value", 36}, {"label", nullptr}}));
}

TEST_F(GatewayDescription, HasTiersThatDiffer) {
    EXPECT_GT(differences({}, {"--default"}), 10U);
    EXPECT_GT(differences({"--default"}, {"--factory"}), 10U);
    const auto primary = describe("/network/dns/primary");
    EXPECT_EQ(primary.at("current").at("value"), "203.0.113.9");
    EXPECT_EQ(primary.at("default").at("value"), "198.51.100.1");
    EXPECT_EQ(primary.at("factory").at("value"), "192.0.2.53");
}

TEST_F(GatewayDescription, TiesTheHooksToTheirLeaves) {
    EXPECT_EQ(describe("/wireless/radio0/channel").at("hook"), 1);
    EXPECT_EQ(describe("/users/admin/passwordHash").at("hook"), 2);
    EXPECT_EQ(describe("/wireless/radio1/channel").at("hook"), 0);
}

TEST_F(GatewayDescription, MarksPasswordsAndKeysAsSecrets) {
    size_t secrets = 0;
    for (const auto &leaf : leaves())
        secrets += leaf.at("secret").get<bool>() ? 1U : 0U;
    EXPECT_GE(secrets, 10U);
    const std::string passphrase = "correct horse battery";
    EXPECT_THAT(tavdb({"tree"}).output, Not(HasSubstr(passphrase)));
    EXPECT_THAT(tavdb({"tree", "--secrets"}).output, HasSubstr(passphrase));
}

}  // namespace

}  // namespace tavdb::test
