// SPDX-License-Identifier: Apache-2.0
#include "port/contract/linux_media_server.h"

#include <memory>
#include <vector>

#include "media_server.h"
#include "port/contract/contract_support.h"

namespace tavdb::test {
namespace {

struct Serving {
    std::unique_ptr<command::MediaServer> server;
    Child process;  ///< ends before its sockets are removed
};
std::vector<Serving> all;

}  // namespace

void serveImage(const std::string &imagePath, const std::string &socketPath) {
    auto server = std::make_unique<command::MediaServer>(command::AllowedPeers{}, false);
    const auto fault = server->add(imagePath, socketPath);
    ASSERT_FALSE(fault) << fault->sentence;
    Child process([&] { return server->run([] { return false; }) ? 1 : 0; });
    all.push_back({std::move(server), std::move(process)});
}

void stopServing() {
    all.clear();
}

}  // namespace tavdb::test
