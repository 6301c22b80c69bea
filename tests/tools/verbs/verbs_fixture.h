// SPDX-License-Identifier: Apache-2.0
// What the tests of the commands share: the tree as an application walks it, the
// free space, and the secrets that schema.json knows.
#pragma once

#include <gmock/gmock.h>

#include <map>
#include <nlohmann/json.hpp>

#include "tools/command/command_fixture.h"
#include "tools/image/attached.h"

namespace tavdb_test {

using Json = nlohmann::json;
using Lines = std::vector<std::string>;

class VerbTest : public CommandTest {
protected:
    std::string directory() const {
        return place / "db";
    }
    /// Runs a command that must succeed with --json.
    Json json(std::vector<std::string> arguments) const;
    /// The stored names from the root on, in the order of the tree, walked through the
    /// C interface. Every component must name the node that it hangs below as its
    /// parent, and stand in the tree once.
    Lines shape() const;
    /// Free bytes of the media that hold records.
    std::map<std::string, uint64_t> freeBytes() const;
    /// The paths that schema.json has an entry for.
    Lines schemaPaths() const;
    /// The current value as get prints it, or the refusal to show a secret.
    std::string value(const std::string &path) const;
    /// Fails unless the command refuses in just this way and changes no file.
    void expectRefusal(const std::vector<std::string> &arguments, int exitCode, const std::string &line) const;
};

}  // namespace tavdb_test
