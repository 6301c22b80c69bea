// SPDX-License-Identifier: Apache-2.0
// tavdb locks and sessions: who uses a database, from its tables as they were
// before this command came. The tables are read and not attached to; only to name
// locked components the database is opened afterwards.
#include <algorithm>

#include "command.h"
#include "image/tables.h"
#include "view.h"

namespace tavdb::command {

namespace {

using Sessions = std::vector<image::OpenSession>;

std::optional<Sessions> readSessions(const image::DatabaseDirectory &directory, const Common &common,
                                     Console &console) {
    auto sessions = image::readSessions(directory.description->sessionPath);
    if (sessions)
        return std::move(*sessions.value);
    console.report(common.directory, sessions.error);
    return std::nullopt;
}

std::string processText(const Json &object) {
    if (object["process"].is_null())
        return "which is closed";
    return "process " + std::to_string(object["process"].get<int32_t>()) +
           (object["alive"].get<bool>() ? "" : ", which is gone");
}

std::string numbered(std::string_view what, const Json &number) {
    return std::string(what) + " " + std::to_string(number.get<uint32_t>());
}

void listSessions(const Common &common, Console &console) {
    const auto directory = openDirectory(common, console);
    const auto sessions = directory ? readSessions(*directory, common, console) : std::nullopt;
    if (!sessions)
        return;
    auto list = Json::array();
    for (const auto &session : *sessions)
        list.push_back({{"id", session.id},
                        {"process", session.process},
                        {"database", session.database},
                        {"alive", session.isAlive}});
    if (common.json) {
        console.print(dumpJson(list));
        return;
    }
    for (const auto &session : list)
        console.print(numbered("session", session["id"]) + ", " + numbered("database", session["database"]) + ", " +
                      processText(session) + "\n");
}

/// A lock under another database's id locks nothing in this tree.
Json pathOf(OpenedDatabase &opened, const image::HeldLock &lock) {
    if (lock.database != opened.database->id())
        return nullptr;
    const auto component = image::readComponent(*opened.database, lock.component);
    const auto path = component ? image::pathOf(*opened.database, *component.value) : image::Result<std::string>{};
    return path ? Json(*path.value) : Json();
}

Json toJson(OpenedDatabase &opened, const image::HeldLock &lock, const Sessions &sessions) {
    const auto holder = std::find_if(sessions.begin(), sessions.end(),
                                     [&](const image::OpenSession &session) { return session.id == lock.session; });
    const bool isOpen = holder != sessions.end();
    return {{"path", pathOf(opened, lock)},      {"component", lock.component},
            {"database", lock.database},         {"mode", lock.isShared ? "shared" : "exclusive"},
            {"session", lock.session},           {"process", isOpen ? Json(holder->process) : Json()},
            {"alive", isOpen && holder->isAlive}};
}

std::string toText(const Json &lock) {
    const auto place = lock["path"].is_null()
                           ? numbered("component", lock["component"]) + " of " + numbered("database", lock["database"])
                           : lock["path"].get<std::string>();
    return place + " " + lock["mode"].get<std::string>() + ", " + numbered("session", lock["session"]) + ", " +
           processText(lock) + "\n";
}

void listLocks(const Common &common, Console &console) {
    // Both tables before this command has a session itself.
    const auto directory = openDirectory(common, console);
    const auto sessions = directory ? readSessions(*directory, common, console) : std::nullopt;
    if (!sessions)
        return;
    const auto locks = image::readLocks(directory->description->lockPath);
    if (!locks) {
        console.report(common.directory, locks.error);
        return;
    }
    auto opened = locks.value->empty() ? std::nullopt : openDatabase(common, console);
    if (!opened && !locks.value->empty())
        return;
    auto list = Json::array();
    for (const auto &lock : *locks.value)
        list.push_back(toJson(*opened, lock, *sessions));
    if (common.json)
        console.print(dumpJson(list));
    else
        for (const auto &lock : list)
            console.print(toText(lock));
}

}  // namespace

void addLocks(Declarations &place) {
    auto &command = place.add("locks", "List the locks that are held");
    command.action = [](const Common &common, Console &console) { listLocks(common, console); };
}

void addSessions(Declarations &place) {
    auto &command = place.add("sessions", "List the sessions that are open");
    command.action = [](const Common &common, Console &console) { listSessions(common, console); };
}

}  // namespace tavdb::command
