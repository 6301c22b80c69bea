// SPDX-License-Identifier: Apache-2.0
// SQLite: a table with the number as its key and an index on the path, in WAL mode,
// with prepared statements.
#include <sqlite3.h>

#include "device.h"
#include "peer.h"

namespace tavdb_benchmark {

namespace {

class SqlitePeer : public Peer {
public:
    SqlitePeer(const std::string &place, uint32_t settings) {
        if (sqlite3_open((place + "/settings.sqlite").c_str(), &database_) != SQLITE_OK)
            giveUp("SQLite cannot open its file");
        execute("PRAGMA journal_mode=WAL");
        execute("PRAGMA synchronous=OFF");
        execute("CREATE TABLE setting(number INTEGER PRIMARY KEY, path TEXT UNIQUE, value INTEGER)");
        insert_ = prepare("INSERT INTO setting VALUES(?1, ?2, ?3)");
        read_ = prepare("SELECT value FROM setting WHERE number=?1");
        find_ = prepare("SELECT value FROM setting WHERE path=?1");
        write_ = prepare("UPDATE setting SET value=?2 WHERE number=?1");
        walk_ = prepare("SELECT number, value FROM setting");
        delete_ = prepare("DELETE FROM setting WHERE number=?1");
        execute("BEGIN");
        for (uint32_t i = 0; i < settings; i++)
            insert(i, pathOf(i));
        execute("COMMIT");
    }
    ~SqlitePeer() override {
        for (sqlite3_stmt *const statement : {insert_, read_, find_, write_, walk_, delete_})
            sqlite3_finalize(statement);
        sqlite3_close(database_);
    }

    bool read(uint32_t number, uint32_t &value) override {
        sqlite3_bind_int64(read_, 1, number);
        return valueOf(read_, value);
    }
    bool find(const std::string &path, uint32_t &value) override {
        sqlite3_bind_text(find_, 1, path.data(), static_cast<int>(path.size()), SQLITE_STATIC);
        return valueOf(find_, value);
    }
    bool write(uint32_t number, uint32_t value) override {
        sqlite3_bind_int64(write_, 1, number);
        sqlite3_bind_int64(write_, 2, value);
        return isDone(write_);
    }
    uint32_t walk() override {
        uint32_t count = 0;
        for (; sqlite3_step(walk_) == SQLITE_ROW; ++count)
            sqlite3_column_int64(walk_, 1);
        sqlite3_reset(walk_);
        return count;
    }
    bool makeAndDelete(uint32_t number) override {
        sqlite3_bind_int64(delete_, 1, number);
        return insert(number, "/new") && isDone(delete_);
    }

private:
    void execute(const char *text) {
        if (sqlite3_exec(database_, text, nullptr, nullptr, nullptr) != SQLITE_OK)
            giveUp(std::string("SQLite: ") + text);
    }
    sqlite3_stmt *prepare(const char *text) {
        sqlite3_stmt *statement = nullptr;
        if (sqlite3_prepare_v2(database_, text, -1, &statement, nullptr) != SQLITE_OK)
            giveUp(std::string("SQLite: ") + text);
        return statement;
    }
    static bool isDone(sqlite3_stmt *statement) {
        const bool isGood = sqlite3_step(statement) == SQLITE_DONE;
        sqlite3_reset(statement);
        return isGood;
    }
    static bool valueOf(sqlite3_stmt *statement, uint32_t &value) {
        const bool isThere = sqlite3_step(statement) == SQLITE_ROW;
        if (isThere)
            value = static_cast<uint32_t>(sqlite3_column_int64(statement, 0));
        sqlite3_reset(statement);
        return isThere;
    }
    bool insert(uint32_t number, const std::string &path) {
        sqlite3_bind_int64(insert_, 1, number);
        sqlite3_bind_text(insert_, 2, path.data(), static_cast<int>(path.size()), SQLITE_TRANSIENT);
        sqlite3_bind_int64(insert_, 3, number);
        return isDone(insert_);
    }

    sqlite3 *database_ = nullptr;
    sqlite3_stmt *insert_ = nullptr;
    sqlite3_stmt *read_ = nullptr;
    sqlite3_stmt *find_ = nullptr;
    sqlite3_stmt *write_ = nullptr;
    sqlite3_stmt *walk_ = nullptr;
    sqlite3_stmt *delete_ = nullptr;
};

}  // namespace

std::vector<PeerRow> sqlitePeers() {
    return {{"SQLite", [](const std::string &place, uint32_t settings) -> std::unique_ptr<Peer> {
                 return std::make_unique<SqlitePeer>(place, settings);
             }}};
}

}  // namespace tavdb_benchmark
