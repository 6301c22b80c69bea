// SPDX-License-Identifier: Apache-2.0
#include "image/value_bytes.h"

#include <cstring>

namespace tavdb::image {

namespace {

template <typename T>
std::string packNumber(const Value &value) {
    const auto number = static_cast<T>(std::get<Wide<T>>(value));
    std::string bytes(sizeof number, '\0');
    std::memcpy(bytes.data(), &number, sizeof number);
    return bytes;
}

template <typename T>
Value unpackNumber(std::string_view bytes) {
    T number{};
    std::memcpy(&number, bytes.data(), sizeof number);
    return static_cast<Wide<T>>(number);
}

}  // namespace

std::string encodeValue(Type type, uint32_t lengthBytes, const Value &value) {
    if (typeInfo(type).isNumber())
        return withNumber(type, [&](auto zero) { return packNumber<decltype(zero)>(value); });
    auto bytes = std::get<std::string>(value);
    bytes.resize(lengthBytes, '\0');
    return bytes;
}

Outcome<Value> decodeValue(Type type, std::string_view bytes) {
    const auto &info = typeInfo(type);
    if (info.family == Family::text)
        return Outcome<Value>::good(std::string(bytes.substr(0, bytes.find('\0'))));
    if (info.family == Family::bytes)
        return Outcome<Value>::good(std::string(bytes));
    if (bytes.size() != info.widthBytes)
        return Outcome<Value>::bad("there are " + std::to_string(bytes.size()) + " bytes, " + std::string(info.name) +
                                   " has " + std::to_string(info.widthBytes));
    return Outcome<Value>::good(withNumber(type, [&](auto zero) { return unpackNumber<decltype(zero)>(bytes); }));
}

}  // namespace tavdb::image
