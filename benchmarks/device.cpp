// SPDX-License-Identifier: Apache-2.0
#include "device.h"

#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>

extern "C" {
#include "gateway/directory.h"
}
#include "scratch.h"

namespace tavdb_benchmark {

namespace {

/// The media server has made its last socket.
bool isServed(const std::string &path) {
    constexpr int kAttempts = 500;
    constexpr useconds_t kPauseUs = 10000;
    for (int i = 0; i < kAttempts && !std::filesystem::exists(path + "/text.sock"); i++)
        usleep(kPauseUs);
    return std::filesystem::exists(path + "/text.sock");
}

}  // namespace

void giveUp(const std::string &sentence) {
    fprintf(stderr, "tavdb_benchmark: %s\n", sentence.c_str());
    exit(1);
}

Directory::Directory(const std::string &place, const std::string &media, uint32_t settings)
    : path_(place + '/' + media + '-' + std::to_string(settings)), media_(media), settings_(settings) {
    writeFile(path_ + ".yaml", tavdb_benchmark::description(settings));
    const bool isCounted = media == "counted";
    if (!run({TAVDB_COMMAND, "build", "--media", isCounted ? "file" : media, path_ + ".yaml", "-o", path_}).isGood)
        giveUp("building " + path_ + " failed");
    if (isCounted)
        countCalls();
    if (media == "message")
        server_ = start({TAVDB_COMMAND, "serve-media", path_});
    if (media == "message" && !isServed(path_))
        giveUp("the media server does not serve");
}

Directory::~Directory() {
    end(server_);
}

/// Puts the functions of counted_media.cpp in front of those of file media.
void Directory::countCalls() const {
    std::ifstream file(path_ + "/media.conf");
    std::string lines;
    for (std::string library, open, close, read, write, seek, rest;
         file >> library >> open >> close >> read >> write >> seek && std::getline(file, rest);)
        lines += TAVDB_COUNTED_MEDIA " countedOpen countedClose countedRead countedWrite countedSeek" + rest + '\n';
    file.close();
    writeFile(path_ + "/media.conf", lines);
}

tavDBMDescription Directory::description() const {
    tavDBMDescription found;
    if (describeDirectory(path_.c_str(), &found) != 0)
        giveUp("there is no database in " + path_);
    return found;
}

Device::Device(const Directory &directory) : directory_(directory) {
    const tavDBMDescription description = directory.description();
    const int32_t database = tavDBMInit(&description, nullptr);
    if (database < 0)
        giveUp("attaching to " + directory.path() + " failed");
    database_ = static_cast<uint32_t>(database);
    if (tavDBMInitSession(&session_, database_) != TAVDB_OK)
        giveUp("there is no session");
    constexpr int kLevels = 2;  // areas and groups
    collectLeaves(tavDBMGetRoot(&session_), kLevels);
    const std::string last = pathOf(directory.settings() - 1);
    if (leaves_.size() != directory.settings() || tavDBMSearchByName(&session_, last.c_str()) != leaves_.back())
        giveUp(directory.path() + " holds other settings");
}

Device::~Device() {
    tavDBMTermSession(&session_);
    tavDBMTerm(database_);
}

void Device::collectLeaves(uint32_t node, int levelsBelow) {
    for (uint32_t at = tavDBMGetFirstChild(&session_, node); at != 0; at = tavDBMGetNextChild(&session_, at)) {
        if (levelsBelow == 0)
            leaves_.push_back(at);
        else
            collectLeaves(at, levelsBelow - 1);
    }
}

std::vector<uint32_t> Device::leaves(Kind kind) const {
    std::vector<uint32_t> keys;
    for (const uint32_t i : shuffled(directory_.settings(), kind))
        keys.push_back(leaf(i));
    return keys;
}

}  // namespace tavdb_benchmark
