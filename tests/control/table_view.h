// SPDX-License-Identifier: Apache-2.0
// The shared table files as a test sees them from outside the library, through
// mappings of its own: what any process writes shows at once, and a test can
// damage a table that is in use. Knows neither the library nor the fakes.
#pragma once

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdint>
#include <stdexcept>
#include <string>
#include <vector>

#include "tavdb_modules.h"

namespace tavdb_test {

/// A table file as its record type. Throws, which fails the test, when the file is missing or shorter.
template <typename Table>
class TableView {
public:
    explicit TableView(const std::string &path) : table_(static_cast<Table *>(map(path))) {}
    ~TableView() {
        munmap(static_cast<void *>(table_), sizeof(Table));
    }
    TableView(const TableView &) = delete;
    TableView &operator=(const TableView &) = delete;

    Table *operator->() const {
        return table_;
    }
    Table &operator*() const {
        return *table_;
    }

private:
    static void *map(const std::string &path) {
        const int fd = open(path.c_str(), O_RDWR | O_CLOEXEC);
        struct stat status {};
        const bool isWhole = fd >= 0 && fstat(fd, &status) == 0 && status.st_size >= static_cast<off_t>(sizeof(Table));
        void *const address =
            isWhole ? mmap(nullptr, sizeof(Table), PROT_READ | PROT_WRITE, MAP_SHARED, fd, 0) : MAP_FAILED;
        if (fd >= 0)
            close(fd);
        if (address == MAP_FAILED)
            throw std::runtime_error(path + " is not a table of " + std::to_string(sizeof(Table)) + " bytes");
        return address;
    }

    Table *table_;
};

using ControlView = TableView<tavDBMControlTable>;
using SessionView = TableView<tavDBMSessionTable>;
using LockView = TableView<tavDBMLockTable>;

/// The indices of a list in its order; a loop ends where the capacity does.
template <typename Record, size_t Capacity>
std::vector<uint32_t> chain(const Record (&records)[Capacity], uint32_t head) {
    std::vector<uint32_t> indices;
    for (uint32_t index = head; index != 0 && index < Capacity && indices.size() < Capacity;
         index = records[index].next)
        indices.push_back(index);
    return indices;
}

}  // namespace tavdb_test
