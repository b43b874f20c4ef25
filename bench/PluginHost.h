// The plug-in in this process, reached as a host reaches it: requests go in through PutMsg, results
// come back through the write callable. The server's side maps the root and opens what is asked.
#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <semaphore>
#include <string>
#include <vector>

#include "ZFdClientMgr.h"

class PluginHost {
public:
    using Message = std::vector<char>;

    explicit PluginHost(const std::string& folder);  // what the root map shows
    ~PluginHost();
    PluginHost(const PluginHost&) = delete;
    PluginHost& operator=(const PluginHost&) = delete;

    // Sends without waiting; receive() waits for one result more.
    void send(Message& request);
    void receive();

    // Sends and waits. The result whole.
    Message exchange(Message request);

    // A handle of the file or folder at the absolute path.
    std::int64_t open(const std::string& path, std::uint32_t createFlags);
    void close(std::int64_t handle);

    Message queryRequest(std::int64_t handle) const;
    Message readRequest(std::int64_t handle, std::uint64_t offset, std::uint32_t count) const;
    Message writeRequest(std::int64_t handle, std::uint64_t offset, std::uint32_t count) const;
    Message listRequest(std::int64_t handle, const std::string& folder) const;

    // Of the last result, known once receive() has returned and nothing is in flight.
    std::int32_t lastStatus() const { return m_lastStatus; }
    std::uint32_t lastCount() const { return m_lastCount; }

private:
    int takeMessage(const char* data, int size);

    ZFdClientMgr m_manager;
    std::counting_semaphore<> m_results{0};
    std::binary_semaphore m_mapAdded{0};
    std::atomic<std::uint8_t> m_mapId{0};
    std::atomic<std::int32_t> m_lastStatus{0};
    std::atomic<std::uint32_t> m_lastCount{0};
    std::atomic<bool> m_keepResult{false};
    Message m_result;  // written before m_results is released
};
