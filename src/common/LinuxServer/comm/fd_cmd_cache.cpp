// The pools of nodes and path buffers.
#include "common/LinuxServer/comm/fd_cmd_cache.h"

#include <algorithm>
#include <cassert>
#include <cstdlib>
#include <cstring>
#include <new>

#include "common/Comm/FdLog.h"

namespace {
void clearNode(fd_cmd_item* item) {
    item->head = {};
    if (item->dirty > 0) std::memset(item->pdata, 0, static_cast<std::size_t>(item->dirty));
    item->dirty = 0;
}

// Huge payloads are checked in part: touching all of one would take the memory that nobody used.
[[maybe_unused]] bool isPayloadZero(const fd_cmd_item& item) {
    const int size = std::min(item.pdatasize, 1 << 20);
    return size < 1 || (item.pdata[0] == 0 && std::memcmp(item.pdata, item.pdata + 1,
                                                          static_cast<std::size_t>(size - 1)) == 0);
}

fd_cmd_item* makeNode(int payloadSize) {
    auto* item = new (std::nothrow) fd_cmd_item{};
    if (item == nullptr) {
        FD_LOG_WARN("cmd cache create node failure");
        return nullptr;
    }
    if (payloadSize > 0) ensurePayload(item, payloadSize);
    FD_LOG_INFO("cmd cache create node. item: %p, pdata: %p, pdatasize: %d",
                static_cast<void*>(item), static_cast<void*>(item->pdata), item->pdatasize);
    return item;
}
}  // namespace

bool ensurePayload(fd_cmd_item* item, int size) {
    if (size <= item->pdatasize) return true;
    auto* buffer = static_cast<char*>(std::calloc(static_cast<std::size_t>(size), 1));
    if (buffer == nullptr) return false;
    replacePayload(item, buffer, size, 0);
    return true;
}

void replacePayload(fd_cmd_item* item, char* buffer, int size, int used) {
    std::free(item->pdata);
    item->pdata = buffer;
    item->pdatasize = size;
    item->dirty = used;
}

void markPayload(fd_cmd_item* item, int used) {
    item->dirty = std::max(item->dirty, used);
}

FdCmdCache::~FdCmdCache() {
    FD_LOG_INFO("m_cmd_put_count: %d, m_cmd_get_count: %d", static_cast<int>(m_cmd_put_count),
                static_cast<int>(m_cmd_get_count));
    FD_LOG_INFO("m_buf_put_count: %d, m_buf_get_count: %d", static_cast<int>(m_buf_put_count),
                static_cast<int>(m_buf_get_count));
    {
        const ZMutexLocker lock(m_cmd_mutex);
        FD_LOG_INFO("cmd queue length. %d", static_cast<int>(m_cmd_list.size()));
        for (fd_cmd_item* item : m_cmd_list) {
            std::free(item->pdata);
            delete item;
        }
    }
    const ZMutexLocker lock(m_buf_mutex);
    FD_LOG_INFO("buf queue length. %d", static_cast<int>(m_buf_list.size()));
    for (const fd_buf_node& node : m_buf_list) std::free(node.data);
}

bool FdCmdCache::get_node(fd_cmd_item** item) {
    fd_cmd_item* node = nullptr;
    int payloadSize = 0;
    {
        const ZMutexLocker lock(m_cmd_mutex);
        payloadSize = m_def_node_size;
        if (!m_cmd_list.empty()) {
            node = m_cmd_list.front();
            m_cmd_list.pop_front();
        }
    }
    if (node == nullptr) node = makeNode(payloadSize);
    if (node == nullptr) return false;
    assert(node->dirty == 0 && isPayloadZero(*node));
    node->head.head_size = kMsgHeadSize;
    ++m_cmd_get_count;
    *item = node;
    return true;
}

bool FdCmdCache::put_node(fd_cmd_item* item) {
    clearNode(item);
    {
        const ZMutexLocker lock(m_cmd_mutex);
        m_cmd_list.push_back(item);
    }
    ++m_cmd_put_count;
    return true;
}

bool FdCmdCache::get_path_buf(fd_buf_node* node) {
    ++m_buf_put_count;
    int size = 0;
    {
        const ZMutexLocker lock(m_buf_mutex);
        size = m_def_path_size;
        if (!m_buf_list.empty()) {
            *node = m_buf_list.front();
            m_buf_list.pop_front();
            return true;
        }
    }
    auto* data =
        size > 0 ? static_cast<char*>(std::calloc(static_cast<std::size_t>(size), 1)) : nullptr;
    if (data == nullptr) {
        FD_LOG_WARN("cmd cache create path buf node failure");
        return false;
    }
    FD_LOG_INFO("cmd cache create path buf node.  pdata: %p, size: %d", static_cast<void*>(data),
                size);
    *node = {data, size};
    return true;
}

bool FdCmdCache::put_path_buf(fd_buf_node node) {
    ++m_buf_get_count;
    if (node.size != 0) std::memset(node.data, 0, static_cast<std::size_t>(node.size));
    const ZMutexLocker lock(m_buf_mutex);
    m_buf_list.push_back(node);
    return true;
}

void FdCmdCache::set_node_size(int size) {
    FD_LOG_INFO("set node size. size: %d", size);
    const ZMutexLocker lock(m_cmd_mutex);
    m_def_node_size = size;
}

void FdCmdCache::set_path_size(int size) {
    FD_LOG_INFO("set path size. size: %d", size);
    const ZMutexLocker lock(m_buf_mutex);
    m_def_path_size = size;
}
