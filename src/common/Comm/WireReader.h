// Reads the fields of a message one behind the other and never beyond the end of its buffer.
#pragma once

#include <concepts>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <stdexcept>
#include <string_view>

#include "common/Comm/WireNumbers.h"

class WireReader {
public:
    WireReader(const char* bytes, std::size_t size) : m_rest(bytes, size) {}

    // The next number. Empty, with nothing consumed, if it does not lie inside the buffer.
    template <std::integral T>
    std::optional<T> number() {
        if (sizeof(T) > m_rest.size()) return std::nullopt;
        return loadLe<T>(take(sizeof(T)).data());
    }

    // The next text: a signed 32-bit length and that many bytes. Empty if it ends beyond the
    // buffer; a negative length throws.
    std::optional<std::string_view> text() {
        const auto length = number<std::int32_t>();
        if (!length) return std::nullopt;
        if (*length < 0) throw std::length_error("negative text length in a message");
        const auto size = static_cast<std::size_t>(*length);
        if (size > m_rest.size()) return std::nullopt;
        return take(size);
    }

private:
    std::string_view take(std::size_t size) {
        const std::string_view taken = m_rest.substr(0, size);
        m_rest.remove_prefix(size);
        return taken;
    }

    std::string_view m_rest;
};
