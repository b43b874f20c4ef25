// The table of what the server has open on one map. Processing thread, except for the destructor,
// which runs where the map goes, when no request can reach it any more.
#include "common/Comm/HandleManage.h"

#include <cstdlib>
#include <cstring>

#include "ZBoundsChecked.h"
#include "common/Comm/FdLog.h"
#include "linux/comm/Opreator/DirOperate.h"
#include "linux/comm/Opreator/FileOperate.h"

namespace {

constexpr std::size_t kNameRoom = sizeof(_ZRSFHANDLE::name) - 1;

void closeRecord(_ZRSFHANDLE* record) {
    if (record != nullptr && record->type == HANDLE_TYPE_DIR) {
        zrsfCloseDir(record);
    } else if (record != nullptr && record->type == HANDLE_TYPE_FILE) {
        zrsfCloseFile(record);
    } else {
        FD_LOG_WARN("clear error!!!   zrsfHandle: %p ", static_cast<const void*>(record));
    }
}

}  // namespace

RecordPtr newRecord() {
    return RecordPtr(static_cast<_ZRSFHANDLE*>(std::calloc(1, sizeof(_ZRSFHANDLE))));
}

HandleManage::HandleManage() = default;

HandleManage::~HandleManage() {
    ClearAll();
}

bool HandleManage::InsertHandle(long long handle, _ZRSFHANDLE* data) {
    return m_handles.emplace(handle, data).second;
}

bool HandleManage::InsertHandleByName(long long handle, const char* name, HANDLE_TYPE type) {
    RecordPtr record = newRecord();
    if (record == nullptr) {
        FD_LOG_ERROR("malloc return NULL!!!   type: %d, _handle: %lld, name: %.20s",
                     static_cast<int>(type), handle, name);
        return false;
    }

    const std::size_t count = name == nullptr ? 0 : strnlen(name, kNameRoom);
    if (const int err = memcpy_s(record->name, sizeof record->name, name, count); err != 0) {
        FD_LOG_ERROR("memcpy_s failed, err = %d", err);
        return false;
    }

    if (type == HANDLE_TYPE_DIR || type == HANDLE_TYPE_FILE) {
        record->type = type;
        record->dir.Handle = handle;
    } else {  // Kept: inserted all the same, as a file with descriptor 0
        FD_LOG_ERROR("_type is errno!!!   type: %d, _handle: %lld, _name: %.20s",
                     static_cast<int>(type), handle, name);
    }

    if (!InsertHandle(handle, record.get())) return false;
    static_cast<void>(record.release());  // the table owns it from here
    return true;
}

bool HandleManage::RemoveHandle(long long handle) {
    const auto entry = m_handles.find(handle);
    if (entry == m_handles.end()) {
        FD_LOG_WARN("removeHandle error!!!   can not find the handle: %lld", handle);
        return false;
    }
    std::free(entry->second);
    m_handles.erase(entry);
    return true;
}

_ZRSFHANDLE* HandleManage::GetHandleData(long long handle) {
    const auto entry = m_handles.find(handle);
    return entry == m_handles.end() ? nullptr : entry->second;
}

bool HandleManage::starts_with(const char* s, const char* prefix) {
    if (s == nullptr || prefix == nullptr) return false;
    return std::strncmp(s, prefix, std::strlen(prefix)) == 0;
}

void HandleManage::clearAllHandleInTheVolumePath(const char* path) {
    for (auto entry = m_handles.begin(); entry != m_handles.end();) {
        _ZRSFHANDLE* record = entry->second;
        if (record == nullptr || !starts_with(record->name, path)) {
            ++entry;
            continue;
        }
        closeRecord(record);
        std::free(record);
        entry = m_handles.erase(entry);
    }
}

void HandleManage::ClearAll() {
    for (const auto& [handle, record] : m_handles) {
        closeRecord(record);
        std::free(record);
    }
    m_handles.clear();
}

bool HandleManage::printAll() {
    for (const auto& [handle, record] : m_handles) {
        if (record == nullptr) continue;
        const int id = static_cast<int>(record->dir.Handle);
        if (record->type == HANDLE_TYPE_DIR) {
            const auto stream = reinterpret_cast<std::uintptr_t>(record->dir.SearchHandle);
            FD_LOG_INFO("DIR--> id: %d, searchId: %d, name: %.20s", id, static_cast<int>(stream),
                        record->name);
        } else if (record->type == HANDLE_TYPE_FILE) {
            FD_LOG_INFO("FILE--> id: %d, name: %.20s", id, record->name);
        }
    }
    return true;
}
