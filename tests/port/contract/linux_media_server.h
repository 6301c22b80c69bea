// SPDX-License-Identifier: Apache-2.0
// Message media need somebody at the other end: the command's own server, in a
// process of its own for each image. Only where the tools are built.
#pragma once

#include <string>

namespace tavdb::test {

/// Serves an image at a socket, until stopServing().
void serveImage(const std::string &imagePath, const std::string &socketPath);
void stopServing();

}  // namespace tavdb::test
