// Messages of the Windows dialect as bytes, and the bytes of one to look at.
#pragma once

#include <algorithm>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "common/Comm/WireNumbers.h"

// Codes of messages.
constexpr int kMapCount = 16;
constexpr int kMapAdd = 512;
constexpr int kMapDelete = 513;
constexpr int kResult = 514;
constexpr int kDriveName = 525;

// A message with the common header. The payload stands behind its 12 bytes.
inline std::vector<char> wireMessage(int type, int mapId = 0, int seq = 0,
                                     std::string_view payload = {}, std::uint32_t param = 0) {
    std::vector<char> message(12 + payload.size());
    storeLe<std::uint16_t>(message.data(), static_cast<std::uint16_t>(type));
    storeLe<std::uint8_t>(message.data() + 2, static_cast<std::uint8_t>(mapId));
    storeLe<std::uint8_t>(message.data() + 3, static_cast<std::uint8_t>(seq));
    storeLe<std::uint32_t>(message.data() + 4, param);
    storeLe<std::uint32_t>(message.data() + 8, static_cast<std::uint32_t>(payload.size()));
    std::ranges::copy(payload, message.begin() + 12);
    return message;
}

// "\x02\x02..." as bytes: the literal's zeros count, its terminator does not.
template <std::size_t N>
std::vector<char> bytesOf(const char (&literal)[N]) {
    return {literal, literal + N - 1};
}

template <std::integral T>
std::string leText(T value) {
    std::string text(sizeof(T), '\0');
    storeLe(text.data(), value);
    return text;
}
