// SPDX-License-Identifier: Apache-2.0
// A database directory in memory that is overwritten by every input, with the tables of
// a process that is gone, and repaired as the command repairs it.
#pragma once

#include <cstddef>
#include <map>
#include <optional>
#include <string>

#include "image/repair.h"

namespace tavdb_fuzz {

/// Contents by name.
using Files = std::map<std::string, std::string>;

class RepairFolder {
public:
    /// @param path of a database that is sound; its tables are made here
    explicit RepairFolder(std::string path);

    const Files &sound() const {
        return found;
    }
    /// The files of an input are put there and repaired, with a cut in front of step `cutBefore` first, when there
    /// is such a step: what must hold of the files then is looked at.
    /// @return the images that were put right; nothing when the repair is rightly refused
    std::optional<tavdb::image::RawImages> run(const Files &files, size_t cutBefore);

private:
    void makeTables();
    void write(const Files &files) const;
    Files read() const;
    void removeKept() const;
    tavdb::image::Result<tavdb::image::Repaired> repairCutBefore(size_t step, bool &wasCut) const;
    void expectRefused(const Files &files, const tavdb::image::Fault &why) const;
    tavdb::image::RawImages mended(const tavdb::image::RawImages &expected) const;
    void expectKept(const Files &files, const std::string &original) const;
    void expectSettled() const;

    const std::string folder;
    Files found;
};

}  // namespace tavdb_fuzz
