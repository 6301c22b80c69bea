// SPDX-License-Identifier: Apache-2.0
#include "multiprocess/multiprocess_test_support.h"

#include <errno.h>
#include <fcntl.h>
#include <unistd.h>

#include <cstring>
#include <fstream>
#include <sstream>

#include "port/contract/linux_media_server.h"
#include "tavdb_platform.h"

namespace tavdb_test {

namespace {

constexpr const char *kMedia[] = {"component.med", "value.med", "constraint.med", "string.med"};
constexpr char kPortLibrary[] = "libtavdbfile.so ";
constexpr char kSocket[] = ".sock";  ///< behind the image's name

#ifdef TAVDB_TEST_MEDIA_SERVER
void serve(const std::string &image) {
    tavdb::test::serveImage(image, image + kSocket);
}
void stopServers() {
    tavdb::test::stopServing();
}
#else
void serve(const std::string &) {}
void stopServers() {}
#endif

/// Counts in how many lists each record is.
template <size_t Slots>
class Membership {
public:
    template <typename Record>
    void add(const Record (&records)[Slots], uint32_t head) {
        for (const uint32_t index : chain(records, head))
            counts_[index]++;
    }
    /// "3 in 2 lists", for each record from 1 to the capacity that is not in one.
    std::string faults(uint32_t capacity) const {
        std::string text;
        for (uint32_t i = 1; i <= capacity; i++)
            if (counts_[i] != 1)
                text += std::to_string(i) + " in " + std::to_string(counts_[i]) + " lists; ";
        if (counts_[0] + counts_[Slots - 1] != 0)
            text += "an unused record is in a list; ";
        return text;
    }

private:
    std::array<uint32_t, Slots> counts_ = {};
};

template <typename Record, size_t Slots>
std::string queueFaults(const Record (&records)[Slots], uint32_t head, uint32_t tail) {
    const std::vector<uint32_t> indices = chain(records, head);
    const uint32_t last = indices.empty() ? 0 : indices.back();
    return last == tail ? "" : "the tail is " + std::to_string(tail) + " and not " + std::to_string(last) + "; ";
}

template <typename Record, size_t Slots>
std::string listFaults(const Record (&records)[Slots], uint32_t used, uint32_t free) {
    Membership<Slots> membership;
    membership.add(records, used);
    membership.add(records, free);
    return membership.faults(Slots == 33 ? kDatabases : Slots - 2);
}

void copyPath(char (&field)[TAVDB_PATH_SIZE], const std::string &path) {
    strncpy(field, path.c_str(), sizeof field - 1);
}

/// A medium of records: a root node on the first one, the rest one free block.
void writeMedium(const std::string &path, uint32_t sizeBytes, bool hasRoot) {
    std::vector<uint32_t> words(sizeBytes / sizeof(uint32_t));
    const uint32_t firstFree = hasRoot ? kRootKey + 28 : 16;
    words[2] = hasRoot ? kRootKey : 0;
    words[3] = firstFree;
    words[firstFree / 4 + 1] = sizeBytes - firstFree;
    if (hasRoot)
        words[kRootKey / 4] = kRootKey;
    std::ofstream(path, std::ios::binary)
        .write(reinterpret_cast<const char *>(words.data()), static_cast<std::streamsize>(sizeBytes));
}

}  // namespace

std::string faultsOf(const tavDBMControlTable &table) {
    std::string text = listFaults(table.entry, table.usedHead, table.freeHead) +
                       queueFaults(table.entry, table.freeHead, table.freeTail);
    for (const uint32_t index : chain(table.entry, table.usedHead))
        if (table.entry[index].refCount == 0)
            text += std::to_string(index) + " is in use without a reference; ";
    for (uint32_t i = 1; i <= kDatabases; i++)
        if (table.entry[i].dbId != i)
            text += std::to_string(i) + " has another id; ";
    return text;
}

std::string faultsOf(const tavDBMSessionTable &table) {
    std::string text = listFaults(table.slot, table.sessionHead, table.freeHead) +
                       queueFaults(table.slot, table.freeHead, table.freeTail);
    for (uint32_t i = 1; i <= kSessions; i++)
        if (table.slot[i].sessionId != i)
            text += std::to_string(i) + " has another id; ";
    return text;
}

std::string faultsOf(const tavDBMLockTable &table) {
    std::string text = listFaults(table.entry, table.first, table.freeHead);
    uint32_t previous = 0;
    for (const uint32_t index : chain(table.entry, table.first)) {
        if (table.entry[index].prev != previous)
            text += std::to_string(index) + " has a wrong predecessor; ";
        previous = index;
    }
    if (table.last != previous)
        text += "the last lock is not the last of the list; ";
    return text;
}

DatabaseFolder::DatabaseFolder(uint32_t mediumBytes, const MediaKind &kind) : kind_(kind) {
    for (const char *const medium : kMedia) {
        writeMedium(path(medium), mediumBytes, medium == kMedia[0]);
        if (kind.isServed)
            serve(path(medium));
    }
    writeMediaConf(std::string(kPortLibrary) + kind.functions);
    setenv("TAVDB_DBTABLE", path(Table::control).c_str(), 1);
}

DatabaseFolder::~DatabaseFolder() {
    if (kind_.isServed)
        stopServers();
}

void DatabaseFolder::writeMediaConf(const std::string &componentFunctions) const {
    std::ofstream conf(path("media.conf"));
    for (const char *const medium : kMedia)
        conf << (medium == kMedia[0] ? componentFunctions : std::string(kPortLibrary) + kind_.functions) << ' '
             << path(medium) << (kind_.isServed ? kSocket : "") << '\n';
}

tavDBMDescription DatabaseFolder::description(uint32_t fifthWord) const {
    tavDBMDescription description = {};
    copyPath(description.sessionPath, path(Table::session));
    copyPath(description.lockPath, path(Table::lock));
    copyPath(description.mediaPath, path("media.conf"));
    copyPath(description.hookPath, path("hooks.conf"));
    description.componentMedia = 1;
    description.valueMedia = 2;
    description.constraintMedia = 3;
    description.stringMedia = 4;
    description.fifthWord = fifthWord;
    return description;
}

int32_t DatabaseFolder::attach(uint32_t fifthWord, int32_t *error) const {
    const tavDBMDescription wanted = description(fifthWord);
    return tavDBMInit(&wanted, error);
}

bool DatabaseFolder::removeTables() const {
    for (const char *const table : kTableFiles)
        if (unlink(path(table).c_str()) != 0)
            return false;
    return true;
}

bool DatabaseFolder::cleanUp() const {
    if (attach() != 1)
        return false;
    for (const uint32_t id : sessions()) {
        tavDBMSession session = {};
        session.sessionId = id;
        if (tavDBMTermSession(&session) != 0)
            return false;
    }
    lock_compUnlockAll();
    for (uint32_t id = 1; id <= kDatabases; id++)
        while (dbs_me_db_control_term_table_entry(id) == 0) {
        }
    return true;
}

int DatabaseFolder::fill() const {
    int32_t error = 0;
    for (uint32_t i = 1; i <= kDatabases; i++)
        if (attach(i, &error) < 1)
            return 10;
    if (attach(1000, &error) != -1 || error != TAVDB_ERR_DATABASES_FULL)
        return 11;
    tavDBMSession session = {};
    for (uint32_t i = 1; i <= kSessions; i++)
        if (tavDBMInitSession(&session, 1) != 0)
            return 12;
    if (tavDBMInitSession(&session, 1) != TAVDB_ERR_SESSIONS_FULL)
        return 13;
    for (uint32_t i = 1; i <= kLocks; i++)
        if (tavDBMLock(&session, i, TAVDB_LOCK_TRY) != 0)
            return 14;
    return tavDBMLock(&session, kLocks + 1, TAVDB_LOCK_TRY) == TAVDB_ERR_LOCK_FULL ? 0 : 15;
}

std::vector<uint32_t> DatabaseFolder::sessions() const {
    const SessionView table(path(Table::session));
    return chain(table->slot, table->sessionHead);
}

std::string DatabaseFolder::faults() const {
    return faultsOf(*ControlView(path(Table::control))) + faultsOf(*SessionView(path(Table::session))) +
           faultsOf(*LockView(path(Table::lock)));
}

std::string DatabaseFolder::images() const {
    std::ostringstream all;
    for (const char *const medium : kMedia)
        all << std::ifstream(path(medium), std::ios::binary).rdbuf();
    return all.str();
}

int joinInTime(Child &child) {
    EXPECT_TRUE(eventually([&] { return child.hasEnded(); })) << "a process hangs";
    if (!child.hasEnded())
        kill(child.pid(), SIGKILL);
    return child.join();
}

std::vector<int> runAtOnce(uint32_t processes, const std::function<int(uint32_t number)> &body) {
    std::vector<Child> children;
    for (uint32_t number = 0; number < processes; number++)
        children.emplace_back([&body, number] { return body(number); });
    std::vector<int> statuses;
    for (Child &child : children)
        statuses.push_back(joinInTime(child));
    return statuses;
}

void waitForTheEnd() {
    for (;;)
        pause();
}

int32_t holdMutex(const std::string &tablePath) {
    const int fd = open(tablePath.c_str(), O_RDWR | O_CLOEXEC);
    tavDBMSemaphoreSet set = {};
    tavOSWSemAnnounce(tablePath.c_str(), fd);
    const int32_t code = misc_getSems(&set, tablePath.c_str());
    if (fd >= 0)
        close(fd);
    return code != 0 ? code : misc_waitMtx(&set);
}

bool isMutexHeld(const std::string &tablePath) {
    return Child([&] {
               const tavdb::test::Semaphores set = tavdb::test::attach(tablePath);
               return tavOSWRequestMutexSem(set.mutex, 0) == tavdb::test::code(EAGAIN) ? 1 : 0;
           }).join() == 1;
}

}  // namespace tavdb_test
