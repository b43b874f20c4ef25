// Byte strings of the wire: little-endian numbers, and a cursor that never reads past the end.
#pragma once

#include <algorithm>
#include <concepts>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <memory>
#include <span>
#include <stdexcept>
#include <string>
#include <string_view>
#include <utility>

namespace peer {

using View = std::span<const char>;

// Bytes that grow. What resize() makes room for is left unwritten: a frame is filled by read()
// right after, and clearing a megabyte first would cost as much as reading it.
class Bytes {
public:
    Bytes() = default;
    explicit Bytes(std::size_t size) { resize(size); }
    Bytes(const char* first, const char* last) {
        append({first, static_cast<std::size_t>(last - first)});
    }
    Bytes(const Bytes& other) { append(other); }
    Bytes(Bytes&& other) noexcept { swap(other); }
    Bytes& operator=(Bytes other) noexcept {
        swap(other);
        return *this;
    }
    ~Bytes() = default;

    char* data() { return m_data.get(); }
    const char* data() const { return m_data.get(); }
    std::size_t size() const { return m_size; }
    bool empty() const { return m_size == 0; }
    char& operator[](std::size_t at) { return m_data[at]; }
    const char& operator[](std::size_t at) const { return m_data[at]; }
    char* begin() { return data(); }
    char* end() { return data() + m_size; }
    const char* begin() const { return data(); }
    const char* end() const { return data() + m_size; }

    void reserve(std::size_t capacity) {
        if (capacity <= m_capacity) return;
        std::unique_ptr<char[]> grown(new char[capacity]);
        if (m_size > 0) std::memcpy(grown.get(), m_data.get(), m_size);
        m_data = std::move(grown);
        m_capacity = capacity;
    }
    void resize(std::size_t size) {
        if (size > m_capacity) reserve(std::max(size, m_size + m_size / 2));
        m_size = size;
    }
    void append(View bytes) {
        const std::size_t at = m_size;
        resize(at + bytes.size());
        if (!bytes.empty()) std::memcpy(data() + at, bytes.data(), bytes.size());
    }
    void append(std::size_t count, char byte) {
        const std::size_t at = m_size;
        resize(at + count);
        if (count > 0) std::memset(data() + at, byte, count);
    }
    void push_back(char byte) { append(1, byte); }

    bool operator==(const Bytes& other) const {
        return std::equal(begin(), end(), other.begin(), other.end());
    }

private:
    void swap(Bytes& other) noexcept {
        std::swap(m_data, other.m_data);
        std::swap(m_size, other.m_size);
        std::swap(m_capacity, other.m_capacity);
    }

    std::unique_ptr<char[]> m_data;
    std::size_t m_size = 0;
    std::size_t m_capacity = 0;
};

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
    to.append({bytes, sizeof(T)});
}

inline void append(Bytes& to, View bytes) {
    to.append(bytes);
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
