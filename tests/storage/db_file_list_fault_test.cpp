// SPDX-License-Identifier: Apache-2.0
// Every operation of the medium made to fail, one after the other, in each way
// that taking and giving back can go: which step records what, which result
// follows, and that exactly the failed write is missing afterwards.
#include <cerrno>

#include "fakes/fault_runs.h"
#include "storage/file_list_place.h"

namespace tavdb_test {
namespace {

enum class Transfer : uint8_t { read, write };

/// What goes on when a step of a scenario fails.
enum class OnFailure : uint8_t { stops, goesOn, showsSplitFailure };

/// One access: open, transfer, close.
struct Step {
    const char *function;  ///< without its family's prefix
    int32_t site;
    uint32_t offset;
    Transfer transfer;
    OnFailure onFailure;
    std::function<void(ListImage &image)> effect;
};

/// A list, what is done with it, and the accesses that takes.
struct Scenario {
    const char *name;
    std::vector<FreeRange> blocks;
    std::function<uint32_t(ListPlace &place, tavDBMSession *session)> run;
    uint32_t result;
    std::vector<Step> steps;
};

Step readsFirst() {
    return {"getFirstOffset", kGetFirstOffsetSite, kFirstFreeWord, Transfer::read, OnFailure::stops, nullptr};
}

Step readsElement(uint32_t offset) {
    return {"getElement", kGetElementSite, offset, Transfer::read, OnFailure::stops, nullptr};
}

Step setsNext(uint32_t offset, uint32_t value) {
    return {"setNext",       kSetNextSite,      offset,
            Transfer::write, OnFailure::goesOn, [=](ListImage &image) { image.word(offset, value); }};
}

Step setsFirst(uint32_t value) {
    return {"setFirstOffset", kSetFirstOffsetSite, kFirstFreeWord,
            Transfer::write,  OnFailure::goesOn,   [=](ListImage &image) { image.word(kFirstFreeWord, value); }};
}

/// Sizes beyond 1032 have no filled body, so that the step is one transfer in both families.
Step setsElement(uint32_t offset, uint32_t next, uint32_t size, OnFailure onFailure) {
    return {"setElement",    kSetElementSite, offset,
            Transfer::write, onFailure,       [=](ListImage &image) { image.head(offset, next, size); }};
}

Step fills(uint32_t offset, const Bytes &filler) {
    return {"fillFlagmented", kFillSite,         offset,
            Transfer::write,  OnFailure::goesOn, [=](ListImage &image) { image.put(offset, filler); }};
}

auto getting(uint32_t size) {
    return [=](ListPlace &place, tavDBMSession *session) { return place.get(session, size); };
}

auto releasing(uint32_t offset, uint32_t size) {
    return [=](ListPlace &place, tavDBMSession *session) {
        return static_cast<uint32_t>(place.release(session, offset, size));
    };
}

const Scenario kOfBothFamilies[] = {
    {"split",
     {{100, 3000}},
     getting(40),
     100,
     {readsFirst(), readsElement(100), setsNext(kFirstFreeWord, 140),
      setsElement(140, 0, 2960, OnFailure::showsSplitFailure)}},
    {"exact", {{100, 40}, {200, 20}}, getting(40), 100, {readsFirst(), readsElement(100), setsNext(12, 200)}},
    {"fragment",
     {{100, 43}},
     getting(40),
     100,
     {readsFirst(), readsElement(100), fills(140, {0xDE, 0xAD, 0xDE}), setsNext(kFirstFreeWord, 0)}},
    {"secondBlock",
     {{100, 20}, {200, 40}},
     getting(40),
     200,
     {readsFirst(), readsElement(100), readsElement(200), setsNext(100, 0)}},
    {"nothingFits", {{100, 20}, {200, 20}}, getting(40), 0, {readsFirst(), readsElement(100), readsElement(200)}},
    {"emptyList", {}, getting(40), 0, {readsFirst()}},
    {"releaseIntoEmptyList", {}, releasing(100, 40), 0, {readsFirst()}},
};

const Scenario kOfTheMedium[] = {
    {"releaseBeforeHead",
     {{2000, 40}},
     releasing(100, 1500),
     0,
     {readsFirst(), readsElement(2000), setsNext(12, 100), setsElement(100, 2000, 1500, OnFailure::goesOn)}},
    {"releaseTouchingNext",
     {{2000, 40}},
     releasing(500, 1500),
     0,
     {readsFirst(), readsElement(2000), setsNext(12, 500), setsElement(500, 0, 1540, OnFailure::goesOn)}},
    {"releaseTouchingBoth",
     {{100, 1000}, {2000, 100}},
     releasing(1100, 900),
     0,
     {readsFirst(), readsElement(100), readsElement(2000), setsElement(100, 0, 2000, OnFailure::goesOn)}},
    {"releaseBehindLast", {{100, 20}}, releasing(200, 20), 0, {readsFirst(), readsElement(100)}},
};

const Scenario kOfTheFile[] = {
    {"releaseBeforeHead",
     {{2000, 40}},
     releasing(100, 1500),
     0,
     {readsFirst(), readsElement(2000), setsFirst(100), setsElement(100, 2000, 1500, OnFailure::goesOn)}},
    {"releaseTouchingHead",
     {{2000, 40}},
     releasing(500, 1500),
     0,
     {readsFirst(), readsElement(2000), setsFirst(500), setsElement(500, 0, 1540, OnFailure::goesOn)}},
    {"releaseAtTheHeadWord",
     {{2000, 40}},
     releasing(12, 1500),
     0,
     {readsFirst(), readsElement(2000), setsElement(12, 2000, 1500, OnFailure::goesOn)}},
    {"releaseBehindHead", {{100, 20}, {200, 20}}, releasing(150, 20), 0, {readsFirst(), readsElement(100)}},
};

struct Case {
    Family family;
    const Scenario *scenario;
    bool isShort;  ///< transfers move nothing and give no error number, instead of failing
};

void PrintTo(const Case &one, std::ostream *stream) {
    *stream << nameOf(one.family) << ' ' << one.scenario->name << (one.isShort ? " short" : " failing");
}

std::vector<Case> allCases() {
    std::vector<Case> cases;
    const auto add = [&](Family family, const auto &scenarios) {
        for (const Scenario &scenario : scenarios) {
            cases.push_back({family, &scenario, false});
            cases.push_back({family, &scenario, true});
        }
    };
    add(Family::medium, kOfBothFamilies);
    add(Family::medium, kOfTheMedium);
    add(Family::file, kOfBothFamilies);
    add(Family::file, kOfTheFile);
    return cases;
}

class FileListFaults : public ListTest, public testing::WithParamInterface<Case> {
protected:
    enum class Phase : uint8_t { open, transfer, close };

