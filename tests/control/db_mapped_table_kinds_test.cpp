// SPDX-License-Identifier: Apache-2.0
// The three shared tables as attaching opens and makes them: order of steps,
// files that are there already, and every failure with its code and lines.
#include <errno.h>
#include <fcntl.h>
#include <gmock/gmock.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <tuple>

#include "control/control_test_support.h"
#include "fakes/event_log.h"
#include "fakes/fake_trace.h"
#include "fakes/fault_plan.h"

namespace tavdb_test {
namespace {

using testing::Combine;
using testing::ElementsAreArray;
using testing::IsEmpty;
using testing::Values;

using Lines = std::vector<std::string>;

class TableFiles : public ControlFixture {
protected:
    /// Makes the three files, as an earlier process left them.
    void makeTables() {
        ASSERT_GT(attach(), 0);
        ASSERT_EQ(detach(), 0);
        clearLogs();
    }
    /// The steps on one table's file and semaphores.
    static Lines stepsOf(const SharedTable &table) {
        Lines lines = eventLog().lines(Category::libc | Category::semaphores | Category::memory);
        const std::string name = std::string(" ") + table.file;
        const std::string size = " " + std::to_string(table.sizeBytes);
        std::erase_if(lines, [&](const std::string &line) {
            return line.find(name) == std::string::npos && !line.ends_with(size);
        });
        return lines;
    }
    /// Everything that a failed attach at that table traces as an error.
    Lines failureLines(const SharedTable &table, const FailureSites &sites, int error, int32_t code) const {
        Lines lines = {errorLine(table.initFunction, sites.errnoSite, {static_cast<uint32_t>(error)})};
        if (sites.pathSite != 0)
            lines.push_back(errorTextLine(table.initFunction, sites.pathSite, file(table.file)));
        return joined(lines, aftermath(table, code));
    }
    static Lines aftermath(const SharedTable &table, int32_t code) {
        return table.cascadeSite != 0 ? cascade(table.cascadeSite, code) : controlFailure(code);
    }
};

TEST_F(TableFiles, ADescriptorOfZeroIsOneLikeAnyOther) {
    const int input = dup(STDIN_FILENO);
    close(STDIN_FILENO);
    for (int i = 0; i < 2; i++) {  // the first attach makes the files, the second finds them
        EXPECT_GT(attach(), 0) << attachError;
        EXPECT_EQ(fcntl(STDIN_FILENO, F_GETFD), -1) << "every file is closed again";
        EXPECT_EQ(detach(), 0);
    }
    EXPECT_TRUE(fakeTrace().noErrors());
    dup2(input, STDIN_FILENO);
    close(input);
}

class EachTable : public TableFiles, public testing::WithParamInterface<SharedTable> {
protected:
    std::string path() const {
        return file(GetParam().file);
    }
    /// The line of a step on this table, "#" standing for the file and "$" for its size.
    static std::string line(std::string text) {
        const auto replace = [&](char mark, const std::string &word) {
            if (const size_t at = text.find(mark); at != std::string::npos)
                text.replace(at, 1, word);
        };
        replace('#', GetParam().file);
        replace('$', std::to_string(GetParam().sizeBytes));
        return text;
    }
    static Lines linesOf(const Lines &texts) {
        Lines lines;
        std::transform(texts.begin(), texts.end(), std::back_inserter(lines), line);
        return lines;
    }
    /// The opening's steps: those up to the closing of the file.
    static Lines opening() {
        Lines lines = stepsOf(GetParam());
        const auto end = std::find(lines.begin(), lines.end(), line("sys.close #"));
        lines.erase(end == lines.end() ? end : end + 1, lines.end());
        return lines;
    }
};

INSTANTIATE_TEST_SUITE_P(Tables, EachTable, Values(kControl, kSession, kLock), byName);

TEST_P(EachTable, AMissingFileIsMadeStepByStep) {
    attach();
    EXPECT_THAT(
        opening(),
        ElementsAreArray(linesOf({"sys.open # O_RDWR|O_CLOEXEC -> -1 ENOENT",
                                  "sys.open # O_RDWR|O_CREAT|O_CLOEXEC 0664", "sys.flock # exclusive", "sys.fstat #",
                                  "alloc $", "sys.write # $", "sys.mmap # $", "sys.flock # unlock", "semAnnounce #",
                                  "mutexCreate #", "countCreate #", "eventCreate #", "free $", "sys.close #"})));
}

TEST_P(EachTable, AFileThatIsThereIsMappedAndNotWritten) {
    makeTables();
    attach();
    EXPECT_THAT(opening(),
                ElementsAreArray(linesOf({"sys.open # O_RDWR|O_CLOEXEC", "sys.fstat #", "sys.mmap # $", "semAnnounce #",
                                          "mutexCreate #", "countCreate #", "eventCreate #", "sys.close #"})));
}

TEST_P(EachTable, ANewFileHasItsSize) {
    attach();
    EXPECT_EQ(bytesOfFile(path()).size(), GetParam().sizeBytes);
}

TEST_P(EachTable, ANewFileMayBeUsedByItsOwnerAndGroupAndReadByAll) {
    const mode_t mask = umask(0);
    attach();
    umask(mask);
    const auto permissions = std::filesystem::status(path()).permissions();
    EXPECT_EQ(static_cast<unsigned>(permissions), 0664U);
}

TEST_P(EachTable, ASecondAttachOfTheProcessDoesNotOpenItAgain) {
    attach();
    eventLog().clear();
    attach();
    const Lines steps = eventLog().lines(Category::libc);
    EXPECT_THAT(steps, IsEmpty());
}

TEST_P(EachTable, OnlyTheLastDetachUnmapsIt) {
    attach();
    attach();
    eventLog().clear();
    detach();
    EXPECT_EQ(eventLog().count(Operation::sysMunmap), 0U);
    detach();
    EXPECT_THAT(eventLog().lines(Category::libc), testing::Contains(line("sys.munmap # $")));
}

TEST_P(EachTable, TheFileOutlivesTheLastDetach) {
    attach();
    detach();
    EXPECT_EQ(bytesOfFile(path()).size(), GetParam().sizeBytes);
}

TEST_P(EachTable, AnEmptyFileCountsAsNotYetMade) {
    writeFile(path(), {});
    EXPECT_EQ(attach(), 1) << attachError;
    EXPECT_TRUE(fakeTrace().noErrors());
    EXPECT_EQ(bytesOfFile(path()).size(), GetParam().sizeBytes);
}

TEST_P(EachTable, AFileOfZerosCountsAsNotYetMade) {
    writeFile(path(), Bytes(GetParam().sizeBytes));
    EXPECT_EQ(attach(), 1) << attachError;
    EXPECT_TRUE(fakeTrace().noErrors());
}

/// The first records of a table that was used, the rest lost. The second attach takes the second database entry,
/// so what the part begins with stays as it is.
class PartOfATable : public EachTable {
protected:
    void SetUp() override {
        ControlFixture::SetUp();
        makeTables();
        Bytes content = bytesOfFile(path());
        content.resize(isControl() ? kControlHead + 3 * kControlEntry : 300);
        writeFile(path(), content);
        kept_ = keptOf(content);
    }
    void expectKept() const {
        const Bytes after = bytesOfFile(path());
        EXPECT_EQ(after.size(), GetParam().sizeBytes);
        EXPECT_THAT(differences(kept_, keptOf(after)), IsEmpty());
    }

private:
    static constexpr uint32_t kControlHead = 12;
    static constexpr uint32_t kControlEntry = 16416;

