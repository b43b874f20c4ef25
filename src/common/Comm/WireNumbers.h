// Little-endian numbers at any offset of a message buffer.
#pragma once

#include <concepts>
#include <cstddef>
#include <cstdint>

template <std::integral T>
T loadLe(const void* from) {
    const auto* bytes = static_cast<const unsigned char*>(from);
    std::uint64_t value = 0;
    for (std::size_t i = 0; i < sizeof(T); ++i) value |= std::uint64_t{bytes[i]} << (8 * i);
    return static_cast<T>(value);
}

template <std::integral T>
void storeLe(void* to, T value) {
    auto* bytes = static_cast<unsigned char*>(to);
    const auto bits = static_cast<std::uint64_t>(value);
    for (std::size_t i = 0; i < sizeof(T); ++i) {
        bytes[i] = static_cast<unsigned char>(bits >> (8 * i));
    }
}
