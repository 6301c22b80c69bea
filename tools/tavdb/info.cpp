// SPDX-License-Identifier: Apache-2.0
// tavdb info: what a database directory is, how full it is and who uses it. The
// tables are read before the command opens a session of its own.
#include "command.h"
#include "image/survey.h"
#include "image/tables.h"
#include "image/text_util.h"
#include "view.h"

namespace tavdb::command {

namespace {

struct MediumInfo {
    const image::MediumName *name;
    std::string kind;
    std::string hint;
    uint32_t sizeBytes = 0;
    std::optional<image::FreeSpace> space;
};

/// Who used the database before this command attached to it.
struct Usage {
    std::vector<image::OpenSession> sessions;
    std::vector<image::HeldLock> locks;
    std::optional<image::Registration> registration;
};

class Informer {
public:
    Informer(const Common &shared, Console &place) : common(shared), console(place) {}

    void run() {
        auto usage = readUsage();
        auto opened = openDatabase(common, console);
        if (!opened)
            return;
        const auto media = readMedia(*opened);
        const auto census = image::takeCensus(*opened->database);
        if (!census)
            console.report(opened->directory.path, census.error);
        const auto source = opened->schema.readSource();
        if (!source)
            console.report(opened->directory.path, source.error);
        const auto facts = collect(*opened, media, census ? *census.value : image::Census{},
                                   source ? *source.value : image::Source{}, usage);
        console.print(common.json ? dumpJson(facts) : toText(facts));
    }

private:
    /// Faults are left to the opening, which meets them again.
    Usage readUsage() const {
        Usage usage;
        const auto directory = common.directory.empty() ? image::Result<image::DatabaseDirectory>{}
                                                        : image::openDirectory(common.directory);
        if (!directory)
            return usage;
        const auto &description = *directory.value->description;
        usage.sessions = image::readSessions(description.sessionPath).value.value_or(usage.sessions);
        usage.locks = image::readLocks(description.lockPath).value.value_or(usage.locks);
        usage.registration =
            image::findRegistration(dbs_me_db_control_get_file_name(), description).value.value_or(usage.registration);
        return usage;
    }

    std::vector<MediumInfo> readMedia(OpenedDatabase &opened) {
        std::vector<MediumInfo> media;
        for (const auto &name : image::kMediumNames) {
            const auto &line = opened.directory.lineOf(name.id);
            MediumInfo medium{&name, std::string(line.kind()), line.hint, 0, {}};
            const auto size = image::mediumSize(*opened.database, name.id);
            const auto space = name.holdsRecords ? image::measureFreeSpace(*opened.database, name.id)
                                                 : image::Result<image::FreeSpace>{};
            if (!size || (name.holdsRecords && !space))
                console.report(line.hint, size ? space.error : size.error);
            medium.sizeBytes = size.value.value_or(0);
            medium.space = space.value;
            media.push_back(std::move(medium));
        }
        return media;
    }

    static Json collect(OpenedDatabase &opened, const std::vector<MediumInfo> &media, const image::Census &census,
                        const image::Source &source, const Usage &usage) {
        Json facts = {{"directory", opened.directory.path},
                      {"byteOrder", image::nameOf(image::nativeOrder())},
                      {"format", image::kFormatVersion}};
        auto &list = facts["media"] = Json::array();
        for (const auto &medium : media)
            list.push_back(toJson(medium));
        facts["counts"] = {{"nodes", census.nodes},
                           {"leaves", census.leaves},
                           {"values", census.values},
                           {"constraints", census.constraints},
                           {"strings", census.strings}};
        facts["source"] = opened.schema.isThere()
                              ? Json({{"file", source.file}, {"kind", source.kind}, {"name", source.name}})
                              : Json();
        facts["database"] = usage.registration
                                ? Json({{"id", usage.registration->id}, {"references", usage.registration->references}})
                                : Json();
        addUsers(facts, opened, usage);
        return facts;
    }

