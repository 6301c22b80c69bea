// SPDX-License-Identifier: Apache-2.0
#include "fuzz/fuzz_table.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

#include <cstddef>
#include <cstdlib>
#include <type_traits>

#include "fuzz/fuzz_place.h"

namespace tavdb_fuzz {

namespace {

constexpr size_t kEntries = std::extent_v<decltype(tavDBMControlTable::entry)>;

size_t offsetOfEntry(size_t index) {
    return offsetof(tavDBMControlTable, entry) + index * sizeof(tavDBMControlEntry);
}

}  // namespace

Table::Table(const char *name, size_t size) : size_(size) {
    const int fd = open(fileInPlace(name).c_str(), O_RDWR | O_CLOEXEC);
    void *const mapped = mmap(nullptr, size, PROT_READ | PROT_WRITE, MAP_SHARED, fd, 0);
    close(fd);
    if (mapped == MAP_FAILED)
        abort();
    bytes_ = static_cast<uint8_t *>(mapped);
    found_.assign(bytes_, bytes_ + size);
}

void Table::overwrite(uint32_t offset, uint32_t word) {
    offset %= static_cast<uint32_t>(size_ - sizeof word);
    memcpy(bytes_ + offset, &word, sizeof word);
    written(offset, sizeof word);
}

void Table::restore() {
    for (const Part &part : written_)
        memcpy(bytes_ + part.offset, found_.data() + part.offset, part.size);
    written_.clear();
}

void ControlTable::writtenEntry(uint32_t index) {
    if (index < kEntries)
        written(offsetOfEntry(index), sizeof(tavDBMControlEntry));
}

void ControlTable::writtenLinks() {
    constexpr size_t kCount = offsetof(tavDBMControlEntry, refCount);
    written(0, offsetof(tavDBMControlTable, entry));
    for (size_t index = 0; index < kEntries; ++index)
        written(offsetOfEntry(index) + kCount, sizeof(tavDBMControlEntry) - kCount);
}

ControlTable &control() {
    static ControlTable table;
    return table;
}

}  // namespace tavdb_fuzz
