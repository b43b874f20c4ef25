// What the operation handlers have in common: reading a request's fields, joining the local path
// and writing the reply. One object lives as long as one handler call, on its operator thread.
#pragma once

#include <cstdint>
#include <cstdlib>
#include <memory>

#include "common/Comm/FdLog.h"
#include "common/LinuxServer/comm/fd_cmd_cache.h"
#include "common/LinuxServer/workthread/FdContext.h"
#include "common/LinuxServer/workthread/FdMapInfo.h"

// The local path of a request: the map's mount path and the request's path in a pooled buffer.
class FdLocalPath {
public:
    FdLocalPath(const char* tag, const FdMapInfo& map, const char* path);
    ~FdLocalPath();
    FdLocalPath(const FdLocalPath&) = delete;
    FdLocalPath& operator=(const FdLocalPath&) = delete;

    bool hasBuffer() const { return m_buffer.data != nullptr; }

    // Null when there is no buffer or the path does not fit; both are logged.
    const char* get() const { return m_formatted ? m_buffer.data : nullptr; }

private:
    FdCmdCache& m_cache;
    fd_buf_node m_buffer{};
    bool m_formatted = false;
};

class FdOperation {
public:
    // Reads the path. `tag` is the operation's name, for the log.
    FdOperation(const char* tag, FdMapInfo* map, fd_cmd_item* item);
    FdOperation(const FdOperation&) = delete;
    FdOperation& operator=(const FdOperation&) = delete;

    // The request's fields, one after the other. What lies beyond the payload buffer reads as zero
    // or as an empty text, and isInside() tells.
    const char* path() const { return m_path; }
    std::int64_t number();
    std::int32_t length();                  // of what follows; the low 32 bits of a number
    const char* text();                     // up to its terminator; does not move on
    const char* bytes(std::int64_t count);  // `count` bytes, behind which the next field lies
    fd_file_info fileInfo(std::int32_t infoLength = sizeof(fd_file_info));
    bool isInside() const { return m_inside; }

    const char* tag() const { return m_tag; }
    FdMapInfo* map() const { return m_map; }
    fd_cmd_item* item() const { return m_item; }

    // Stores the result and logs the end. The handler returns what this returns.
    int finish(int res);

    // The answer of a changing operation on a read-only map, with one of the two warnings.
    int refuse();
    int refuse(std::int64_t mode);

    // Joins the path, calls `work` with it and stores what it gives.
    template <typename Work>
    int run(Work work) {
        const FdLocalPath local(m_tag, *m_map, m_path);
        return finish(local.get() == nullptr ? int{kResTryAgain} : work(local.get()));
    }

    // The same for an operation with a second path.
    template <typename Work>
    int run(const char* to, Work work) {
        const FdLocalPath local(m_tag, *m_map, m_path);
        if (!local.hasBuffer()) return finish(kResTryAgain);  // which is said once
        const FdLocalPath second(m_tag, *m_map, to);
        const bool joined = local.get() != nullptr && second.get() != nullptr;
        return finish(joined ? work(local.get(), second.get()) : int{kResTryAgain});
    }

    // Makes `record` the whole reply payload. The handler's result: 0, or what stands for a
    // failure, which is logged.
    int reply(const void* record, int size);

    // Sends the request's record back. `failure` is what a failure is logged with.
    int replyInfo(const fd_file_info& info, const char* failure);

private:
    bool has(std::int64_t count);

    const char* m_tag;
    FdMapInfo* m_map;
    fd_cmd_item* m_item;
    std::int64_t m_at = 0;
    bool m_inside = true;
    const char* m_path;
};

// Room for a reply of at most `size` bytes and `extra` more: the node's own buffer if it is large
// enough, since the request has been read by then, else a new one that takes its place.
class FdReplyBuffer {
public:
    FdReplyBuffer(fd_cmd_item* item, std::int64_t size, std::int64_t extra = 0);
    FdReplyBuffer(const FdReplyBuffer&) = delete;
    FdReplyBuffer& operator=(const FdReplyBuffer&) = delete;

    // Whether there was memory. A size below 1 needs none.
    bool isReady() const { return m_needed < 1 || m_data != nullptr; }
    char* data() const { return m_data; }

    // Makes the first `result` bytes the reply payload, if there are any.
    void deliver(int result);

private:
    struct FreeBytes {
        void operator()(char* bytes) const { std::free(bytes); }
    };

    fd_cmd_item* m_item;
    std::int64_t m_needed;
    std::unique_ptr<char, FreeBytes> m_own;
    char* m_data = nullptr;
};