    void SetUp() override {
        ListTest::SetUp();
        usePlace(GetParam().family);
    }
    static const Scenario &scenario() {
        return *GetParam().scenario;
    }
    const FamilyTraits &family() const {
        return place().family();
    }
    static Phase phaseOf(uint64_t index) {
        return static_cast<Phase>(index % 3);
    }
    uint32_t expectedResult(const Step &step) const {
        if (step.onFailure == OnFailure::goesOn)
            return scenario().result;
        if (step.onFailure == OnFailure::showsSplitFailure)
            return family().showsSplitFailure ? UINT32_MAX : scenario().result;
        return 0;
    }
    /// The image when that step failed, or none.
    ListImage expectedImage(const Step *failed) const {
        ListImage image = stored();
        for (const Step &step : scenario().steps) {
            if (&step == failed && step.onFailure == OnFailure::stops)
                break;
            if (&step != failed && step.effect)
                step.effect(image);
        }
        return image;
    }
    testing::AssertionResult recorded(const Step &step, Phase phase) const {
        if (phase == Phase::open)
            return accessFailed(step.function, step.site, family().openCode, step.offset,
                                static_cast<uint32_t>(traitsOf(family().open).failureError), 0);
        const bool reads = step.transfer == Transfer::read;
        const int32_t error = traitsOf(reads ? family().read : family().write).failureError;
        return accessFailed(step.function, step.site + 1, reads ? family().readCode : family().writeCode, step.offset,
                            GetParam().isShort ? 0 : static_cast<uint32_t>(error), GetParam().isShort ? 0 : -1);
    }
    void checkRun(uint64_t index, uint32_t result) const {
        const bool untouched = index >= 3 * scenario().steps.size();
        if (untouched || phaseOf(index) == Phase::close) {
            EXPECT_EQ(result, scenario().result);
            EXPECT_TRUE(silent());
            EXPECT_TRUE(imageIs(expectedImage(nullptr)));
            return;
        }
        const Step &step = scenario().steps[static_cast<size_t>(index / 3)];
        EXPECT_EQ(result, expectedResult(step));
        EXPECT_TRUE(recorded(step, phaseOf(index)));
        EXPECT_TRUE(imageIs(expectedImage(&step)));
    }
};

TEST_P(FileListFaults, EachIsRecordedByItsStepAndLosesNothingElse) {
    const std::optional<Fault> transferFault = GetParam().isShort ? std::optional(returning(0)) : std::nullopt;
    const uint64_t operations = forEachFailingOperation(
        [&](uint64_t index) {
            SCOPED_TRACE("operation " + std::to_string(index));
            putList(scenario().blocks);
            const uint32_t result = scenario().run(place(), &session);
            checkRun(index, result);
            EXPECT_THAT(fakeMedia().openDescriptors(), testing::IsEmpty());
        },
        transferFault);
    EXPECT_EQ(operations, 3 * scenario().steps.size()) << "open, transfer and close of each step";
}

INSTANTIATE_TEST_SUITE_P(Cases, FileListFaults, testing::ValuesIn(allCases()), [](const auto &test) {
    const Case &one = test.param;
    return nameOf(one.family) + '_' + one.scenario->name + (one.isShort ? "_short" : "_failing");
});

class FileListFaultsOfOther : public BothListsTest {};
TAVDB_BOTH_FAMILIES(FileListFaultsOfOther);

TEST_P(FileListFaultsOfOther, MediaAreNeverTouched) {
    putList({{100, 3000}});
    MediaImage others = fakeMedia().snapshotAll();
    forEachFailingOperation([&](uint64_t) {
        place().get(&session, 40);
        place().release(&session, 60, 40);
    });
    others["component.med"] = fakeMedia().snapshot("component.med");
    EXPECT_EQ(fakeMedia().snapshotAll(), others);
}

TEST_P(FileListFaultsOfOther, WordsOfTheHeaderAreNeverTouched) {
    forEachFailingOperation(
        [&](uint64_t index) {
            putList({{100, 1000}, {2000, 1000}});
            place().get(&session, 40);
            place().release(&session, 1500, 500);
            place().release(&session, 60, 40);
            const Bytes image = place().image();
            EXPECT_TRUE(std::equal(image.begin(), image.begin() + kFirstFreeWord, stored().bytes.begin())) << index;
        },
        returning(0));
}

}  // namespace
}  // namespace tavdb_test
