// SPDX-License-Identifier: Apache-2.0
// LMDB: a mapped B+ tree. Readers take a snapshot, a writer commits a transaction.
#include <lmdb.h>

#include <cstring>

#include "device.h"
#include "peer.h"

namespace tavdb_benchmark {

namespace {

constexpr size_t kMapBytes = size_t{256} << 20;

void must(int code, const char *what) {
    if (code != 0)
        giveUp(std::string("LMDB: ") + what + ": " + mdb_strerror(code));
}

MDB_val bytesOf(uint32_t &number) {
    return {sizeof number, &number};
}
MDB_val bytesOf(const std::string &text) {
    return {text.size(), const_cast<char *>(text.data())};
}

class LmdbPeer : public Peer {
public:
    /// @param heldSnapshot: reads never see what was written after the first one
    LmdbPeer(const std::string &place, uint32_t settings, bool heldSnapshot) : heldSnapshot_(heldSnapshot) {
        must(mdb_env_create(&environment_), "create");
        must(mdb_env_set_mapsize(environment_, kMapBytes), "size");
        must(mdb_env_set_maxdbs(environment_, 2), "databases");
        must(mdb_env_open(environment_, place.c_str(), MDB_NOSYNC | MDB_WRITEMAP, 0664), "open");
        fill(settings);
        must(mdb_txn_begin(environment_, nullptr, MDB_RDONLY, &reader_), "begin");
        if (!heldSnapshot_)
            mdb_txn_reset(reader_);
    }
    ~LmdbPeer() override {
        mdb_txn_abort(reader_);
        mdb_env_close(environment_);
    }

    bool read(uint32_t number, uint32_t &value) override {
        return get(numbers_, bytesOf(number), value);
    }
    bool find(const std::string &path, uint32_t &value) override {
        return get(paths_, bytesOf(path), value);
    }
    bool write(uint32_t number, uint32_t value) override {
        MDB_val key = bytesOf(number);
        MDB_val data = bytesOf(value);
        MDB_txn *writer = nullptr;
        return mdb_txn_begin(environment_, nullptr, 0, &writer) == 0 &&
               mdb_put(writer, numbers_, &key, &data, 0) == 0 && mdb_txn_commit(writer) == 0;
    }
    uint32_t walk() override {
        MDB_cursor *cursor = nullptr;
        MDB_val key;
        MDB_val data;
        uint32_t count = 0;
        mdb_txn_renew(reader_);
        mdb_cursor_open(reader_, numbers_, &cursor);
        for (int code = mdb_cursor_get(cursor, &key, &data, MDB_FIRST); code == 0; ++count)
            code = mdb_cursor_get(cursor, &key, &data, MDB_NEXT);
        mdb_cursor_close(cursor);
        mdb_txn_reset(reader_);
        return count;
    }
    bool makeAndDelete(uint32_t number) override {
        MDB_val key = bytesOf(number);
        MDB_txn *writer = nullptr;
        return write(number, 1) && mdb_txn_begin(environment_, nullptr, 0, &writer) == 0 &&
               mdb_del(writer, numbers_, &key, nullptr) == 0 && mdb_txn_commit(writer) == 0;
    }

private:
    void fill(uint32_t settings) {
        MDB_txn *writer = nullptr;
        must(mdb_txn_begin(environment_, nullptr, 0, &writer), "begin");
        must(mdb_dbi_open(writer, "numbers", MDB_CREATE | MDB_INTEGERKEY, &numbers_), "table");
        must(mdb_dbi_open(writer, "paths", MDB_CREATE, &paths_), "table");
        for (uint32_t i = 0; i < settings; i++) {
            const std::string path = pathOf(i);
            MDB_val number = bytesOf(i);
            MDB_val name = bytesOf(path);
            must(mdb_put(writer, numbers_, &number, &number, 0), "put");
            must(mdb_put(writer, paths_, &name, &number, 0), "put");
        }
        must(mdb_txn_commit(writer), "commit");
    }
    bool get(MDB_dbi table, MDB_val key, uint32_t &value) {
        if (!heldSnapshot_)
            mdb_txn_renew(reader_);
        MDB_val data;
        const bool isThere = mdb_get(reader_, table, &key, &data) == 0;
        if (isThere)
            memcpy(&value, data.mv_data, sizeof value);
        if (!heldSnapshot_)
            mdb_txn_reset(reader_);
        return isThere;
    }

    const bool heldSnapshot_;
    MDB_env *environment_ = nullptr;
    MDB_txn *reader_ = nullptr;
    MDB_dbi numbers_ = 0;
    MDB_dbi paths_ = 0;
};

template <bool heldSnapshot>
std::unique_ptr<Peer> make(const std::string &place, uint32_t settings) {
    return std::make_unique<LmdbPeer>(place, settings, heldSnapshot);
}

}  // namespace

std::vector<PeerRow> lmdbPeers() {
    return {{"LMDB", make<false>}, {"LMDB in one snapshot", make<true>, true}};
}

}  // namespace tavdb_benchmark
