// SPDX-License-Identifier: Apache-2.0
#include "peer.h"

#include <filesystem>

#include "workloads.h"

namespace tavdb_benchmark {

namespace {

std::vector<PeerRow> peers() {
    std::vector<PeerRow> all;
    [[maybe_unused]] const auto join = [&all](const std::vector<PeerRow> &rows) {
        all.insert(all.end(), rows.begin(), rows.end());
    };
#ifdef TAVDB_HAS_LMDB
    join(lmdbPeers());
#endif
#ifdef TAVDB_HAS_TDB
    join(tdbPeers());
#endif
#ifdef TAVDB_HAS_SQLITE
    join(sqlitePeers());
#endif
    return all;
}

void addReads(const PeerRow &row, Peer &peer, uint32_t settings) {
    add(nameOf("read u32", row.name, settings), [&peer, settings](auto &state) {
        Round<uint32_t> numbers(shuffled(settings, Kind::u32));
        uint32_t value = 0;
        measure(state, [&] { return peer.read(numbers.next(), value); });
        benchmark::DoNotOptimize(value);
    });
}

void addRest(const PeerRow &row, Peer &peer, uint32_t settings) {
    add(nameOf("write u32", row.name, settings), [&peer, settings](auto &state) {
        Round<uint32_t> numbers(shuffled(settings, Kind::u32));
        uint32_t value = 0;
        measure(state, [&] { return peer.write(numbers.next(), ++value); });
    });
    add(nameOf("find by name", row.name, settings), [&peer, settings](auto &state) {
        std::vector<std::string> paths;
        for (const uint32_t i : shuffled(settings, Kind::u32))
            paths.push_back(pathOf(i));
        Round<std::string> round(std::move(paths));
        uint32_t value = 0;
        measure(state, [&] { return peer.find(round.next(), value); });
    });
    add(nameOf("walk and read all", row.name, settings),
        [&peer, settings](auto &state) { measure(state, [&] { return peer.walk() == settings; }); });
    add(nameOf("make and delete", row.name, settings),
        [&peer, settings](auto &state) { measure(state, [&] { return peer.makeAndDelete(settings); }); });
}

}  // namespace

void addPeers(const std::string &place, uint32_t settings) {
    static std::vector<std::unique_ptr<Peer>> s_open;  // until the end of the program
    for (const PeerRow &row : peers()) {
        const std::string folder = place + '/' + row.name;
        std::filesystem::create_directories(folder);
        s_open.push_back(row.make(folder, settings));
        addReads(row, *s_open.back(), settings);
        if (!row.onlyReads)
            addRest(row, *s_open.back(), settings);
    }
}

}  // namespace tavdb_benchmark
