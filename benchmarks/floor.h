// SPDX-License-Identifier: Apache-2.0
// The least that an access to records can cost on a kind of medium: the bare
// steps with nothing around them, no look-up, no check, no error. What the
// library takes is compared with it.
#pragma once

#include <array>
#include <cstdint>
#include <memory>
#include <string>

#include "device.h"

namespace tavdb_benchmark {

/// As the library calls a medium: through pointers that the compiler does not know.
struct FloorMedium {
    std::string hint;
    int32_t (*open)(const char *hint);
    int32_t (*read)(int32_t fd, void *buffer, int32_t length, uint32_t offset);
    int32_t (*write)(int32_t fd, const void *data, int32_t length, uint32_t offset);
    int32_t (*close)(int32_t fd);
};

/// The media that a value is reached through.
class Floor {
public:
    virtual ~Floor() = default;

    /// Three accesses of 40, 28 and `length` bytes; where the next one is, the one before it tells.
    void read(uint32_t leaf, void *buffer, int32_t length) const;
    /// Five accesses: 40, 28, the 8 and 20 bytes of a range, and the `length` bytes written.
    void write(uint32_t leaf, const void *data, int32_t length) const;

protected:
    enum Role : uint8_t { kComponents, kValues, kConstraints, kData };
    static constexpr std::array kImages = {"component.med", "value.med", "constraint.med", "data.med"};

    std::array<FloorMedium, kImages.size()> media_;
};

/// @name The floors of the three kinds, on the images of a directory
/// @{
std::unique_ptr<Floor> memoryFloor(const Directory &directory);
std::unique_ptr<Floor> fileFloor(const Directory &directory);
/// A process that answers at once, with as many bytes as the media server would.
std::unique_ptr<Floor> messageFloor(const Directory &directory);
/// @}

}  // namespace tavdb_benchmark
