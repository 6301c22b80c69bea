// SPDX-License-Identifier: Apache-2.0
#include "image/database.h"

#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstring>

#include "image/model.h"
#include "image/text_util.h"
#include "tavdb_platform.h"

namespace tavdb::image {

namespace {

/// Longest name that is read; the library's own search knows 255 bytes.
constexpr int32_t kNameBytesRead = 1023;

/// An attach that failed has started some modules and not others, and the library
/// cannot tell which: attaching again would find tables and media of the other one.
enum class ProcessState { free, attached, unusable };
ProcessState processState = ProcessState::free;

Fault processFault() {
    return {FaultKind::failed, processState == ProcessState::attached
                                   ? "this process is attached to a database already"
                                   : "an earlier attach of this process failed half-way"};
}

/// A control table that cannot be used shows as a failing mutex; its path says more.
Fault attachFault(int32_t code) {
    const std::string path = dbs_me_db_control_get_file_name();
    if (code != TAVDB_ERR_CONTROL_MUTEX || access(path.c_str(), R_OK | W_OK) == 0)
        return faultOfCode(static_cast<uint32_t>(code), 0);
    auto fault = faultOfError(errno, "the control table " + path + " cannot be used");
    if (fault.kind == FaultKind::notFound)
        fault.kind = FaultKind::failed;
    return fault;
}

std::string keyName(uint32_t key) {
    return "@" + std::to_string(key);
}

/// Without one "/" at either end.
std::string_view trimmed(std::string_view name) {
    if (name.starts_with('/'))
        name.remove_prefix(1);
    if (name.ends_with('/'))
        name.remove_suffix(1);
    return name;
}

std::string readName(Database &database, const tavDBMComponent &header) {
    std::array<char, kNameBytesRead + 1> buffer{};
    const bool isRead =
        header.name != 0 && tavdb_getString(database.cleared(), header.name, buffer.data(), kNameBytesRead) != nullptr;
    const auto name = trimmed(isRead ? buffer.data() : "");
    const bool isText = !name.empty() && !hasControlCharacter(name) && firstBadUtf8(name) == std::string_view::npos;
    return isText ? std::string(name) : keyName(header.key);
}

/// A medium's functions, called as the library does: open, one operation, close.
template <typename Operation>
auto onMedium(Database &database, int32_t medium, Operation operation)
    -> decltype(operation(std::declval<tavDBMMediaEntry &>(), 0)) {
    using Answer = decltype(operation(std::declval<tavDBMMediaEntry &>(), 0));
    tavDBMMediaEntry *const entry = getMedia(database.cleared(), medium);
    if (entry == nullptr)
        return Answer::bad(database.knownFault());
    uint32_t error = 0;
    const int32_t descriptor = entry->open(entry->hint, entry->openArg, &error);
    if (descriptor < 0)
        return Answer::bad(faultOfCode(TAVDB_ERR_MEDIUM_OPEN, error));
    auto answer = operation(*entry, descriptor);
    entry->close(descriptor, &error);
    return answer;
}

/// The search for a path: names along the way, back up where a name leads nowhere.
class Search {
public:
    Search(Database &place, std::string_view wanted) : database(place), whole(wanted) {}

    Result<Located> run() {
        auto root = readRoot(database);
        if (!root)
            return Result<Located>::bad(root.error);
        const auto rest = trimmed(whole);
        if (rest.empty())
            return Result<Located>::good({std::move(*root.value), "/"});
        find(*root.value, "/", rest, 0);
        if (found)
            return Result<Located>::good(std::move(*found));
        return Result<Located>::bad(fault ? *fault : notFound());
    }

private:
    void find(const StoredComponent &node, const std::string &path, std::string_view rest, uint32_t level) {
        note(path, node.isNode, rest);
        if (level == kLevelsMax && !fault)
            fault = tooManyLevels();
        if (level == kLevelsMax)
            return;
        auto stopped = forEachChild(database, node, visited, [&](const StoredComponent &child) {
            compare(child, path, rest, level);
            return !found;
        });
        if (stopped && !fault)
            fault = faultIn(path, std::move(*stopped));
    }

    void compare(const StoredComponent &child, const std::string &parentPath, std::string_view rest, uint32_t level) {
        const auto length = matchedLength(child, rest);
        if (length == 0)
            return;
        const auto path = childPath(parentPath, child.name);
        if (rest.size() == length)
            found = Located{child, path};
        else
            find(child, path, rest.substr(length + 1), level + 1);
    }

    static size_t matchedLength(const StoredComponent &child, std::string_view rest) {
        if (matches(child.name, rest))
            return child.name.size();
        const auto byKey = rest.starts_with('@') ? keyName(child.key) : std::string{};
        return !byKey.empty() && matches(byKey, rest) ? byKey.size() : 0;
    }

    static bool matches(std::string_view name, std::string_view rest) {
        return rest.starts_with(name) && (rest.size() == name.size() || rest[name.size()] == '/');
    }

    /// Keeps the place where the search came furthest.
    void note(const std::string &path, bool isNode, std::string_view rest) {
        if (rest.size() >= shortestRest)
            return;
        shortestRest = rest.size();
        deepest = path;
        missing = rest.substr(0, rest.find('/'));
        deepestIsNode = isNode;
    }

    Fault notFound() const {
        const auto sentence = deepestIsNode ? "there is no " + quote(missing) + " in " + deepest
                                            : deepest + " is a leaf, there is nothing below it";
        return {FaultKind::notFound, sentence};
    }

