// SPDX-License-Identifier: Apache-2.0
// What the tests of media and file list share: loading the media table without
// a database, and the look at a failure from all its sides. The sites of trace
// lines stand here too, since they name their places for good.
#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdint>
#include <string>
#include <vector>

#include "fakes/byte_text.h"
#include "fakes/database_fixture.h"
#include "fakes/event_log.h"
#include "fakes/fake_media.h"
#include "fakes/fake_memory.h"
#include "fakes/fake_trace.h"
#include "fakes/fault_plan.h"
#include "tavdb_modules.h"
#include "tavdb_platform.h"

namespace tavdb_test {

/// Sites of the media module; whatever moves in the library, they keep their numbers.
enum MediaSite : int32_t {
    kLibraryStartSite = 200,
    kConfFileSite = 210,
    kLineBufferSite = 220,
    kRejectedLineSite = 230,
    kGetMediaSite = 240,
    kSyncOpenSite = 250,
    kSyncSite = 260,
    kTokenLibrarySite = 290,
    kTokenDebugSite = 300,
    kNoHintSite = 370,
    kHintNotKeptSite = 371,
    kEntryInitSite = 100,
    kEntryHandleSite = 110,
    kEntryDebugLookupSite = 180,
    kEntryDebugSite = 280
};

/// No database: the media table alone, loaded when the test says so.
class MediaTest : public DatabaseFixture {
protected:
    /// What stands in the session before a call; nothing here records these numbers.
    static constexpr uint32_t kStaleCode = 33;
    static constexpr uint32_t kStaleDetail = 0x5A5A;

    void SetUp() override;
    /// Matches every load with an unload, then as the fixture.
    void TearDown() override;

    std::string confPath() const {
        return file("media.conf");
    }
    /// The configuration file, byte for byte.
    void writeConfText(const std::string &text) const;
    /// A valid line; hints name the fixture's media.
    static std::string line(const std::string &hint = "data.med") {
        return mediaLine(hint);
    }

    /// media_init on the configuration file, recorded; with lines, they are written first.
    int32_t load(uint32_t arg = 0);
    int32_t load(const std::vector<std::string> &lines);
    /// media_term, recorded.
    int32_t unload();

    /// From here on: session, trace, log and media.
    void observe();
    /// Session code and detail, and the lines of level 0.
    testing::AssertionResult failedWith(int32_t code, uint32_t detail, const std::vector<std::string> &lines) const;
    /// No line of level 0, and the session's error stands as it stood.
    testing::AssertionResult silent() const;
    testing::AssertionResult sessionUntouched() const;
    testing::AssertionResult mediaUnchanged() const;

private:
    int loads_ = 0;
    MediaImage before_;
};

/// The fixture's six media are loaded.
class LoadedMediaTest : public MediaTest {
protected:
    void SetUp() override;
};

/// Names a test after its parameter, a row with a name.
inline constexpr auto kRowName = [](const auto &test) { return std::string(test.param.name); };

/// The low 32 bits of the address of a function of the library, as a dump shows them; 0 when it exports none.
uint32_t addressInLibrary(const std::string &name);

/// A function name and its address from each dump line "[0x%8x]:name" of a level, in order.
struct DumpedWord {
    uint32_t value;
    std::string name;
    bool operator==(const DumpedWord &) const = default;
};
std::vector<DumpedWord> dumpedWords(int32_t level);

}  // namespace tavdb_test
