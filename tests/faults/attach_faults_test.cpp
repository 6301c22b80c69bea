// SPDX-License-Identifier: Apache-2.0
// Attaching and detaching, of the library and of its modules, while each operation
// of the platform fails in every way there is. The library keeps state per process
// and counts failed starts as well, so every run is a process. Looked at in each:
// answer and trace, that the matching stop gives everything back, and that another
// process can attach to what this one left.
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <sstream>

#include "fakes/database_fixture.h"
#include "fakes/fake_memory.h"
#include "fakes/fake_trace.h"
#include "fakes/fakes.h"
#include "fakes/fault_runs.h"
#include "faults/fault_count.h"
#include "faults/fault_kinds.h"
#include "faults/fault_rows.h"
#include "faults/outcomes.h"
#include "model/tree_fixture.h"

namespace tavdb_test {
namespace {

using testing::IsEmpty;

/// What the calls work on.
struct Attachment {
    const tavDBMDescription *description;
    int32_t error = 0;
    uint32_t dbId = 0;
};

struct AttachRow : Named {
    int64_t (*call)(Attachment &attachment);
    void (*before)(Attachment &attachment);  ///< without faults, in the same process; null for nothing
    void (*after)(Attachment &attachment);   ///< without faults: the matching stop
    bool leavesMapping = false;              ///< there is no stop that matches
};

int64_t start(Attachment &a) {
    return tavDBMInit(a.description, &a.error);
}

void startBefore(Attachment &a) {
    a.dbId = static_cast<uint32_t>(tavDBMInit(a.description, nullptr));
}

void stop(Attachment &) {
    tavDBMTerm(1);
}

void stopTwice(Attachment &a) {
    stop(a);
    stop(a);
}

/// The tables are there, and nothing is attached.
void makeTables(Attachment &a) {
    startBefore(a);
    stop(a);
}

void startTwice(Attachment &a) {
    startBefore(a);
    startBefore(a);
}

int64_t startControl(Attachment &a) {
    return dbs_me_db_control_init(a.description, &a.error);
}

void startControlBefore(Attachment &a) {
    startControl(a);
}

void stopControl(Attachment &) {
    dbs_me_db_control_term(1);
}

template <auto Init, auto Path>
int64_t startTable(Attachment &a) {
    return Init(a.description->*Path);
}

template <auto Init, auto Path>
void startTableBefore(Attachment &a) {
    Init(a.description->*Path);
}

template <auto Term>
int64_t stopModule(Attachment &) {
    return Term();
}

template <auto Term>
void stopModuleAfter(Attachment &) {
    Term();
}

int64_t startMedia(Attachment &a) {
    return media_init(a.description->mediaPath, 0);
}

constexpr auto kSessions = &tavDBMDescription::sessionPath;
constexpr auto kLocks = &tavDBMDescription::lockPath;

const AttachRow kAttachRows[] = {
    {"tavDBMInit", start, nullptr, stop},
    {"tavDBMInit/tables there", start, makeTables, stop},
    {"tavDBMInit/again", start, startBefore, stopTwice},
    {"tavDBMTerm", [](Attachment &) { return int64_t{tavDBMTerm(1)}; }, startBefore, nullptr},
    {"tavDBMTerm/not the last", [](Attachment &) { return int64_t{tavDBMTerm(1)}; }, startTwice, stop},
    {"dbs_me_db_control_init", startControl, nullptr, stopControl},
    {"dbs_me_db_control_init/table there", startControl, makeTables, stopControl},
    {"dbs_me_db_control_init_table", [](Attachment &) { return int64_t{dbs_me_db_control_init_table()}; }, nullptr,
     nullptr, true},
    {"dbs_me_db_control_init_table/table there", [](Attachment &) { return int64_t{dbs_me_db_control_init_table()}; },
     makeTables, nullptr, true},
    {"dbs_me_db_control_term", [](Attachment &) { return int64_t{dbs_me_db_control_term(1)}; }, startControlBefore,
     nullptr},
    {"lock_init", startTable<lock_init, kLocks>, nullptr, stopModuleAfter<lock_term>},
    {"lock_init/table there", startTable<lock_init, kLocks>, makeTables, stopModuleAfter<lock_term>},
    {"lock_term", stopModule<lock_term>, startTableBefore<lock_init, kLocks>, nullptr},
    {"session_init", startTable<session_init, kSessions>, nullptr, stopModuleAfter<session_term>},
    {"session_init/table there", startTable<session_init, kSessions>, makeTables, stopModuleAfter<session_term>},
    {"session_term", stopModule<session_term>, startTableBefore<session_init, kSessions>, nullptr},
    {"media_init", startMedia, nullptr, stopModuleAfter<media_term>},
};

/// Texts that runs in child processes leave for this one.
class Board {
public:
    Board()
        : text_(static_cast<char *>(mmap(nullptr, kSize, PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0))) {}
    ~Board() {
        munmap(text_, kSize);
    }
    Board(const Board &) = delete;
    Board &operator=(const Board &) = delete;

