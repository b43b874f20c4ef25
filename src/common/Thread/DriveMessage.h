// The four messages that tell the server about drives, byte by byte. A message is built from front
// to back in a zeroed buffer of its own; map id, tag and parameter of its header stay 0.
#pragma once

#include <array>
#include <concepts>
#include <cstddef>
#include <optional>

#include "common/Comm/WireNumbers.h"
#include "common/Map/FdCommand.h"
#include "common/Map/MapFolder.h"
#include "linux/comm/Opreator/ObjectInfo.h"

class DriveMessage {
public:
    // The header counts the zero bytes that end the message, so all of them are sent. A copy that
    // does not fit is logged and gives nothing.
    static std::optional<DriveMessage> addDrive(const MapFolder& map, const SHFLVOLINFO& volume);
    static std::optional<DriveMessage> driveName(const MapFolder& map);
    static std::optional<DriveMessage> deleteDrive(const MapFolder& map);
    static std::optional<DriveMessage> userProfile(const MapFolder& map, const char* path);

    char* data() { return m_bytes.data(); }
    int size() const { return static_cast<int>(m_end); }

private:
    DriveMessage(FdCmdType type, int mapId);

    template <std::integral T>
    void putNumber(T value) {
        storeLe<T>(m_bytes.data() + m_end, value);
        m_end += sizeof value;
    }
    bool putBytes(const void* from, std::size_t count, std::size_t limit);
    void putTail(std::size_t zeros);

    std::array<char, 6144> m_bytes{};  // room for two texts at their limit and all numbers
    std::size_t m_end = kHeaderSize;
};