    Database &database;
    std::string_view whole;
    Visited visited;
    std::optional<Located> found;
    Status fault;
    size_t shortestRest = std::string_view::npos;
    std::string deepest;
    std::string_view missing;
    bool deepestIsNode = true;
};

}  // namespace

Result<std::unique_ptr<Database>> Database::attach(const tavDBMDescription &description) {
    using Attached = Result<std::unique_ptr<Database>>;
    if (processState != ProcessState::free)
        return Attached::bad(processFault());
    int32_t code = 0;
    const int32_t id = tavDBMInit(&description, &code);
    if (id < 0) {
        processState = ProcessState::unusable;
        const int32_t known = dbs_me_db_control_search_table_entry(&description);
        if (known > 0)
            dbs_me_db_control_term_table_entry(static_cast<uint32_t>(known));
        return Attached::bad(attachFault(code));
    }
    processState = ProcessState::attached;
    std::unique_ptr<Database> database(new Database);
    database->dbId = static_cast<uint32_t>(id);
    const int32_t opened = tavDBMInitSession(database->session(), database->dbId);
    if (opened != 0)
        return Attached::bad(faultOfCode(static_cast<uint32_t>(opened), database->record.errorDetail));
    database->hasSession = true;
    return Attached::good(std::move(database));
}

Database::~Database() {
    if (hasSession)
        tavDBMTermSession(&record);
    tavDBMTerm(dbId);
    processState = ProcessState::free;
}

tavDBMSession *Database::cleared() {
    record.errorCode = 0;
    record.errorDetail = 0;
    return &record;
}

Status Database::lastFault() const {
    return record.errorCode == 0 ? Status{} : knownFault();
}

Fault Database::knownFault() const {
    // The one failure that records nothing is a creation for which there is no room.
    if (record.errorCode == 0)
        return {FaultKind::medium, "the medium is full"};
    return faultOfCode(record.errorCode, record.errorDetail);
}

Result<StoredComponent> readComponent(Database &database, uint32_t key) {
    using Read = Result<StoredComponent>;
    tavDBMComponent header = {};
    if (comp_getComponent(database.cleared(), key, &header) == nullptr)
        return Read::bad(faultIn("the component at " + std::to_string(key), database.knownFault()));
    if (header.key != key)
        return Read::bad(damaged("the component at " + std::to_string(key) + " is damaged: it says that it is at " +
                                 std::to_string(header.key)));
    if (header.kind != TAVDB_KIND_NODE && header.kind != TAVDB_KIND_LEAF)
        return Read::bad(
            damaged("the component at " + std::to_string(key) + " is damaged: it is neither node nor leaf"));
    return Read::good(
        {key, readName(database, header), header.kind == TAVDB_KIND_NODE, header.name, header.parent, header.next});
}

Result<StoredComponent> readRoot(Database &database) {
    const uint32_t key = tavDBMGetRoot(database.cleared());
    if (key == 0)
        return Result<StoredComponent>::bad(database.lastFault().value_or(damaged("there is no root")));
    return readComponent(database, key);
}

Fault tooManyLevels() {
    return {FaultKind::failed, "is nested deeper than " + std::to_string(kLevelsMax) + " levels"};
}

Status forEachChild(Database &database, const StoredComponent &node, Visited &visited,
                    const std::function<bool(const StoredComponent &)> &visit) {
    if (!node.isNode)
        return std::nullopt;
    tavDBMNode record = {};
    if (comp_getNode(database.cleared(), node.key, &record) == nullptr)
        return database.knownFault();
    for (uint32_t key = record.firstChild; key != 0;) {
        if (!visited.insert(key).second)
            return damaged("the component at " + std::to_string(key) + " is linked a second time");
        const auto child = readComponent(database, key);
        if (!child)
            return child.error;
        if (!visit(*child.value))
            break;
        key = child.value->next;
    }
    return std::nullopt;
}

Result<Located> locate(Database &database, std::string_view path) {
    if (path.empty())
        return Result<Located>::bad({FaultKind::usage, "the path is empty"});
    return Search(database, path).run();
}

Result<std::string> pathOf(Database &database, const StoredComponent &component) {
    std::string path;
    Visited visited;
    StoredComponent at = component;
    while (at.parent != 0) {
        if (!visited.insert(at.key).second)
            return Result<std::string>::bad(damaged("the parents of a component run in a circle"));
        path.insert(0, "/" + at.name);
        auto parent = readComponent(database, at.parent);
        if (!parent)
            return Result<std::string>::bad(parent.error);
        at = std::move(*parent.value);
    }
    return Result<std::string>::good(path.empty() ? "/" : path);
}

Result<uint32_t> mediumSize(Database &database, int32_t medium) {
    return onMedium(database, medium, [](tavDBMMediaEntry &entry, int32_t descriptor) {
        uint32_t error = 0;
        const int32_t end = entry.lseek(descriptor, 0, SEEK_END, &error);
        return end >= 0 ? Result<uint32_t>::good(static_cast<uint32_t>(end))
                        : Result<uint32_t>::bad(faultOfCode(TAVDB_ERR_MEDIUM_READ, error));
    });
}

Result<std::string> readMedium(Database &database, int32_t medium, uint32_t offset, uint32_t sizeBytes) {
    return onMedium(database, medium, [&](tavDBMMediaEntry &entry, int32_t descriptor) {
        uint32_t error = 0;
        std::string bytes(sizeBytes, '\0');
        const int32_t count = entry.read(descriptor, bytes.data(), static_cast<int32_t>(sizeBytes), offset, &error);
        if (count < 0 || count > static_cast<int32_t>(sizeBytes))
            return Result<std::string>::bad(faultOfCode(TAVDB_ERR_MEDIUM_READ, error));
        bytes.resize(static_cast<size_t>(count));
        return Result<std::string>::good(std::move(bytes));
    });
}

}  // namespace tavdb::image
