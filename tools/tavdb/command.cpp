// SPDX-License-Identifier: Apache-2.0
#include "command.h"

#include "hook_switch.h"
#include "image/files.h"

namespace tavdb::command {

std::optional<image::DatabaseDirectory> openDirectory(const Common &common, Console &console) {
    if (common.directory.empty()) {
        console.report("", {image::FaultKind::usage, "no database: name one with -d DIR or TAVDB_DIR"});
        return std::nullopt;
    }
    auto directory = image::openDirectory(common.directory);
    if (directory)
        return std::move(*directory.value);
    console.report(common.directory, directory.error);
    return std::nullopt;
}

std::optional<OpenedDatabase> openDatabase(const Common &common, Console &console) {
    auto directory = openDirectory(common, console);
    if (!directory)
        return std::nullopt;
    auto schema = image::SchemaFile::open(image::joinPath(directory->path, image::kSchemaName));
    if (!schema) {
        console.report(common.directory, image::faultIn(std::string(image::kSchemaName), std::move(schema.error)));
        return std::nullopt;
    }
    switchHooks(!common.noHooks);
    auto signals = std::make_unique<EndingSignals>(EndingSignals::Second::ends);
    auto database = image::Database::attach(*directory->description);
    if (!database) {
        console.report(common.directory, database.error);
        return std::nullopt;
    }
    return OpenedDatabase{std::move(signals), std::move(*directory), std::move(*schema.value),
                          std::move(*database.value)};
}

image::Result<image::StoredLeaf> openLeaf(OpenedDatabase &opened, const std::string &path) {
    auto located = image::locate(*opened.database, path);
    if (!located)
        return image::Result<image::StoredLeaf>::bad(std::move(located.error));
    return openLeaf(opened, located.value->component, located.value->path);
}

image::Result<image::StoredLeaf> openLeaf(OpenedDatabase &opened, const image::StoredComponent &component,
                                          const std::string &path) {
    using Opened = image::Result<image::StoredLeaf>;
    if (component.isNode)
        return Opened::bad({image::FaultKind::notFound, "is a node; use tree or list"});
    const auto entry = opened.schema.find(path);
    if (!entry)
        return Opened::bad(entry.error);
    return image::readLeaf(*opened.database, component, *entry.value);
}

image::ByteOrder OrderOption::wanted() const {
    return name == "big" ? image::ByteOrder::big : name == "little" ? image::ByteOrder::little : image::nativeOrder();
}

void OrderOption::add(Command &command) {
    command.add("--byte-order ORDER", &name, "how numbers are stored: big or little end first, or as on this machine",
                {.values = {"big", "little", "native"}});
}

void TierFlags::add(Command &command, bool withFactory) {
    command.add("--default", &standard, "the default value instead of the current one");
    if (withFactory)
        command.add("--factory", &factory, "the factory value instead of the current one", {.excludes = {"--default"}});
}

}  // namespace tavdb::command
