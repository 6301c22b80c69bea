// SPDX-License-Identifier: Apache-2.0
// tavdb reset and save: copies between the three values of leaves, of one leaf or
// of all below a node. Each leaf is copied for itself, so that a leaf that refuses
// is named and does not keep the others from being copied.
#include "command.h"
#include "image/library_call.h"
#include "image/walk.h"
#include "lock_set.h"

namespace tavdb::command {

namespace {

using Copy = image::Status (*)(image::Database &, uint32_t leaf);

struct CopyOptions {
    std::string path;
    std::string source = "default";
    bool recursive = false;
    LockOptions locks;
};

image::Status resetToDefault(image::Database &database, uint32_t leaf) {
    return image::callLibrary(database, tavDBMDefaultToCurrent, leaf);
}

image::Status resetToFactory(image::Database &database, uint32_t leaf) {
    if (auto fault = image::callLibrary(database, tavDBMFactoryToDefault, leaf))
        return fault;
    auto fault = image::callLibrary(database, tavDBMDefaultToCurrent, leaf);
    if (fault)
        fault->sentence = "only the default value was reset: " + fault->sentence;
    return fault;
}

image::Status saveAsDefault(image::Database &database, uint32_t leaf) {
    return image::callLibrary(database, tavDBMCurrentToDefault, leaf);
}

class Copier {
public:
    Copier(const CopyOptions &given, Copy function, const Common &shared, Console &place)
        : options(given), copy(function), common(shared), console(place) {}

    void run() {
        auto opened = openDatabase(common, console);
        if (!opened)
            return;
        auto &database = *opened->database;
        const auto start = image::locate(database, options.path);
        if (!start) {
            console.report(options.path, start.error);
            return;
        }
        if (start.value->component.isNode && !options.recursive) {
            console.report(options.path, {image::FaultKind::usage, "is a node; -r is for all leaves below it"});
            return;
        }
        const auto fault = image::forEachFrom(database, *start.value, [&](const image::Located &at) {
            if (!at.component.isNode)
                copyLeaf(database, at);
            return console.isOpen();
        });
        if (fault)
            console.report("", *fault);
    }

private:
    void copyLeaf(image::Database &database, const image::Located &leaf) {
        LockSet locks(database, options.locks);
        auto fault = locks.add(leaf.component.key);
        if (!fault)
            fault = copy(database, leaf.component.key);
        if (fault)
            console.report(leaf.path, *fault);
    }

    const CopyOptions &options;
    const Copy copy;
    const Common &common;
    Console &console;
};

Command &addCopy(Declarations &place, const std::string &name, const std::string &about,
                 const std::shared_ptr<CopyOptions> &options) {
    auto &command = place.add(name, about);
    command.add("PATH", &options->path, "the leaf, or with -r a node", {.isRequired = true});
    command.add("-r,--recursive", &options->recursive, "all leaves below a node");
    options->locks.add(command);
    return command;
}

}  // namespace

void addReset(Declarations &place) {
    auto options = std::make_shared<CopyOptions>();
    auto &command = addCopy(place, "reset", "Set current values back to the default or the factory ones", options);
    command.add("--to TIER", &options->source,
                "default: current from default; factory: default and current from factory",
                {.values = {"default", "factory"}, .standard = options->source});
    command.action = [options](const Common &common, Console &console) {
        const auto copy = options->source == "factory" ? resetToFactory : resetToDefault;
        Copier(*options, copy, common, console).run();
    };
}

void addSave(Declarations &place) {
    auto options = std::make_shared<CopyOptions>();
    auto &command = addCopy(place, "save", "Make the current values the default ones", options);
    command.action = [options](const Common &common, Console &console) {
        Copier(*options, saveAsDefault, common, console).run();
    };
}

}  // namespace tavdb::command
