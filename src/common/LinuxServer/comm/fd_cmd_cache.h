// The pools of a connection: nodes with their payload buffers, and path buffers. Used by every
// thread of the dialect. What comes out of a pool is all zero.
#pragma once

#include <atomic>
#include <deque>

#include "common/Comm/ZThread.h"
#include "common/LinuxServer/comm/fd_wire.h"

class FdCmdCache {
public:
    FdCmdCache() = default;
    virtual ~FdCmdCache();
    FdCmdCache(const FdCmdCache&) = delete;
    FdCmdCache& operator=(const FdCmdCache&) = delete;

    // The caller owns the node until it is put back. Its pdata may be null if memory was short.
    bool get_node(fd_cmd_item** item);
    bool put_node(fd_cmd_item* item);

    bool get_path_buf(fd_buf_node* node);
    bool put_path_buf(fd_buf_node node);

    void set_node_size(int size);
    void set_path_size(int size);

private:
    std::atomic<unsigned> m_cmd_put_count{0};
    std::atomic<unsigned> m_cmd_get_count{0};
    ZMutex m_cmd_mutex{false};
    std::deque<fd_cmd_item*> m_cmd_list Z_GUARDED_BY(m_cmd_mutex);
    int m_def_node_size Z_GUARDED_BY(m_cmd_mutex) = 65536;
    std::atomic<unsigned> m_buf_put_count{0};  // Kept: each counts what the other's name says
    std::atomic<unsigned> m_buf_get_count{0};
    ZMutex m_buf_mutex{false};
    std::deque<fd_buf_node> m_buf_list Z_GUARDED_BY(m_buf_mutex);
    int m_def_path_size Z_GUARDED_BY(m_buf_mutex) = 4096;
};

// Gives the node a payload buffer of at least `size` zero bytes, taken lazily. The old content is
// gone if a new buffer had to be made. False if memory is short: the node is unchanged.
bool ensurePayload(fd_cmd_item* item, int size);

// Makes `buffer` of `size` bytes, of which the first `used` may be other than zero, the payload.
void replacePayload(fd_cmd_item* item, char* buffer, int size, int used);

// Notes that the first `used` bytes of the payload may be other than zero.
void markPayload(fd_cmd_item* item, int used);
