// SPDX-License-Identifier: Apache-2.0
#include "floor.h"

namespace tavdb_benchmark {

namespace {

constexpr int32_t kLeafBytes = 40;
constexpr int32_t kValueBytes = 28;
constexpr int32_t kConstraintBytes = 8;
constexpr int32_t kRangeBytes = 20;

void readOne(const FloorMedium &medium, void *buffer, int32_t length, uint32_t offset) {
    const int32_t fd = medium.open(medium.hint.c_str());
    medium.read(fd, buffer, length, offset);
    medium.close(fd);
}

}  // namespace

void Floor::read(const Places &places, void *buffer, int32_t length) const {
    char record[kLeafBytes];
    readOne(media_[kComponents], record, kLeafBytes, places.component);
    readOne(media_[kValues], record, kValueBytes, places.value);
    readOne(media_[kData], buffer, length, places.data);
}

void Floor::write(const Places &places, const void *bytes, int32_t length) const {
    char record[kLeafBytes];
    readOne(media_[kComponents], record, kLeafBytes, places.component);
    readOne(media_[kValues], record, kValueBytes, places.value);
    readOne(media_[kConstraints], record, kConstraintBytes, places.constraint);
    readOne(media_[kConstraints], record, kRangeBytes, places.constraint);
    const FloorMedium &medium = media_[kData];
    const int32_t fd = medium.open(medium.hint.c_str());
    medium.write(fd, bytes, length, places.data);
    medium.close(fd);
}

}  // namespace tavdb_benchmark
