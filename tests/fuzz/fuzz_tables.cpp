// SPDX-License-Identifier: Apache-2.0
// The three tables that processes share, with words of them overwritten by whatever
// an input says, as a process that went mad would.
#include <sys/file.h>

#include <cstdio>
#include <cstdlib>
#include <iterator>

#include "fuzz/fuzz_database.h"
#include "fuzz/fuzz_table.h"
#include "fuzz/fuzz_target.h"

namespace tavdb_fuzz {
namespace {

Table &table(uint32_t number) {
    static Table sessions("session.tbl", sizeof(tavDBMSessionTable));
    static Table locks("lock.tbl", sizeof(tavDBMLockTable));
    static Table *const tables[] = {&control(), &sessions, &locks};
    return *tables[number % std::size(tables)];
}

/// Attaching fills the first free entry.
void attachAgain() {
    control().writtenEntry(control().as<tavDBMControlTable>().freeHead);
    int32_t error = 0;
    dbs_me_db_control_init_table_entry(&description(), &error);
}

void restoreAll() {
    control().writtenLinks();
    table(1).writtenAll();
    table(2).writtenAll();
    for (uint32_t i = 0; i < 3; ++i)
        table(i).restore();
}

/// Now and then, since it takes as long as some inputs.
void expectRestored() {
    constexpr uint32_t kInputs = 64;
    static uint32_t s_inputs;
    if (s_inputs++ % kInputs != 0)
        return;
    for (uint32_t i = 0; i < 3; ++i)
        if (!table(i).isAsFound()) {
            fprintf(stderr, "table %u: an input has left something behind that is not known of\n", i);
            abort();
        }
}

tavDBMSession s_other;
int32_t s_shown;

/// Each list once an input: printing its thousand slots takes longer than all else.
void show(int32_t flags) {
    session_show(flags & ~s_shown);
    s_shown |= flags;
}

constexpr StepFunction kSteps[] = {
    [](const Step &s) { db_getDb(s.a); },
    [](const Step &s) { tavDBMGetRoot(s.session); },
    [](const Step &s) {
        const tavDBMSession before = *s.session;
        s.session->dbId = s.a;
        tavDBMGetChildCount(s.session, s.b);
        *s.session = before;
    },
    [](const Step &) { attachAgain(); },
    [](const Step &s) { dbs_me_db_control_term_table_entry(s.a); },
    [](const Step &s) { tavDBMInitSession(&s_other, s.a); },
    [](const Step &s) {
        s_other.sessionId = s.a;
        tavDBMTermSession(&s_other);
    },
    [](const Step &s) { show(static_cast<int32_t>(s.a)); },
    [](const Step &s) { tavDBMLock(s.session, s.a, TAVDB_LOCK_TRY); },
    [](const Step &s) { tavDBMLock(s.session, s.a, TAVDB_LOCK_TRY | TAVDB_LOCK_SHARED); },
    [](const Step &s) { tavDBMUnlock(s.session, s.a); },
    [](const Step &) { lock_compUnlockAll(); },
};

}  // namespace
}  // namespace tavdb_fuzz

/// Nobody else has these tables, and to be told so for every operation takes a tenth of the time.
extern "C" int flock(int, int) noexcept {
    return 0;
}

int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    using namespace tavdb_fuzz;
    session();
    expectRestored();
    s_shown = 0;
    Input input(data, size);
    for (int patches = input.word<uint8_t>() % 32; patches > 0; --patches) {
        Table &patched = table(input.word<uint8_t>());
        const auto offset = input.word<uint32_t>();
        patched.overwrite(offset, input.word<uint32_t>());
    }
    runScript(input, kSteps);
    restoreAll();
    return 0;
}
