// SPDX-License-Identifier: Apache-2.0
// What the tests of the media file library share: a database folder with images,
// media functions that return their error number along with their result, child
// processes, and file systems of a known size.
#pragma once

#include <gtest/gtest.h>

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "system_call_faults.h"
#include "tavdb_platform.h"

struct TraceLine {
    int32_t level;
    std::string text;
};

/// All lines since the last call, oldest first.
std::vector<TraceLine> takeTrace();

/// Makes the allocation after `count` further ones fail, once; -1: none fails.
void failAllocationAfter(int32_t count);
/// Blocks that were allocated and not given back.
int32_t liveBlocks();

/// A result with the error word that came with it; the word is kNoError when none was stored.
struct Outcome {
    int32_t result;
    uint32_t error;
    bool operator==(const Outcome &) const = default;
};
inline constexpr uint32_t kNoError = 0xEEEEEEEE;
void PrintTo(const Outcome &outcome, std::ostream *stream);

Outcome failure(int error);
Outcome success(int32_t result);

/// The functions of one kind of medium.
struct Medium {
    tavDBMMediaOpen open;
    tavDBMMediaClose close;
    tavDBMMediaRead read;
    tavDBMMediaWrite write;
    tavDBMMediaSeek seek;
    tavDBMMediaSync sync;
};
extern const Medium memoryMedium;
extern const Medium fileMedium;
extern const Medium romMedium;
extern const Medium messageMedium;

Outcome openMedium(const Medium &medium, const std::string &hint);
Outcome closeMedium(const Medium &medium, int32_t fd);
Outcome writeMedium(const Medium &medium, int32_t fd, const std::string &bytes, uint32_t offset);
Outcome seekMedium(const Medium &medium, int32_t fd, int32_t offset, int whence);
/// @param bytes receives what was read
Outcome readMedium(const Medium &medium, int32_t fd, int32_t length, uint32_t offset, std::string *bytes);
/// The bytes of a read that must succeed; fewer than length at the end.
std::string bytesOf(const Medium &medium, int32_t fd, int32_t length, uint32_t offset);

/// A database folder whose media configuration has been handed over.
class MediaTest : public ::testing::Test {
protected:
    MediaTest();
    ~MediaTest() override;

    const std::string &folder() const {
        return folder_;
    }
    std::string pathOf(const std::string &name) const {
        return folder_ + "/" + name;
    }
    /// dbs_me_db_media_file_init with the folder's media.conf.
    void initialise();
    void writeFile(const std::string &name, const std::string &content);
    std::string readFile(const std::string &name);
    /// A memory medium's descriptor; the test fails when there is none.
    static int32_t mapped(const std::string &hint);

private:
    std::string folder_;
};

/// Results of inChild.
inline constexpr int kChildDone = 0;
inline constexpr int kChildKilled = 1000;  ///< plus the signal

/// Runs `work` in a child process that is killed after 30 s. @return its result, or kChildKilled + signal
int inChild(const std::function<int()> &work);

/// Two processes that take turns.
class Baton {
public:
    Baton();
    ~Baton();
    Baton(const Baton &) = delete;
    Baton &operator=(const Baton &) = delete;
    void pass();
    void await();

private:
    int pipe_[2];
};

/**
 * Runs `work` in a child with a file system mounted on `folder`.
 * @return the child's result, or kNotPermitted where tests may not mount
 */
inline constexpr int kNotPermitted = 77;
int withFileSystem(const std::string &type, const std::string &options, const std::string &folder,
                   const std::function<int()> &work);

int openDescriptors();
/// Mappings of files below a folder.
int mappingsOf(const std::string &folder);