    void add(const std::string &line) {
        const size_t length = strlen(text_);
        ASSERT_LT(length + line.size() + 2, kSize);
        memcpy(text_ + length, (line + '\n').c_str(), line.size() + 2);
    }
    std::set<std::string> lines() const {
        std::istringstream stream(text_);
        std::set<std::string> found;
        for (std::string line; std::getline(stream, line);)
            found.insert(line);
        return found;
    }

private:
    static constexpr size_t kSize = 1U << 20;
    char *text_;
};

/// Another process, started before this one does anything; it goes on when it is told to.
class NextProcess {
public:
    explicit NextProcess(const std::function<bool()> &work) {
        EXPECT_EQ(pipe(ends_), 0);
        child_ = fork();
        if (child_ == 0) {
            char nothing = 0;
            close(ends_[1]);
            while (read(ends_[0], &nothing, 1) > 0) {
            }
            _exit(work() ? 0 : 1);
        }
        close(ends_[0]);
    }
    /// Lets it work. @return whether all went well there
    bool goOn() {
        close(ends_[1]);
        int status = 0;
        return waitpid(child_, &status, 0) == child_ && WIFEXITED(status) && WEXITSTATUS(status) == 0;
    }

private:
    int ends_[2] = {-1, -1};
    pid_t child_ = -1;
};

class AttachFaults : public DatabaseFixture, public testing::WithParamInterface<AttachRow> {
protected:
    void SetUp() override {
        DatabaseFixture::SetUp();
        putRoot();
    }

    void runAll() {
        untouched_ = untouchedOutcome();
        board_.add(textOf(untouched_, untouched_));
        for (const FaultKind &kind : faultKinds())
            for (const Persistence persistence : {Persistence::once, Persistence::forEver}) {
                if (persistence == Persistence::forEver && !lastsHere(kind))
                    continue;
                const auto run = [&](uint64_t index) {
                    SCOPED_TRACE("operation " + std::to_string(index) + ' ' + kind.name +
                                 (persistence == Persistence::once ? "" : " for ever"));
                    runOne();
                };
                faults_ += forEachFailingOperationInChild(run, kind.choose, persistence);
            }
    }

    Board board_;
    uint64_t faults_ = 0;

private:
    /// Of a process of its own, as it cannot be taken back.
    Outcome untouchedOutcome() {
        Board outcome;
        const pid_t child = fork();
        if (child == 0) {
            Attachment attachment = prepared();
            const Recording recording;
            outcome.add(std::to_string(GetParam().call(attachment)) + ' ' + std::to_string(attachment.error));
            _exit(0);
        }
        waitpid(child, nullptr, 0);
        Outcome untouched;
        std::istringstream(*outcome.lines().begin()) >> untouched.result >> untouched.code;
        return untouched;
    }

    Attachment prepared() {
        const FaultPause pause;
        const Recording recording;
        removeTables();
        Attachment attachment = {.description = &description};
        if (GetParam().before != nullptr)
            GetParam().before(attachment);
        fakeTrace().clear();
        errno = 0;
        return attachment;
    }

    void runOne() {
        NextProcess next([this] { return canAttach(); });
        const OpenResources before = OpenResources::now();
        Attachment attachment = prepared();
        const Outcome outcome = called(attachment);
        look(outcome);
        {
            const FaultPause pause;
            const Recording recording;
            if (GetParam().after != nullptr)
                GetParam().after(attachment);
        }
        lookAfterwards(before);
        EXPECT_TRUE(next.goOn()) << "no other process can attach afterwards";
    }

    Outcome called(Attachment &attachment) {
        const Recording recording;
        const int64_t result = GetParam().call(attachment);
        return {result, static_cast<uint32_t>(attachment.error), 0};
    }

    void look(const Outcome &outcome) {
        if (faultPlan().fired()) {
            board_.add(textOf(outcome, untouched_));
        } else {
            EXPECT_EQ(textOf(outcome, untouched_), textOf(untouched_, untouched_)) << "nothing failed";
            EXPECT_TRUE(fakeTrace().noErrors());
        }
        if (outcome != untouched_) {
            EXPECT_THAT(fakeTrace().errors(), testing::Not(IsEmpty())) << textOf(outcome, untouched_);
        }
    }

    void lookAfterwards(const OpenResources &before) {
        const FaultPause pause;
        LibcRecorder::instance().releaseRefusedMappings();
        fakeMemory().checkFreedBlocks();
        EXPECT_THAT(leftInFakes(), IsEmpty());
        const auto left = OpenResources::now().newSince(before);
        EXPECT_LE(left.size(), GetParam().leavesMapping ? 1U : 0U) << testing::PrintToString(left);
    }

    /// In a process that has met no fault.
    bool canAttach() {
        faultPlan().clear();
        const int32_t dbId = tavDBMInit(&description, nullptr);
        tavDBMSession own = {};
        const bool opened = dbId > 0 && tavDBMInitSession(&own, static_cast<uint32_t>(dbId)) == 0;
        return opened && own.currentComponent != 0 && tavDBMTermSession(&own) == 0;
    }

    Outcome untouched_;
};

TEST_P(AttachFaults, WhateverFails) {
    runAll();
    countFaults(faults_);
    EXPECT_GT(faults_, 0U);
    expectOutcomes(GetParam().name, board_.lines());
}

INSTANTIATE_TEST_SUITE_P(All, AttachFaults, testing::ValuesIn(kAttachRows), kTestOfRow);

}  // namespace

std::set<std::string> attachFunctions() {
    std::set<std::string> names;
    for (const AttachRow &row : kAttachRows)
        names.insert(functionOf(row.name));
    return names;
}

}  // namespace tavdb_test
