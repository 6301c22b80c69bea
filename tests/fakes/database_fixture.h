// SPDX-License-Identifier: Apache-2.0
// What a unit test of the library stands in: a folder of its own, six fake
// media with a configuration file, a filled description; attaching, a session,
// and at the end a look for everything that the library did not give back. The
// library keeps state per process, so every test runs in a process of its own.
#pragma once

#include <gtest/gtest.h>

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "fakes/libc_recorder.h"
#include "fakes/open_resources.h"
#include "fakes/test_surroundings.h"
#include "tavdb.h"

namespace tavdb_test {

/// @name The media of the fixture: hints, and the ids that their places in the configuration give
/// @{
inline constexpr const char *kMediaHints[] = {"component.med", "value.med", "constraint.med",
                                              "string.med",    "data.med",  "text.med"};
inline constexpr uint32_t kComponentMedia = 1;
inline constexpr uint32_t kValueMedia = 2;
inline constexpr uint32_t kConstraintMedia = 3;
inline constexpr uint32_t kStringMedia = 4;
inline constexpr int32_t kDataMedia = 5;
inline constexpr int32_t kTextMedia = 6;
/// Bytes of each of the four media of records; data and text are empty and grow.
inline constexpr uint32_t kRecordMediumSize = 16384;
/// @}

class DatabaseFixture : public testing::Test {
protected:
    void SetUp() override;
    /// As finish(), then everything is as before the test.
    void TearDown() override;

    const std::string &folder() const {
        return folder_.path();
    }
    std::string file(const std::string &name) const {
        return folder_.file(name);
    }
    TestEnvironment &environment() {
        return environment_;
    }

    /// A line of the media configuration that binds the built-in memory functions to a hint.
    static std::string mediaLine(const std::string &hint);
    /// Writes the media configuration file; before attaching.
    void writeMediaConf(const std::vector<std::string> &lines) const;

    /// Makes a nameless root node without children, as a medium's preparer does. @return its key
    static uint32_t putRoot();
    /// Removes the three table files, so that the next attach makes them.
    void removeTables() const;

    /// tavDBMInit with the description, recorded. The result is the database id, or -1 and attachError.
    int32_t attach();
    int32_t attach(const tavDBMDescription &other);
    /// tavDBMTerm for the newest attach, recorded.
    int32_t detach();

    /// Attaches and opens the session, which must succeed; log and trace are then empty.
    void start();
    /// Closes the session and detaches, which must succeed.
    void stop();
    /// Ends the faults and all that is open, then fails the test for what the library still holds.
    void finish();

    tavDBMDescription description{};
    tavDBMSession session{};
    int32_t attachError = 0;

private:
    void fillDescription();
    void createMedia() const;
    void endWhatIsOpen();
    void failForLeftovers();

    TestFolder folder_;
    TestEnvironment environment_;
    OpenResources before_;
    std::vector<int32_t> attached_;  ///< database id of each tavDBMInit not yet matched; -1 for a failed one
    bool sessionOpen_ = false;
};

/// The fixture with the database attached and the session open.
class OpenDatabaseFixture : public DatabaseFixture {
protected:
    void SetUp() override {
        DatabaseFixture::SetUp();
        start();
    }
};

}  // namespace tavdb_test
