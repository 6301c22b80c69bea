// SPDX-License-Identifier: Apache-2.0
// Builds a database from a text and reads it again.
#include <tavdb.h>

#include <image/builder.h>
#include <image/database.h>
#include <image/description.h>
#include <cstdio>

namespace {

constexpr const char *kDescription = "lan: {mtu: {type: u16, range: [576, 9000], factory: 1500}}\n";

int read(const std::string &place) {
    const auto directory = tavdb::image::openDirectory(place);
    if (!directory)
        return 3;
    const auto database = tavdb::image::Database::attach(*directory.value->description);
    if (!database)
        return 4;
    const auto leaf = tavdb::image::locate(**database.value, "/lan/mtu");
    uint16_t mtu = 0;
    if (!leaf || tavDBMGetUint16((*database.value)->session(), leaf.value->component.key, &mtu) != 0)
        return 5;
    std::printf("%s is %u\n", leaf.value->path.c_str(), unsigned{mtu});
    return 0;
}

}  // namespace

int main(int count, char **arguments) {
    if (count != 2)
        return 1;
    const auto description = tavdb::image::readDescriptionText("text", kDescription);
    if (!description.ok() || !tavdb::image::buildDatabase(description.model, arguments[1], {}))
        return 2;
    return read(arguments[1]);
}
