// SPDX-License-Identifier: Apache-2.0
// tdb: a mapped hash table, locked for each access, by the file or by mutexes in it.
#include <fcntl.h>
#include <signal.h>
#include <stdbool.h>
#include <stdint.h>
#include <stdio.h>
#include <sys/stat.h>
#include <sys/time.h>
#include <sys/types.h>

extern "C" {
#include <tdb.h>
}

#include <cstring>

#include "device.h"
#include "peer.h"

namespace tavdb_benchmark {

namespace {

constexpr int kHashSize = 10007;

TDB_DATA bytesOf(const void *data, size_t size) {
    return {static_cast<unsigned char *>(const_cast<void *>(data)), size};
}
TDB_DATA bytesOf(const uint32_t &number) {
    return bytesOf(&number, sizeof number);
}
TDB_DATA bytesOf(const std::string &text) {
    return bytesOf(text.data(), text.size());
}

class TdbPeer : public Peer {
public:
    TdbPeer(const std::string &place, uint32_t settings, int flags)
        : numbers_(open(place + "/numbers.tdb", flags)), paths_(open(place + "/paths.tdb", flags)) {
        for (uint32_t i = 0; i < settings; i++) {
            if (!write(i, i) || tdb_store(paths_, bytesOf(pathOf(i)), bytesOf(i), TDB_REPLACE) != 0)
                giveUp("tdb cannot be filled");
        }
    }
    ~TdbPeer() override {
        tdb_close(numbers_);
        tdb_close(paths_);
    }

    bool read(uint32_t number, uint32_t &value) override {
        return get(numbers_, bytesOf(number), value);
    }
    bool find(const std::string &path, uint32_t &value) override {
        return get(paths_, bytesOf(path), value);
    }
    bool write(uint32_t number, uint32_t value) override {
        return tdb_store(numbers_, bytesOf(number), bytesOf(value), TDB_REPLACE) == 0;
    }
    uint32_t walk() override {
        const int count = tdb_traverse_read(
            numbers_, [](tdb_context *, TDB_DATA, TDB_DATA, void *) { return 0; }, nullptr);
        return static_cast<uint32_t>(count);
    }
    bool makeAndDelete(uint32_t number) override {
        return write(number, 1) && tdb_delete(numbers_, bytesOf(number)) == 0;
    }

private:
    static tdb_context *open(const std::string &path, int flags) {
        tdb_context *const table = tdb_open(path.c_str(), kHashSize, flags, O_RDWR | O_CREAT, 0664);
        if (table == nullptr)
            giveUp("tdb cannot open " + path);
        return table;
    }
    /// Without a copy in fresh memory, which tdb_fetch would make.
    static bool get(tdb_context *table, TDB_DATA key, uint32_t &value) {
        return tdb_parse_record(
                   table, key,
                   [](TDB_DATA, TDB_DATA data, void *to) {
                       memcpy(to, data.dptr, sizeof(uint32_t));
                       return 0;
                   },
                   &value) == 0;
    }

    tdb_context *numbers_;
    tdb_context *paths_;
};

template <int flags>
std::unique_ptr<Peer> make(const std::string &place, uint32_t settings) {
    return std::make_unique<TdbPeer>(place, settings, flags);
}

}  // namespace

std::vector<PeerRow> tdbPeers() {
    std::vector<PeerRow> rows = {{"tdb", make<TDB_INCOMPATIBLE_HASH>}};
    if (tdb_runtime_check_for_robust_mutexes())
        rows.push_back({"tdb with mutexes", make<TDB_INCOMPATIBLE_HASH | TDB_MUTEX_LOCKING | TDB_CLEAR_IF_FIRST>});
    return rows;
}

}  // namespace tavdb_benchmark
