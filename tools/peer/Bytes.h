// Byte strings of the wire: little-endian numbers, and a cursor that never reads past the end.
#pragma once

#include <concepts>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>
#include <stdexcept>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace peer {

// Leaves what it makes room for unwritten: a frame is filled by read() right after.
template <typename T>
struct UnsetAllocator : std::allocator<T> {
    template <typename U>
    struct rebind {
        using other = UnsetAllocator<U>;
    };
    template <typename U>
    void construct(U* at) {
        ::new (static_cast<void*>(at)) U;
    }
    template <typename U, typename... Args>
    void construct(U* at, Args&&... args) {
        ::new (static_cast<void*>(at)) U(std::forward<Args>(args)...);
    }
};

using Bytes = std::vector<char, UnsetAllocator<char>>;
using View = std::span<const char>;

// A message of the other side that is not what it must be.
class BadMessage : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

template <std::integral T>
T loadLe(const char* from) {
    std::uint64_t value = 0;
    for (std::size_t i = 0; i < sizeof(T); ++i) {
        value |= std::uint64_t{static_cast<unsigned char>(from[i])} << (8 * i);
    }
    return static_cast<T>(value);
}

template <std::integral T>
void storeLe(char* to, T value) {
    const auto bits = static_cast<std::uint64_t>(value);
    for (std::size_t i = 0; i < sizeof(T); ++i) to[i] = static_cast<char>(bits >> (8 * i));
}

template <std::integral T>
void appendLe(Bytes& to, T value) {
    char bytes[sizeof(T)];
    storeLe(bytes, value);
    to.insert(to.end(), bytes, bytes + sizeof(T));
}

inline void append(Bytes& to, View bytes) {
    to.insert(to.end(), bytes.begin(), bytes.end());
}

inline View viewOf(std::string_view text) {
    return {text.data(), text.size()};
}

inline std::string_view textOf(View bytes) {
    return {bytes.data(), bytes.size()};
}

// Walks over a message. Every step names its field, so that a message cut short says where.
class Cursor {
public:
    Cursor(View bytes, std::string_view what) : m_rest(bytes), m_what(what) {}

    View bytes(std::size_t count, std::string_view field) {
        if (count > m_rest.size()) {
            throw BadMessage(std::string(m_what) + " is cut short: " + std::string(field) +
                             " needs " + std::to_string(count) + " bytes, " +
                             std::to_string(m_rest.size()) + " are left");
        }
        const View taken = m_rest.first(count);
        m_rest = m_rest.subspan(count);
        return taken;
    }

    template <std::integral T>
    T number(std::string_view field) {
        return loadLe<T>(bytes(sizeof(T), field).data());
    }

    View rest() const { return m_rest; }

private:
    View m_rest;
    std::string_view m_what;
};

}  // namespace peer
