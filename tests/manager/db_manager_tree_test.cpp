// SPDX-License-Identifier: Apache-2.0
// The forwarders of the application interface: each does what the function
// behind it does with the same arguments, to the last access and byte.
#include <functional>

#include "manager/manager_calls.h"

namespace tavdb_test {
namespace {

using testing::IsEmpty;

/// Everything that a call leaves behind.
struct Outcome {
    int64_t result;
    uint32_t errorCode;
    uint32_t errorDetail;
    std::string printed;
    std::vector<std::string> log;     ///< without the trace
    std::vector<std::string> errors;  ///< functions and sites of the error lines
    MediaImage media;
};

/// "function():[Error]:[site" of each error line: the words behind it may hold descriptors.
std::vector<std::string> errorSites() {
    std::vector<std::string> sites;
    for (const std::string &line : fakeTrace().errors())
        sites.push_back(line.substr(0, line.find("][")));
    return sites;
}

class Forwarder : public TreeFixture {
protected:
    void SetUp() override {
        TreeFixture::SetUp();
        build("w n(a b) z p(x y) q leaf");
        const LeafKeys keys = {.currentValue = putValue({1, 2, 3}),
                               .defaultValue = putValue({4, 5, 6}),
                               .factoryValue = putValue({7, 8, 9}),
                               .hookId = 6};
        setKeys(key("leaf"), keys);
        nameIt(key("leaf"), "leaf");
        fakeHooks().putReady(6);
        fakeMedia().setWordAt(kValues, keys.factoryValue + offsetof(tavDBMValue, constraintKey), 815);
        arguments = {.session = &session,
                     .node = key("n"),
                     .leaf = key("leaf"),
                     .parent = key("p"),
                     .previous = key("x"),
                     .child = key("y"),
                     .value = keys.factoryValue,
                     .word = 4711};
    }
    static std::string printedBy(const std::function<void()> &action) {
        testing::internal::CaptureStdout();
        action();
        return testing::internal::GetCapturedStdout();
    }
    /// Runs a call on the media as they are at the beginning.
    Outcome outcomeOf(ManagerCall call) {
        const MediaImage before = fakeMedia().snapshotAll();
        Outcome outcome{};
        session.errorCode = 0;
        session.errorDetail = 0;
        clearTraces();
        outcome.printed = printedBy([&] { outcome.result = call(arguments); });
        outcome.errorCode = session.errorCode;
        outcome.errorDetail = session.errorDetail;
        outcome.log = eventLog().lines(Category::media | Category::memory | Category::hooks);
        outcome.errors = errorSites();
        outcome.media = fakeMedia().snapshotAll();
        fakeMedia().restoreAll(before);
        return outcome;
    }
    void expectSame(const Outcome &own, const Outcome &behind) {
        EXPECT_EQ(own.result, behind.result);
        EXPECT_EQ(own.errorCode, behind.errorCode);
        EXPECT_EQ(own.errorDetail, behind.errorDetail);
        EXPECT_EQ(own.printed, behind.printed);
        EXPECT_EQ(own.log, behind.log);
        EXPECT_EQ(own.errors, behind.errors);
        EXPECT_TRUE(own.media == behind.media);
    }

    CallArguments arguments{};
};

class ForwarderTest : public Forwarder, public testing::WithParamInterface<CountedFunction> {};

std::vector<CountedFunction> forwarders() {
    std::vector<CountedFunction> found;
    for (const CountedFunction &function : countedFunctions()) {
        if (function.behind != nullptr)
            found.push_back(function);
    }
    return found;
}

INSTANTIATE_TEST_SUITE_P(All, ForwarderTest, testing::ValuesIn(forwarders()), kRowName);

TEST_P(ForwarderTest, DoesWhatTheFunctionBehindItDoes) {
    const Outcome own = outcomeOf(GetParam().call);
    EXPECT_FALSE(own.log.empty());
    EXPECT_THAT(eventLog().lines(Category::semaphores), IsEmpty()) << "no lock is taken";
    EXPECT_EQ(own.errorCode, 0U) << "the call is one that succeeds";
    expectSame(own, outcomeOf(GetParam().behind));
}

TEST_P(ForwarderTest, AddsNoCodeOfItsOwnToAFailure) {
    faultPlan().add({.operation = Operation::mediaRead, .skip = 1});
    const Outcome own = outcomeOf(GetParam().call);
    faultPlan().clear();
    faultPlan().add({.operation = Operation::mediaRead, .skip = 1});
    expectSame(own, outcomeOf(GetParam().behind));
    faultPlan().clear();
}

TEST_P(ForwarderTest, OfADatabaseThatIsNotOpenFailsLikeTheFunctionBehindIt) {
    session.dbId = kNotOpenDb;
    const Outcome own = outcomeOf(GetParam().call);
    expectSame(own, outcomeOf(GetParam().behind));
    EXPECT_THAT(eventLog().lines(Category::media), IsEmpty());
    session.dbId = 1;
}

TEST_F(Forwarder, ThereAreThirty) {
    EXPECT_EQ(forwarders().size(), 30U);
}

TEST_F(Forwarder, EveryArgumentOfANewNodeArrives) {
    const uint32_t created = tavDBMCreateNode(&session, 4711, key("p"), key("x"), key("y"));
    EXPECT_EQ(hexAt(kComponents, created, 28), hexWords(created, 4711, 0, key("p"), 0, 0, key("y")));
    EXPECT_EQ(node(key("x")).component.next, created);
}

TEST_F(Forwarder, EveryArgumentOfANewLeafArrives) {
    const uint32_t created = tavDBMCreateLeaf(&session, 4711, key("p"), key("x"), 31, 32, 33, 34);
    EXPECT_EQ(hexAt(kComponents, created, 40), hexWords(created, 4711, 0, key("p"), key("y"), 1, 31, 32, 33, 34));
}

TEST_F(Forwarder, DeletingWithSubUnlinksTheNode) {
    EXPECT_EQ(tavDBMDeleteComponentWithSub(&session, key("n")), 0);
    EXPECT_EQ(shape(), "w z p(x y) q leaf");
}

class TraverseAndPrint : public Forwarder {};

TEST_F(TraverseAndPrint, ComponentZeroIsTheWholeTree) {
    const std::string whole = printedBy([&] { comp_traverseAndPrint(&session, root, 0); });
    EXPECT_GT(whole.size(), 50U);
    clearTraces();
    EXPECT_EQ(printedBy([&] { tavDBMtraverseAndPrint(&session, 0); }), whole);
    EXPECT_EQ(transfers().front(), "component read 16@0") << "the root is asked for";
}

TEST_F(TraverseAndPrint, StartsAtDepthZero) {
    EXPECT_EQ(printedBy([&] { tavDBMtraverseAndPrint(&session, key("w")); }), std::string(6, ' '));
}

TEST_F(TraverseAndPrint, WithoutARootPrintsNothing) {
    fakeMedia().setWordAt(kComponents, 8, kBeyond);
    EXPECT_EQ(printedBy([&] { tavDBMtraverseAndPrint(&session, 0); }), "");
}

}  // namespace
}  // namespace tavdb_test
