// SPDX-License-Identifier: Apache-2.0
// tavdb serve-media: owns the images of a database whose media are message media,
// so that processes without rights to the images can use it.
#include <grp.h>
#include <pwd.h>

#include "command.h"
#include "media_server.h"

namespace tavdb::command {

namespace {

struct ServeOptions {
    std::string directory;
    std::vector<std::string> users;
    std::vector<std::string> groups;
    bool readOnly = false;
};

std::optional<AllowedPeers> findPeers(const ServeOptions &options, Console &console) {
    AllowedPeers peers;
    for (const auto &name : options.users) {
        const auto *const user = getpwnam(name.c_str());
        if (user == nullptr)
            console.report(name, {image::FaultKind::usage, "there is no such user"});
        else
            peers.users.push_back(user->pw_uid);
    }
    for (const auto &name : options.groups) {
        const auto *const group = getgrnam(name.c_str());
        if (group == nullptr)
            console.report(name, {image::FaultKind::usage, "there is no such group"});
        else
            peers.groups.push_back(group->gr_gid);
    }
    const bool areAllThere = peers.users.size() == options.users.size() && peers.groups.size() == options.groups.size();
    return areAllThere ? std::optional(std::move(peers)) : std::nullopt;
}

/// The images lie in the directory under their usual names; the sockets are where
/// the media configuration has clients look for them.
image::Status addMedia(MediaServer &server, const image::DatabaseDirectory &directory) {
    for (const auto &medium : image::kMediumNames) {
        const auto &line = directory.lineOf(medium.id);
        if (line.kind() != "message")
            return image::faultIn(std::string(image::kMediaFile),
                                  image::Fault{image::FaultKind::usage,
                                               "the " + std::string(medium.kind) + " medium is no message medium but " +
                                                   std::string(line.kind()) + "; build with --media message"});
        const auto socket = line.hint.starts_with('/') ? line.hint : image::joinPath(directory.path, line.hint);
        if (auto fault = server.add(image::joinPath(directory.path, medium.file), socket))
            return fault;
    }
    return std::nullopt;
}

void serve(const ServeOptions &options, Console &console) {
    const EndingSignals signals(EndingSignals::Second::ends);
    auto peers = findPeers(options, console);
    if (!peers)
        return;
    const auto directory = image::openDirectory(options.directory, image::DirectoryUse::serve);
    if (!directory)
        return console.report(options.directory, directory.error);
    MediaServer server(std::move(*peers), options.readOnly);
    if (const auto fault = addMedia(server, *directory.value))
        return console.report(options.directory, *fault);
    console.remark(options.directory, "serving");
    if (const auto fault = server.run(isEnding))
        console.report(options.directory, *fault);
}

}  // namespace

void addServeMedia(Declarations &place) {
    auto options = std::make_shared<ServeOptions>();
    auto &command = place.add("serve-media", "Own a database's images for processes without rights to them");
    command.footer = "Runs until a signal ends it. Root and the server's own user are always let in.";
    command.add("DIR", &options->directory, "the directory, built with --media message", {.isRequired = true});
    command.add("--allow-user NAME", &options->users, "let this user in too; can be given several times",
                {.takesOneEach = true});
    command.add("--allow-group NAME", &options->groups, "let members of this group in too", {.takesOneEach = true});
    command.add("--read-only", &options->readOnly, "refuse writes");
    command.action = [options](const Common &, Console &console) { serve(*options, console); };
}

}  // namespace tavdb::command
