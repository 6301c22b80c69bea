// SPDX-License-Identifier: Apache-2.0
// The three tables that processes share, with words of them overwritten by whatever
// an input says, as a process that went mad would.
#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

#include "fuzz/fuzz_database.h"
#include "fuzz/fuzz_place.h"
#include "fuzz/fuzz_target.h"

namespace tavdb_fuzz {
namespace {

/// A table file, mapped a second time, and its bytes as they were found.
class Table {
public:
    Table(const char *name, size_t size) : size_(size) {
        const int fd = open(fileInPlace(name).c_str(), O_RDWR | O_CLOEXEC);
        bytes_ = static_cast<uint8_t *>(mmap(nullptr, size, PROT_READ | PROT_WRITE, MAP_SHARED, fd, 0));
        close(fd);
        if (bytes_ == MAP_FAILED)
            abort();
        found_.assign(bytes_, bytes_ + size);
    }
    void restore() const {
        memcpy(bytes_, found_.data(), size_);
    }
    void overwrite(uint32_t offset, uint32_t word) const {
        memcpy(bytes_ + offset % (size_ - sizeof word), &word, sizeof word);
    }

private:
    size_t size_;
    uint8_t *bytes_;
    Bytes found_;
};

const Table &table(uint32_t number) {
    static const Table tables[] = {{"control.tbl", sizeof(tavDBMControlTable)},
                                   {"session.tbl", sizeof(tavDBMSessionTable)},
                                   {"lock.tbl", sizeof(tavDBMLockTable)}};
    return tables[number % 3];
}

tavDBMSession s_other;

constexpr StepFunction kSteps[] = {
    [](const Step &s) { db_getDb(s.a); },
    [](const Step &s) { tavDBMGetRoot(s.session); },
    [](const Step &s) {
        const tavDBMSession before = *s.session;
        s.session->dbId = s.a;
        tavDBMGetChildCount(s.session, s.b);
        *s.session = before;
    },
    [](const Step &) {
        int32_t error = 0;
        dbs_me_db_control_init_table_entry(&description(), &error);
    },
    [](const Step &s) { dbs_me_db_control_term_table_entry(s.a); },
    [](const Step &s) { tavDBMInitSession(&s_other, s.a); },
    [](const Step &s) {
        s_other.sessionId = s.a;
        tavDBMTermSession(&s_other);
    },
    [](const Step &s) { session_show(static_cast<int32_t>(s.a)); },
    [](const Step &s) { tavDBMLock(s.session, s.a, TAVDB_LOCK_TRY); },
    [](const Step &s) { tavDBMLock(s.session, s.a, TAVDB_LOCK_TRY | TAVDB_LOCK_SHARED); },
    [](const Step &s) { tavDBMUnlock(s.session, s.a); },
    [](const Step &) { lock_compUnlockAll(); },
};

}  // namespace
}  // namespace tavdb_fuzz

int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    using namespace tavdb_fuzz;
    session();
    for (uint32_t i = 0; i < 3; ++i)
        table(i).restore();
    Input input(data, size);
    for (int patches = input.word<uint8_t>() % 32; patches > 0; --patches) {
        const Table &patched = table(input.word<uint8_t>());
        const auto offset = input.word<uint32_t>();
        patched.overwrite(offset, input.word<uint32_t>());
    }
    runScript(input, kSteps);
    return 0;
}
