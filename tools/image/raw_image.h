// SPDX-License-Identifier: Apache-2.0
// The six images of a database as bytes in memory, in whatever byte order they
// were stored. Reads are checked against the size of their medium and give numbers
// as this machine has them. The library is not involved, and what the bytes mean
// is known elsewhere.
#pragma once

#include <array>
#include <bit>
#include <cstring>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <type_traits>

#include "image/byte_order.h"
#include "image/byte_range.h"
#include "image/directory.h"

namespace tavdb::image {

class RawImages {
public:
    /// By medium id; entry 0 is not used.
    using Contents = std::array<std::string, kMediumEnd>;

    RawImages(ByteOrder stored, Contents bytes) : storedIn(stored), contents(std::move(bytes)) {}

    /// The images of a folder under their usual names.
    static Result<RawImages> load(const std::string &folder, ByteOrder stored);

    ByteOrder order() const {
        return storedIn;
    }
    void setOrder(ByteOrder stored) {
        storedIn = stored;
    }
    static constexpr bool isMedium(int32_t medium) {
        return medium >= kComponentMedium && medium < kMediumEnd;
    }
    const std::string &content(int32_t medium) const {
        return contents[static_cast<size_t>(medium)];
    }
    /// Whether all bytes are the same, whatever order they are said to be in.
    bool equals(const RawImages &other) const {
        return contents == other.contents;
    }
    bool contains(int32_t medium, const ByteRange &range) const {
        return isMedium(medium) && range.end() <= content(medium).size();
    }
    /// Bytes that the images contain.
    std::span<char> bytes(int32_t medium, const ByteRange &range) {
        return std::span(contents[static_cast<size_t>(medium)]).subspan(range.offset, range.sizeBytes);
    }

    /// A record that is nothing but words; nothing when the medium ends before it does.
    template <typename Record>
    std::optional<Record> read(int32_t medium, uint32_t offset) const {
        static_assert(std::is_trivially_copyable_v<Record> && sizeof(Record) % sizeof(uint32_t) == 0);
        if (!contains(medium, {offset, sizeof(Record)}))
            return std::nullopt;
        std::array<char, sizeof(Record)> words;
        std::memcpy(words.data(), content(medium).data() + offset, words.size());
        if (storedIn != nativeOrder())
            reverseNumbers(words, sizeof(uint32_t));
        return std::bit_cast<Record>(words);
    }

    /// Overwrites bytes that the images contain.
    template <typename Record>
    void write(int32_t medium, uint32_t offset, const Record &record) {
        static_assert(std::is_trivially_copyable_v<Record> && sizeof(Record) % sizeof(uint32_t) == 0);
        auto words = std::bit_cast<std::array<char, sizeof(Record)>>(record);
        if (storedIn != nativeOrder())
            reverseNumbers(words, sizeof(uint32_t));
        std::memcpy(contents[static_cast<size_t>(medium)].data() + offset, words.data(), words.size());
    }
    /// A medium grows by some bytes. @return their offset
    uint32_t append(int32_t medium, std::string_view bytes) {
        auto &content = contents[static_cast<size_t>(medium)];
        const auto offset = static_cast<uint32_t>(content.size());
        content.append(bytes);
        return offset;
    }

private:
    ByteOrder storedIn;
    Contents contents;
};

}  // namespace tavdb::image
