// The layouts of the drive messages. Control thread.
#include "common/Thread/DriveMessage.h"

#include <cstdint>
#include <cstring>

#include "ZBoundsChecked.h"
#include "common/Comm/FdLog.h"

namespace {

constexpr std::size_t kFieldLimit = 2048;
constexpr std::size_t kDeletedNameLimit = 2028;

}  // namespace

DriveMessage::DriveMessage(FdCmdType type, int mapId) {
    storeLe<std::uint16_t>(m_bytes.data() + kTypeAt, type);
    putNumber<std::int32_t>(mapId);
}

bool DriveMessage::putBytes(const void* from, std::size_t count, std::size_t limit) {
    if (const int err = memcpy_s(m_bytes.data() + m_end, limit, from, count); err != 0) {
        FD_LOG_ERROR("memcpy_s failed, err = %d", err);
        return false;
    }
    m_end += count;
    return true;
}

void DriveMessage::putTail(std::size_t zeros) {
    m_end += zeros;
    storeLe<std::uint32_t>(m_bytes.data() + kSizeAt,
                           static_cast<std::uint32_t>(m_end - kHeaderSize));
}

std::optional<DriveMessage> DriveMessage::addDrive(const MapFolder& map,
                                                   const SHFLVOLINFO& volume) {
    DriveMessage message(map.m_mapType == kPrinterMap ? FD_CMD_PRINTER_ADD : FD_CMD_MAP_ADD,
                         map.m_nMapIndex);
    message.putNumber<std::uint32_t>(map.m_utf8_mapName_size);
    if (!message.putBytes(map.m_utf8_mapName, map.m_utf8_mapName_size, kFieldLimit)) return {};
    message.putNumber<std::uint16_t>(map.m_utf16_mapName_size);
    if (!message.putBytes(map.m_utf16_mapName, map.m_utf16_mapName_size, kFieldLimit)) return {};
    if (!message.putBytes(&volume, sizeof volume, sizeof volume)) return {};
    message.putTail(3);
    return message;
}

std::optional<DriveMessage> DriveMessage::driveName(const MapFolder& map) {
    DriveMessage message(FD_CMD_DRIVE_NAME, map.m_nMapIndex);
    const std::size_t names =
        std::size_t{map.m_utf8_computerName_size} + map.m_utf8_shareFileName_size;
    const std::size_t numbers = 2 * sizeof(std::int32_t) + 2 * sizeof(std::uint16_t);
    message.putNumber(static_cast<std::uint32_t>(names + numbers));
    message.putNumber<std::int32_t>(map.m_rootFlag);
    message.putNumber<std::int32_t>(map.m_mapType);
    message.putNumber<std::uint16_t>(map.m_utf8_computerName_size);
    if (!message.putBytes(map.m_utf8_computerName, map.m_utf8_computerName_size, kFieldLimit)) {
        return {};
    }
    message.putNumber<std::uint16_t>(map.m_utf8_shareFileName_size);
    if (!message.putBytes(map.m_utf8_shareFileName, map.m_utf8_shareFileName_size, kFieldLimit)) {
        return {};
    }
    message.putTail(3);
    return message;
}

std::optional<DriveMessage> DriveMessage::deleteDrive(const MapFolder& map) {
    DriveMessage message(FD_CMD_MAP_DELETE, map.m_nMapIndex);
    message.putNumber<std::uint32_t>(map.m_utf8_mapName_size);
    if (!message.putBytes(map.m_utf8_mapName, map.m_utf8_mapName_size, kDeletedNameLimit)) {
        return {};
    }
    message.putTail(3);
    return message;
}

std::optional<DriveMessage> DriveMessage::userProfile(const MapFolder& map, const char* path) {
    DriveMessage message(FD_CMD_USER_PROFILE, map.m_nMapIndex);
    const std::size_t size = std::strlen(path) + 1;
    message.putNumber(static_cast<std::uint32_t>(size));
    if (!message.putBytes(path, size, kFieldLimit)) return {};
    message.putTail(2);
    return message;
}
