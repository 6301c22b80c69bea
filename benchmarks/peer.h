// SPDX-License-Identifier: Apache-2.0
// Another store with the same settings in it, each under its number and under its
// path. A store has no types and no ranges: what it does is less than what the
// library does, and its figures are to be read so.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

namespace tavdb_benchmark {

class Peer {
public:
    virtual ~Peer() = default;

    /// @return whether it is there
    virtual bool read(uint32_t number, uint32_t &value) = 0;
    /// One write that others see when it returns, not flushed to the device.
    virtual bool write(uint32_t number, uint32_t value) = 0;
    virtual bool find(const std::string &path, uint32_t &value) = 0;
    /// @return the settings that were read
    virtual uint32_t walk() = 0;
    /// A new entry that is deleted again.
    virtual bool makeAndDelete(uint32_t number) = 0;
};

using MakePeer = std::unique_ptr<Peer> (*)(const std::string &place, uint32_t settings);

struct PeerRow {
    const char *name;
    MakePeer make;
    bool onlyReads = false;  ///< a variant that differs in reading only
};

/// @name The stores that were there when this was built
/// @{
std::vector<PeerRow> lmdbPeers();
std::vector<PeerRow> tdbPeers();
std::vector<PeerRow> sqlitePeers();
/// @}

}  // namespace tavdb_benchmark
