// SPDX-License-Identifier: Apache-2.0
// A database of made-up settings, built with the command and attached to. The
// library loads one media configuration per process, so a process uses one at a time.
#pragma once

#include <sys/types.h>

#include <cstdint>
#include <string>
#include <vector>

#include "settings.h"
#include "tavdb.h"

namespace tavdb_benchmark {

/// A database directory, and for message media the server of its images.
class Directory {
public:
    /// Builds it below `place`; ends the program with a sentence when that fails.
    /// @param media as the command names them, or "counted" for file media that count calls
    Directory(const std::string &place, const std::string &media, uint32_t settings);
    ~Directory();
    Directory(const Directory &) = delete;
    Directory &operator=(const Directory &) = delete;

    const std::string &path() const {
        return path_;
    }
    const std::string &media() const {
        return media_;
    }
    uint32_t settings() const {
        return settings_;
    }
    tavDBMDescription description() const;

private:
    void countCalls() const;

    std::string path_;
    std::string media_;
    uint32_t settings_;
    pid_t server_ = -1;
};

/// A process attached to a directory, with a session.
class Device {
public:
    explicit Device(const Directory &directory);
    ~Device();
    Device(const Device &) = delete;
    Device &operator=(const Device &) = delete;

    const Directory &directory() const {
        return directory_;
    }
    tavDBMSession *session() {
        return &session_;
    }
    /// The component of a setting.
    uint32_t leaf(uint32_t i) const {
        return leaves_[i];
    }
    /// The components of all settings of a kind in the order of shuffled().
    std::vector<uint32_t> leaves(Kind kind) const;

private:
    void collectLeaves(uint32_t node, int levelsBelow);

    const Directory &directory_;
    uint32_t database_ = 0;
    tavDBMSession session_ = {};
    std::vector<uint32_t> leaves_;  ///< of all settings, in the order of the description
};

/// Ends the program: without what it is asked for there is nothing to measure.
[[noreturn]] void giveUp(const std::string &sentence);

}  // namespace tavdb_benchmark