    static bool isControl() {
        return GetParam().cascadeSite == 0;
    }
    static Bytes keptOf(const Bytes &content) {
        const auto first = content.begin() + (isControl() ? kControlHead + kControlEntry : 0);
        return {first, first + (isControl() ? kControlEntry : 300)};
    }

    Bytes kept_;
};

INSTANTIATE_TEST_SUITE_P(Tables, PartOfATable, Values(kControl, kSession, kLock), byName);

TEST_P(PartOfATable, GrowsToTheFullSizeAndKeepsWhatItHolds) {
    EXPECT_EQ(attach(), 2);
    expectKept();
}

TEST_P(PartOfATable, WithAHoleForTheRestGetsItsSpaceBeforeItIsTouched) {
    ASSERT_EQ(truncate(path().c_str(), static_cast<off_t>(GetParam().sizeBytes)), 0);
    EXPECT_EQ(attach(), 2);
    EXPECT_THAT(opening(), testing::Contains(line("sys.fallocate # $@0")));
    expectKept();
}

TEST_P(PartOfATable, ThatGetsNoSpaceIsRefusedAndLeftAsItWas) {
    const Bytes before = bytesOfFile(path());
    faultPlan().add({.operation = Operation::sysAllocate, .subject = GetParam().file});
    EXPECT_EQ(attach(), -1);
    EXPECT_EQ(attachError, 87);
    EXPECT_THAT(differences(before, bytesOfFile(path())), IsEmpty());
}

TEST_P(EachTable, AFailedMappingLeavesTheFileAsItWas) {
    makeTables();
    const Bytes before = bytesOfFile(path());
    faultPlan().add({.operation = Operation::sysMmap, .subject = GetParam().file});
    EXPECT_EQ(attach(), -1);
    EXPECT_THAT(differences(before, bytesOfFile(path())), IsEmpty());
}

/// One way in which opening a table fails.
struct OpenFault {
    const char *name;
    bool isMadeBefore;
    Operation operation;
    Fault fault;
    FailureSites SharedTable::*sites;
    int32_t code;  ///< 0: the table's own
};

void PrintTo(const OpenFault &fault, std::ostream *stream) {
    *stream << fault.name;
}

Fault shortWrite() {
    return shortBy(1, ENOSPC);
}

const OpenFault kOpenFaults[] = {
    {"MappingOfAFileThatIsThere", true, Operation::sysMmap, returning(-1, ENOMEM), &SharedTable::mapExisting, 87},
    {"MappingOfANewFile", false, Operation::sysMmap, returning(-1, EACCES), &SharedTable::mapNew, 87},
    {"WritingANewFile", false, Operation::sysWrite, shortWrite(), &SharedTable::write, 0},
    {"MemoryForANewFile", false, Operation::alloc, returning(0, ENOMEM), &SharedTable::allocate, 86},
};

class FailedOpening : public TableFiles, public testing::WithParamInterface<std::tuple<SharedTable, OpenFault>> {
protected:
    const SharedTable &table() const {
        return std::get<0>(GetParam());
    }
    const OpenFault &openFault() const {
        return std::get<1>(GetParam());
    }
    int32_t code() const {
        return openFault().code != 0 ? openFault().code : table().shortWriteCode;
    }
    /// Makes the opening of the table fail. Memory has no name: it is the first, second or third table's block.
    void plan() {
        if (openFault().isMadeBefore)
            makeTables();
        FaultRule rule{.operation = openFault().operation, .subject = table().file, .fault = openFault().fault};
        if (openFault().operation == Operation::alloc) {
            rule.subject.clear();
            rule.skip = allocationsBefore();
        }
        faultPlan().add(rule);
    }

private:
    uint32_t allocationsBefore() const {
        constexpr uint32_t kOfTheMediaConfiguration = 1 + 6;
        if (table().cascadeSite == kSession.cascadeSite)
            return 2 + kOfTheMediaConfiguration;
        return table().cascadeSite == kLock.cascadeSite ? 1 : 0;
    }
};

INSTANTIATE_TEST_SUITE_P(Tables, FailedOpening,
                         Combine(Values(kControl, kSession, kLock), testing::ValuesIn(kOpenFaults)),
                         [](const auto &row) {
                             return std::string(std::get<0>(row.param).name) + std::get<1>(row.param).name;
                         });

TEST_P(FailedOpening, GivesItsCodeAndItsLines) {
    plan();
    EXPECT_EQ(attach(), -1);
    EXPECT_EQ(attachError, code());
    EXPECT_TRUE(
        fakeTrace().errorsAre(failureLines(table(), table().*openFault().sites, openFault().fault.error, code())));
}

TEST_P(FailedOpening, ClosesTheFileAndFreesTheBuffer) {
    plan();
    attach();
    const Lines steps = stepsOf(table());
    const auto count = [&](const std::string &text) { return std::count(steps.begin(), steps.end(), text); };
    const std::string size = std::to_string(table().sizeBytes);
    EXPECT_EQ(count(std::string("sys.close ") + table().file), 1);
    EXPECT_EQ(count("alloc " + size), count("free " + size));
    EXPECT_EQ(count(std::string("mutexCreate ") + table().file), 0);
}

TEST_P(FailedOpening, LeavesNothingThatStopsTheNextProcess) {
    inChild([this] {
        plan();
        EXPECT_EQ(attach(), -1);
        finish();
    });
    EXPECT_GT(attach(), 0) << attachError;
    EXPECT_TRUE(fakeTrace().noErrors());
}

class NeitherOpens : public EachTable {
protected:
    void SetUp() override {
        ControlFixture::SetUp();
        faultPlan().add({.operation = Operation::sysOpen, .subject = GetParam().file, .times = 2});
    }
    Lines openLines() const {
        return {errorLine(GetParam().initFunction, GetParam().open.errnoSite, {EACCES}),
                errorTextLine(GetParam().initFunction, GetParam().open.pathSite, path())};
    }
};

INSTANTIATE_TEST_SUITE_P(Tables, NeitherOpens, Values(kSession, kLock), byName);

TEST_P(NeitherOpens, DeliberatelyIsASuccessWithoutATable) {
    EXPECT_EQ(attach(), 1);
    EXPECT_TRUE(fakeTrace().errorsAre(openLines()));
}

TEST_P(NeitherOpens, DetachingUnmapsNothingAndFailsNothing) {
    attach();
    eventLog().clear();
    EXPECT_EQ(detach(), 0);
    const Lines lines = eventLog().lines(Category::libc);
    EXPECT_EQ(std::count(lines.begin(), lines.end(), line("sys.munmap # $")), 0);
}

/// A semaphore that cannot be created, with the lines that misc_getSems writes for it.
struct CreationFault {
    const char *name;
    Operation operation;
    std::vector<int32_t> sites;
    Lines created;  ///< the steps up to the failure, "#" standing for the file
};

void PrintTo(const CreationFault &fault, std::ostream *stream) {
    *stream << fault.name;
}

const CreationFault kCreationFaults[] = {
    {"Mutex", Operation::mutexCreate, {111, 138}, {"mutexCreate # -> 4101 EIO"}},
    {"Count", Operation::countCreate, {101, 138}, {"mutexCreate #", "countCreate # -> 4101 EIO"}},
    {"Event", Operation::eventCreate, {126}, {"mutexCreate #", "countCreate #", "eventCreate # -> 4101 EIO"}},
};

class FailedCreation : public TableFiles, public testing::WithParamInterface<std::tuple<SharedTable, CreationFault>> {
protected:
    void SetUp() override {
        ControlFixture::SetUp();
        faultPlan().add({.operation = fault().operation, .subject = table().file});
        EXPECT_EQ(attach(), -1);
    }
    const SharedTable &table() const {
        return std::get<0>(GetParam());
    }
    const CreationFault &fault() const {
        return std::get<1>(GetParam());
    }
};

INSTANTIATE_TEST_SUITE_P(Tables, FailedCreation,
                         Combine(Values(kControl, kSession, kLock), testing::ValuesIn(kCreationFaults)),
                         [](const auto &row) {
                             return std::string(std::get<0>(row.param).name) + std::get<1>(row.param).name;
                         });

TEST_P(FailedCreation, PassesThePlatformsCodeOn) {
    EXPECT_EQ(attachError, platformCode(EIO));
    Lines lines;
    for (const int32_t site : fault().sites)
        lines.push_back(errorLine("misc_getSems", site, {static_cast<uint32_t>(platformCode(EIO))}));
    EXPECT_TRUE(fakeTrace().errorsAre(joined(lines, aftermath(table(), platformCode(EIO)))));
}

TEST_P(FailedCreation, StopsThereAndClosesTheFile) {
    Lines expected = {std::string("semAnnounce ") + table().file};
    for (std::string text : fault().created)
        expected.push_back(text.replace(text.find('#'), 1, table().file));
    const std::string size = std::to_string(table().sizeBytes);
    expected = joined(expected, {"free " + size, std::string("sys.close ") + table().file});
    const Lines steps = stepsOf(table());
    ASSERT_GE(steps.size(), 8 + expected.size());
    EXPECT_THAT(Lines(steps.begin() + 8, steps.begin() + 8 + static_cast<std::ptrdiff_t>(expected.size())),
                ElementsAreArray(expected));
}

TEST_P(FailedCreation, TheTableIsUnmappedByTheDetach) {
    eventLog().clear();
    EXPECT_EQ(detach(), 0);
    EXPECT_THAT(eventLog().lines(Category::libc),
                testing::Contains("sys.munmap " + std::string(table().file) + " " + std::to_string(table().sizeBytes)));
}

}  // namespace
}  // namespace tavdb_test
