// SPDX-License-Identifier: Apache-2.0
#include "floor.h"

#include "tavdb_modules.h"

namespace tavdb_benchmark {

namespace {

void readOne(const FloorMedium &medium, void *buffer, int32_t length, uint32_t offset) {
    const int32_t fd = medium.open(medium.hint.c_str());
    medium.read(fd, buffer, length, offset);
    medium.close(fd);
}

template <typename Record>
Record readRecord(const FloorMedium &medium, uint32_t offset) {
    Record record;
    readOne(medium, &record, sizeof record, offset);
    return record;
}

}  // namespace

void Floor::read(uint32_t leaf, void *buffer, int32_t length) const {
    const auto record = readRecord<tavDBMLeaf>(media_[kComponents], leaf);
    const auto value = readRecord<tavDBMValue>(media_[kValues], record.currentValue);
    readOne(media_[kData], buffer, length, value.dataOffset);
}

void Floor::write(uint32_t leaf, const void *data, int32_t length) const {
    const auto record = readRecord<tavDBMLeaf>(media_[kComponents], leaf);
    const auto value = readRecord<tavDBMValue>(media_[kValues], record.currentValue);
    readRecord<tavDBMConstraint>(media_[kConstraints], value.constraintKey);
    readRecord<tavDBMRangeU32>(media_[kConstraints], value.constraintKey);
    const FloorMedium &medium = media_[kData];
    const int32_t fd = medium.open(medium.hint.c_str());
    medium.write(fd, data, length, value.dataOffset);
    medium.close(fd);
}

}  // namespace tavdb_benchmark
