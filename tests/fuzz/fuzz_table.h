// SPDX-License-Identifier: Apache-2.0
// A table that processes share, of the attached database, overwritten by an input and
// put right again: only what was written since, for the control table is as large as
// a thousand inputs.
#pragma once

#include <cstring>
#include <vector>

#include "fuzz/fuzz_input.h"
#include "tavdb_modules.h"

namespace tavdb_fuzz {

/// The file is mapped once more, and its bytes are kept as they were found.
class Table {
public:
    Table(const char *name, size_t size);
    Table(const Table &) = delete;
    Table &operator=(const Table &) = delete;

    void overwrite(uint32_t offset, uint32_t word);
    /// What the library has written, or may have.
    void written(size_t offset, size_t size) {
        written_.push_back({offset, size});
    }
    void writtenAll() {
        written(0, size_);
    }
    void restore();
    bool isAsFound() const {
        return memcmp(bytes_, found_.data(), size_) == 0;
    }
    template <typename Content>
    const Content &as() const {
        return *reinterpret_cast<const Content *>(bytes_);
    }

private:
    struct Part {
        size_t offset;
        size_t size;
    };

    size_t size_;
    uint8_t *bytes_;
    Bytes found_;
    std::vector<Part> written_;
};

class ControlTable : public Table {
public:
    ControlTable() : Table("control.tbl", sizeof(tavDBMControlTable)) {}

    /// By an attach, which fills the first free entry.
    void writtenEntry(uint32_t index);
    /// By everything else: the heads of the lists, and counts and links of entries.
    void writtenLinks();
};

/// That of this process; found as it is when it is first asked for.
ControlTable &control();

}  // namespace tavdb_fuzz