    static Json toJson(const MediumInfo &medium) {
        Json object = {{"id", medium.name->id}, {"holds", medium.name->kind}, {"kind", medium.kind},
                       {"hint", medium.hint},   {"bytes", medium.sizeBytes},  {"freeBytes", nullptr},
                       {"largestFree", nullptr}};
        if (medium.space) {
            object["freeBytes"] = medium.space->bytes;
            object["largestFree"] = medium.space->largestBlock;
        }
        return object;
    }

    static void addUsers(Json &facts, OpenedDatabase &opened, const Usage &usage) {
        auto &sessions = facts["sessions"] = Json::array();
        for (const auto &session : usage.sessions)
            sessions.push_back({{"id", session.id}, {"process", session.process}, {"alive", session.isAlive}});
        auto &locks = facts["locks"] = Json::array();
        for (const auto &lock : usage.locks) {
            const auto component = image::readComponent(*opened.database, lock.component);
            const auto path =
                component ? image::pathOf(*opened.database, *component.value) : image::Result<std::string>{};
            locks.push_back({{"path", path ? Json(*path.value) : Json()},
                             {"component", lock.component},
                             {"mode", lock.isShared ? "shared" : "exclusive"},
                             {"session", lock.session},
                             {"holder", image::holderName(usage.sessions, lock.session)}});
        }
    }

    static std::string toText(const Json &facts) {
        auto text = labelled("directory", facts["directory"].get<std::string>()) +
                    labelled("byte order", facts["byteOrder"].get<std::string>());
        for (const auto &medium : facts["media"])
            text += labelled(medium["holds"].get<std::string>(), mediumText(medium));
        const auto &counts = facts["counts"];
        text += labelled("holds", image::counted(counts["nodes"], "node") + ", " +
                                      image::counted(counts["leaves"], "leaf", "leaves") + ", " +
                                      image::counted(counts["values"], "value") + ", " +
                                      image::counted(counts["constraints"], "constraint") + ", " +
                                      image::counted(counts["strings"], "string"));
        text += labelled("source", sourceText(facts["source"]));
        const auto &database = facts["database"];
        text +=
            labelled("attached", database.is_null() ? "by nobody"
                                                    : "as database " + std::to_string(database["id"].get<uint32_t>()) +
                                                          ", " + image::counted(database["references"], "reference"));
        return text + usersText(facts);
    }

    static std::string mediumText(const Json &medium) {
        auto text = medium["kind"].get<std::string>() + " " + medium["hint"].get<std::string>() + ", " +
                    image::counted(medium["bytes"], "byte");
        if (!medium["freeBytes"].is_null())
            text += ", " + std::to_string(medium["freeBytes"].get<uint64_t>()) + " free, largest block " +
                    std::to_string(medium["largestFree"].get<uint64_t>());
        return text;
    }

    static std::string sourceText(const Json &source) {
        if (source.is_null())
            return "unknown: there is no schema.json";
        const auto name = source["name"].get<std::string>();
        return source["file"].get<std::string>() + " (" + source["kind"].get<std::string>() +
               (name.empty() ? "" : ", " + name) + ")";
    }

    static std::string numberOf(const Json &list) {
        return list.empty() ? "none" : std::to_string(list.size());
    }

    static std::string usersText(const Json &facts) {
        auto text = labelled("sessions", numberOf(facts["sessions"]));
        for (const auto &session : facts["sessions"])
            text += labelled("", "session " + std::to_string(session["id"].get<uint32_t>()) + ", process " +
                                     std::to_string(session["process"].get<int32_t>()) +
                                     (session["alive"].get<bool>() ? "" : ", which is gone"));
        text += labelled("locks", numberOf(facts["locks"]));
        for (const auto &lock : facts["locks"])
            text +=
                labelled("", (lock["path"].is_null() ? "component " + std::to_string(lock["component"].get<uint32_t>())
                                                     : lock["path"].get<std::string>()) +
                                 " " + lock["mode"].get<std::string>() + " by " + lock["holder"].get<std::string>());
        return text;
    }

    const Common &common;
    Console &console;
};

}  // namespace

void addInfo(Declarations &place) {
    auto &command = place.add("info", "Print what the database is, how full it is and who uses it");
    command.action = [](const Common &common, Console &console) { Informer(common, console).run(); };
}

}  // namespace tavdb::command
