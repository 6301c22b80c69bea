// SPDX-License-Identifier: Apache-2.0
// tavdb lock, unlock, locks and sessions: programs under a lock, and who is seen to
// hold what.
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <thread>

#include "rounds.h"
#include "tools/verbs/verbs_fixture.h"

namespace tavdb_test {
namespace {

using testing::HasSubstr;
using testing::MatchesRegex;

class Lock : public VerbTest {
protected:
    void SetUp() override {
        build(kDevice);
    }
    CommandResult locked(const std::string &path, const std::string &script) const {
        return tavdb({"lock", path, "--", "sh", "-c", script});
    }
    /// Starts a program under a lock, and returns when it runs.
    Started holding(const std::vector<std::string> &options, const std::string &script) const {
        std::filesystem::remove(place / "runs");
        std::vector<std::string> arguments = {"lock"};
        arguments.insert(arguments.end(), options.begin(), options.end());
        arguments.insert(arguments.end(), {"--", "sh", "-c", "touch runs; " + script});
        const auto started = start(arguments);
        for (int i = 0; i < 2000 && !std::filesystem::exists(place / "runs"); i++)
            std::this_thread::sleep_for(std::chrono::milliseconds(10));
        EXPECT_TRUE(std::filesystem::exists(place / "runs"));
        return started;
    }
    Json heldLocks() const {
        return json({"locks"});
    }
};

const std::string kTavdb = TAVDB_COMMAND;

TEST_F(Lock, ExitCodeIsTheProgramsAndTheLockIsGone) {
    EXPECT_EQ(locked("/level", "echo out; echo err >&2; exit 7"), (CommandResult{7, "out\n", "err\n"}));
    EXPECT_EQ(locked("/level", "kill -9 $$").exitCode, 128 + SIGKILL);
    EXPECT_EQ(locked("/level", "true"), says(""));
    EXPECT_EQ(heldLocks(), Json::array());
}

TEST_F(Lock, ArgumentsBehindTheDashesAreTheProgramsOwn) {
    EXPECT_EQ(tavdb({"lock", "/level", "--", "echo", "--json", "-d", "x", "get", "--"}), says("--json -d x get --\n"));
    EXPECT_EQ(tavdb({"lock", "--shared", "/level", "--timeout", "1", "--", "echo", "--shared"}), says("--shared\n"));
}

TEST_F(Lock, KeepsOthersOut) {
    EXPECT_EQ(locked("/level", kTavdb + " set /level 1 --timeout 0.001; true").exitCode, 0);
    EXPECT_EQ(locked("/level", kTavdb + " lock /level --timeout 0.05 -- true"),
              fails(5, "tavdb: /level: the component is locked in a conflicting way\n"));
    EXPECT_EQ(locked("/level", kTavdb + " lock --shared /level --timeout 0.05 -- true").exitCode, 5);
    EXPECT_EQ(locked("/level", kTavdb + " lock /baud -- echo other"), says("other\n"));
}

TEST_F(Lock, WaitsUntilTheLockIsFree) {
    const auto holder = holding({"/level"}, "sleep 0.5");
    EXPECT_EQ(tavdb({"lock", "/level", "--timeout", "20", "--", "echo", "mine"}), says("mine\n"));
    EXPECT_EQ(finish(holder).exitCode, 0);
}

TEST_F(Lock, SharedLocksGoTogether) {
    EXPECT_EQ(
        tavdb({"lock", "--shared", "/level", "--", TAVDB_COMMAND, "lock", "--shared", "/level", "--", "echo", "both"}),
        says("both\n"));
    EXPECT_EQ(
        tavdb({"lock", "--shared", "/level", "--", TAVDB_COMMAND, "lock", "/level", "--timeout", "0.03", "--", "true"})
            .exitCode,
        5);
    EXPECT_EQ(heldLocks(), Json::array());
}

TEST_F(Lock, SignalsArePassedOnAndTheLockIsReleased) {
    for (const int number : {SIGTERM, SIGINT, SIGHUP, SIGQUIT, SIGUSR1}) {
        const auto holder = holding({"/level"}, "exec sleep 20");
        kill(holder.process, number);
        EXPECT_EQ(finish(holder).exitCode, 128 + number);
        EXPECT_EQ(heldLocks(), Json::array());
    }
}

TEST_F(Lock, ProgramMayRefuseASignal) {
    const auto holder = holding({"/level"}, "trap 'echo caught; exit 3' TERM; while :; do sleep 0.05; done");
    // The trap is set a moment after the program began.
    std::this_thread::sleep_for(std::chrono::milliseconds(300));
    kill(holder.process, SIGTERM);
    EXPECT_EQ(finish(holder), (CommandResult{3, "caught\n", ""}));
}

TEST_F(Lock, ProgramStartsWithOrdinarySignals) {
    const auto status = locked("/level", "grep -E 'SigBlk|SigIgn' /proc/self/status").out;
    // Two signals above 31 belong to the C library, and two to the emulator where there is one.
    EXPECT_THAT(status, MatchesRegex("SigBlk:\t0{16}\nSigIgn:\t0{7}[016][08]0{7}\n"));
}

TEST_F(Lock, ProgramsThatCannotBeRun) {
    if (kEmulated)
        GTEST_SKIP() << "the emulator does not report that a program could not be started";
    EXPECT_EQ(tavdb({"lock", "/level", "--", "no-such-program"}),
              fails(3, "tavdb: no-such-program: cannot be run: No such file or directory\n"));
    EXPECT_EQ(tavdb({"lock", "/level", "--", place.path()}).exitCode, 6);
    EXPECT_EQ(heldLocks(), Json::array());
    EXPECT_EQ(tavdb({"lock", "/level"}).exitCode, 2);
    EXPECT_EQ(tavdb({"lock", "/level", "--timeout", "5x", "--", "true"}).exitCode, 2);
    EXPECT_EQ(tavdb({"lock", "/none", "--", "true"}), fails(3, "tavdb: /none: there is no 'none' in /\n"));
}

TEST_F(Lock, LockThatWasTakenAwayIsNotTakenFromItsNextHolder) {
    const auto holder = holding({"/level"}, "while [ -e runs ]; do sleep 0.02; done");
    EXPECT_EQ(tavdb({"unlock", "/level"}), says(""));
    tavdb::image::Attached attached(directory());
    const uint32_t level = attached.at("/level");
    ASSERT_EQ(tavDBMLock(attached.session(), level, TAVDB_LOCK_TRY), 0);
    std::filesystem::remove(place / "runs");
    EXPECT_EQ(finish(holder), (CommandResult{0, "", "tavdb: /level: the lock was taken away while the program ran\n"}));
    EXPECT_EQ(heldLocks().size(), 1U);
    EXPECT_EQ(tavDBMUnlock(attached.session(), level), 0);
}

using Unlock = Lock;

TEST_F(Unlock, ReleasesWhatADeadProcessHeld) {
    const auto holder = holding({"/level"}, "exec sleep 20");
    kill(holder.process, SIGKILL);
    EXPECT_EQ(finish(holder).exitCode, 1000 + SIGKILL);
    const auto locks = heldLocks();
    ASSERT_EQ(locks.size(), 1U);
    EXPECT_EQ(locks[0]["alive"], false);
    EXPECT_THAT(tavdb({"locks"}).out,
                MatchesRegex("/level exclusive, session [0-9]+, process [0-9]+, which is gone\n"));
    EXPECT_THAT(tavdb({"sessions"}).out,
                MatchesRegex("session [0-9]+, database [0-9]+, process [0-9]+, which is gone\n"));
    EXPECT_EQ(tavdb({"lock", "/level", "--timeout", "0.03", "--", "true"}).exitCode, 5);
    EXPECT_EQ(tavdb({"unlock", "/level"}), says(""));
    EXPECT_EQ(tavdb({"lock", "/level", "--", "echo", "free"}), says("free\n"));
    EXPECT_EQ(tavdb({"unlock", "/level"}), fails(3, "tavdb: /level: is not locked\n"));
    EXPECT_EQ(tavdb({"unlock", "/none"}).exitCode, 3);
}

TEST_F(Unlock, OneOfTwoSharedLocks) {
    const auto first = holding({"/level", "--shared"}, "exec sleep 20");
    const auto second = holding({"/level", "--shared"}, "exec sleep 20");
    EXPECT_EQ(heldLocks().size(), 2U);
    EXPECT_EQ(tavdb({"unlock", "/level"}), says(""));
    EXPECT_EQ(heldLocks().size(), 1U);
    for (const auto &holder : {first, second}) {
        kill(holder.process, SIGTERM);
        EXPECT_EQ(finish(holder).exitCode, 128 + SIGTERM);
    }
    EXPECT_EQ(heldLocks(), Json::array());
}

using Users = Lock;

TEST_F(Users, NobodyAndSomebody) {
    EXPECT_EQ(tavdb({"locks"}), says(""));
    EXPECT_EQ(tavdb({"sessions"}), says(""));
    const auto holder = holding({"/network/lan"}, "exec sleep 20");
    const auto locks = heldLocks();
    ASSERT_EQ(locks.size(), 1U);
    EXPECT_EQ(locks[0]["path"], "/network/lan");
    EXPECT_EQ(locks[0]["mode"], "exclusive");
    EXPECT_EQ(locks[0]["process"], holder.process);
    EXPECT_EQ(locks[0]["alive"], true);
    const auto sessions = json({"sessions"});
    ASSERT_EQ(sessions.size(), 1U);
    EXPECT_EQ(sessions[0], Json({{"id", locks[0]["session"]},
                                 {"process", holder.process},
                                 {"database", locks[0]["database"]},
                                 {"alive", true}}));
    kill(holder.process, SIGTERM);
    finish(holder);
}

TEST_F(Users, SessionsDoesNotTouchTheTables) {
    const auto before = filesIn(directory());
    EXPECT_EQ(tavdb({"sessions"}), says(""));
    EXPECT_EQ(tavdb({"locks"}), says(""));
    EXPECT_EQ(filesIn(directory()), before);
}

TEST_F(Users, FaultsOfTheDirectory) {
    EXPECT_EQ(tavdb({"sessions", "-d", "none"}), fails(3, "tavdb: none: there is no such directory\n"));
    EXPECT_EQ(tavdb({"locks", "-d", "none"}), fails(3, "tavdb: none: there is no such directory\n"));
    place.write("db/lock.tbl", "short");
    EXPECT_EQ(tavdb({"locks"}).exitCode, 8);
    place.write("db/session.tbl", "short");
    EXPECT_EQ(tavdb({"sessions"}).exitCode, 8);
}

}  // namespace
}  // namespace tavdb_test
