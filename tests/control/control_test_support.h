// SPDX-License-Identifier: Apache-2.0
// What the tests of the control module share: a look at the shared table files
// from outside the library, expected file images that are built from offsets and
// not from the library's structures, and the numbers of the three tables.
#pragma once

#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <functional>
#include <ostream>
#include <string>
#include <vector>

#include "control/table_view.h"
#include "fakes/byte_text.h"
#include "fakes/database_fixture.h"
#include "tavdb_modules.h"

namespace tavdb_test {

/// Names the rows of a table of tests by their member `name`.
/// One way to damage a table.
template <typename Table>
struct Damage {
    std::string name;
    std::function<void(Table &)> apply;
};

template <typename Table>
void PrintTo(const Damage<Table> &damage, std::ostream *stream) {
    *stream << damage.name;
}

/// As many as the table of a database has room for.
inline constexpr uint32_t kSessions = 1023;

inline constexpr auto byName = [](const auto &row) { return std::string(row.param.name); };

/// first, first + 1, ... last
std::vector<uint32_t> ascending(uint32_t first, uint32_t last);

Bytes bytesOfFile(const std::string &path);
void writeFile(const std::string &path, const Bytes &bytes);

/// An image in which nothing but the named words differs from 0.
class ExpectedImage {
public:
    explicit ExpectedImage(size_t size) : bytes_(size) {}

    void word(size_t offset, uint32_t value) {
        put(offset, bytesOf(value));
    }
    void put(size_t offset, const Bytes &bytes) {
        memcpy(&bytes_.at(offset), bytes.data(), bytes.size());
    }
    const Bytes &bytes() const {
        return bytes_;
    }

private:
    Bytes bytes_;
};

/// @name The tables as they are made, with nothing in use
/// @{
ExpectedImage newControlTable();
ExpectedImage newSessionTable();
ExpectedImage newLockTable();
/// @}

/// The sites of one way in which an opening fails; the second one, if any, carries the path.
struct FailureSites {
    int32_t errnoSite;
    int32_t pathSite;
};

/// One of the three shared tables: what a test has to know to look at any of them in the same way.
struct SharedTable {
    const char *name;
    const char *file;
    size_t sizeBytes;
    ExpectedImage (*made)();
    int32_t shortWriteCode;
    const char *initFunction;  ///< named in the traces of a failed opening
    FailureSites mapExisting, mapNew, write, allocate, open;
    int32_t cascadeSite;  ///< first line of tavDBMInit for a failed start; 0 for the control table
};
inline void PrintTo(const SharedTable &table, std::ostream *stream) {
    *stream << table.name;
}
// The sites of the lock table and 541, 543 are numbers of this project's own, fixed for good.
inline constexpr SharedTable kControl = {
    "Control",  "control.tbl", 541740,     newControlTable, 82,         "dbs_me_db_control_init_table",
    {337, 339}, {378, 380},    {392, 394}, {406, 408},      {423, 425}, 0};
inline constexpr SharedTable kSession = {"Session", "session.tbl",  16412,      newSessionTable,
                                         79,        "session_init", {488, 0},   {517, 0},
                                         {525, 0},  {535, 0},       {541, 543}, 866};
inline constexpr SharedTable kLock = {"Lock",   "lock.tbl", 24624,    newLockTable, 74,         "lock_init",
                                      {100, 0}, {110, 0},   {120, 0}, {130, 0},     {140, 141}, 836};

/// What tavDBMInit traces for a failed start of a module: a line for it and for each one behind it.
std::vector<std::string> cascade(int32_t firstSite, int32_t code);
/// What is traced behind the own lines of an attach that failed at the control table.
std::vector<std::string> controlFailure(int32_t code);
/// Lists one after the other.
std::vector<std::string> joined(std::vector<std::string> first, const std::vector<std::string> &second);

/// The fixture with what the tests of this module do often.
class ControlFixture : public DatabaseFixture {
protected:
    std::string controlPath() const {
        return file(kControl.file);
    }
    std::string sessionPath() const {
        return file(kSession.file);
    }

    /// The fixture's description with another fifth word: another database on the same files.
    tavDBMDescription database(uint32_t fifthWord) const;
    /// Attaches to that many databases, fifth words 1, 2, 3, ...; the last id, or -1.
    int32_t attachMany(uint32_t count);
    /// Empties event log and trace.
    static void clearLogs();
};

/// Runs the steps in a child process, as another process of the device would; a failure in it fails the test.
void inChild(const std::function<void()> &steps);
/// The same; the steps' result comes back.
bool tellFromChild(const std::function<bool()> &steps);

/// The error line of a wrapper, with the fake platform's answer and the handle of that table.
std::string wrapperLine(const char *wrapper, int32_t site, const std::string &table, int32_t code);

/// The value that a module's dump shows under that name; fails the test when there is none.
uint32_t dumped(int32_t (*dump)(int32_t, uint32_t *, uint32_t *), const std::string &name);

}  // namespace tavdb_test
