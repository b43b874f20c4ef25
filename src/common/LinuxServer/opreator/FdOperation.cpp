// The common course of the operation handlers.
#include "common/LinuxServer/opreator/FdOperation.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <limits>

#include "ZBoundsChecked.h"
#include "common/Comm/WireNumbers.h"

namespace {
constexpr std::int64_t kNumberSize = 8;
constexpr int kRecordRoom = sizeof(fd_stat);  // Kept: for the smaller record as well
}  // namespace

FdLocalPath::FdLocalPath(const char* tag, const FdMapInfo& map, const char* path)
    : m_cache(map.context()->m_cmd_cache) {
    if (!m_cache.get_path_buf(&m_buffer)) {
        FD_LOG_AS(tag, ZLOG_LEVEL_WARNING, "get cache buf node failure.");
        return;
    }
    m_formatted = sprintf_s(m_buffer.data, static_cast<std::size_t>(m_buffer.size), "%s%s",
                            map.getMountPath(), path) != -1;
    if (!m_formatted) FD_LOG_AS(tag, ZLOG_LEVEL_WARNING, "sprintf_s failed!!!.");
}

FdLocalPath::~FdLocalPath() {
    if (hasBuffer()) m_cache.put_path_buf(m_buffer);
}

FdOperation::FdOperation(const char* tag, FdMapInfo* map, fd_cmd_item* item)
    : m_tag(tag), m_map(map), m_item(item) {
    const std::int32_t pathLength = length();
    m_path = text();
    bytes(pathLength);
    item->head.extsize = 0;
}

bool FdOperation::has(std::int64_t count) {
    m_inside = m_inside && count >= 0 && count <= m_item->pdatasize - m_at;
    return m_inside;
}

std::int64_t FdOperation::number() {
    const char* field = bytes(kNumberSize);
    return field == nullptr ? 0 : loadLe<std::int64_t>(field);
}

std::int32_t FdOperation::length() {
    return static_cast<std::int32_t>(number());
}

const char* FdOperation::text() {
    if (!has(0)) return "";
    const char* begin = m_item->pdata + m_at;
    const auto room = static_cast<std::size_t>(m_item->pdatasize - m_at);
    m_inside = room > 0 && std::memchr(begin, 0, room) != nullptr;
    return m_inside ? begin : "";
}

const char* FdOperation::bytes(std::int64_t count) {
    if (!has(count)) return nullptr;
    const char* begin = m_item->pdata + m_at;
    m_at += count;
    return begin;
}

fd_file_info FdOperation::fileInfo(std::int32_t infoLength) {
    fd_file_info info{};
    if (has(sizeof(info))) std::memcpy(&info, m_item->pdata + m_at, sizeof(info));
    bytes(infoLength);
    return info;
}

int FdOperation::finish(int res) {
    m_item->head.res = res;
    FD_LOG_AS(m_tag, ZLOG_LEVEL_DEBUG, "finish!  res: %d, item res: %ld, extsize: %d", res,
              static_cast<long>(m_item->head.res), static_cast<int>(m_item->head.extsize));
    return res;
}

int FdOperation::refuse() {
    FD_LOG_AS(m_tag, ZLOG_LEVEL_WARNING, "the map is readonly.  policy: %#x",
              static_cast<unsigned>(m_map->getMountPolicy()));
    m_item->head.res = kResReadOnly;
    return kResReadOnly;
}

int FdOperation::refuse(std::int64_t mode) {
    FD_LOG_AS(m_tag, ZLOG_LEVEL_WARNING, "the map is readonly.  policy: %#x, mode: %#x",
              static_cast<unsigned>(m_map->getMountPolicy()), static_cast<unsigned>(mode));
    m_item->head.res = kResReadOnly;
    return kResReadOnly;
}

int FdOperation::reply(const void* record, int size) {
    if (!ensurePayload(m_item, kRecordRoom)) {
        const int err = errno;
        FD_LOG_AS(m_tag, ZLOG_LEVEL_WARNING, "malloc failure, res: %d, errno: %d",
                  int{kResTryAgain}, err);
        return kResTryAgain;
    }
    markPayload(m_item, size);
    const int err = memcpy_s(m_item->pdata, static_cast<std::size_t>(m_item->pdatasize), record,
                             static_cast<std::size_t>(size));
    if (err != 0) {
        FD_LOG_AS(m_tag, ZLOG_LEVEL_ERROR, "memcpy_s failed, err = %d", err);
        return kResTryAgain;
    }
    m_item->head.extsize = size;
    return 0;
}

int FdOperation::replyInfo(const fd_file_info& info, const char* failure) {
    constexpr int kSize = sizeof(info);  // there is room: the request held one
    markPayload(m_item, kSize);
    const auto room = static_cast<std::size_t>(m_item->pdatasize);
    if (memmove_s(m_item->pdata, room, &info, kSize) != 0) {
        FD_LOG_AS(m_tag, ZLOG_LEVEL_WARNING, "%s", failure);
        return kResTryAgain;
    }
    m_item->head.extsize = kSize;
    return 0;
}

FdReplyBuffer::FdReplyBuffer(fd_cmd_item* item, std::int64_t size, std::int64_t extra)
    : m_item(item), m_needed(size) {
    if (size < 1) return;
    if (size > std::numeric_limits<std::int64_t>::max() - extra) {
        errno = ENOMEM;  // as calloc leaves it
        return;
    }
    m_needed = size + extra;
    if (m_needed <= item->pdatasize) {
        m_data = item->pdata;
        return;
    }
    m_own.reset(static_cast<char*>(std::calloc(static_cast<std::size_t>(m_needed), 1)));
    m_data = m_own.get();
}

void FdReplyBuffer::deliver(int result) {
    constexpr std::int64_t kLargest = std::numeric_limits<std::int32_t>::max();
    if (m_own == nullptr) {
        // A failed call may have left bytes anywhere in the room that it was given.
        const std::int64_t used = result > 0 ? result : std::max<std::int64_t>(m_needed, 0);
        if (m_data != nullptr) markPayload(m_item, static_cast<int>(used));
    } else if (result > 0) {
        const auto size = static_cast<int>(std::min(m_needed, kLargest));
        replacePayload(m_item, m_own.release(), size, result);
    }
    if (result > 0) m_item->head.extsize = result;
}
