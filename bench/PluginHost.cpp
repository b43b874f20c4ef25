#include "PluginHost.h"

#include <algorithm>
#include <chrono>
#include <stdexcept>
#include <utility>

#include "common/Comm/WireNumbers.h"
#include "support/PolicyMessage.h"

namespace {
constexpr std::uint16_t kCreate = 1;
constexpr std::uint16_t kClose = 2;
constexpr std::uint16_t kRead = 3;
constexpr std::uint16_t kWrite = 4;
constexpr std::uint16_t kDirList = 6;
constexpr std::uint16_t kQueryFileInfo = 8;
constexpr std::uint16_t kMapAdd = 512;
constexpr std::uint16_t kResult = 514;
constexpr int kStatusAt = 12;
constexpr int kCountAt = 16;
constexpr int kMapIdInAddAt = 12;
constexpr int kCreateHandleAt = 20;
constexpr std::size_t kCreateBlockSize = 128;
constexpr std::size_t kCreateFlagsInBlock = 12;
constexpr std::uint32_t kReplyLimit = 65536;
constexpr std::chrono::seconds kPatience{20};

template <typename T>
void append(std::vector<char>& to, T value) {
    to.resize(to.size() + sizeof(T));
    storeLe(to.data() + to.size() - sizeof(T), value);
}

// The path as the dialect wants it, with the length in front.
void appendPath(std::vector<char>& to, const std::string& path) {
    append(to, static_cast<std::uint16_t>(path.size() * 2));
    for (const char c : path) {
        append(to, static_cast<std::uint16_t>(c == '/' ? '\\' : static_cast<unsigned char>(c)));
    }
}

PluginHost::Message header(std::uint16_t type, std::uint8_t mapId) {
    PluginHost::Message message;
    append(message, type);
    append(message, mapId);
    append(message, std::uint8_t{0});  // request tag
    append(message, std::uint64_t{0});
    return message;
}
}  // namespace

PluginHost::PluginHost(const std::string& folder) {
    m_manager.Init([this](char* data, int size) { return takeMessage(data, size); },
                   [](int, char*, unsigned) { return 0; });
    m_manager.Start();
    PolicyMessage policy;
    policy.mountPath = "";
    policy.rootDirEnable = 1;
    policy.filterPath = folder;
    Message message = policy.build();
    m_manager.PutMsg(message.data(), static_cast<int>(message.size()));
    if (!m_mapAdded.try_acquire_for(kPatience)) throw std::runtime_error("no drive was announced");
}

PluginHost::~PluginHost() {
    m_manager.Stop();
    m_manager.Release();
}

int PluginHost::takeMessage(const char* data, int size) {
    const auto type = loadLe<std::uint16_t>(data);
    if (type == kMapAdd) {
        m_mapId = loadLe<std::uint8_t>(data + kMapIdInAddAt);
        m_mapAdded.release();
    }
    if (type != kResult) return size;
    m_lastStatus = loadLe<std::int32_t>(data + kStatusAt);
    m_lastCount = loadLe<std::uint32_t>(data + kCountAt);
    if (m_keepResult) m_result.assign(data, data + size);
    m_results.release();
    return size;
}

void PluginHost::send(Message& request) {
    m_manager.PutMsg(request.data(), static_cast<int>(request.size()));
}

void PluginHost::receive() {
    if (!m_results.try_acquire_for(kPatience)) throw std::runtime_error("no result came");
}

PluginHost::Message PluginHost::exchange(Message request) {
    m_keepResult = true;
    send(request);
    receive();
    m_keepResult = false;
    return std::exchange(m_result, {});
}

std::int64_t PluginHost::open(const std::string& path, std::uint32_t createFlags) {
    Message request = header(kCreate, m_mapId);
    appendPath(request, path);
    const std::size_t block = request.size();
    request.resize(block + kCreateBlockSize);
    storeLe(request.data() + block + kCreateFlagsInBlock, createFlags);
    const Message result = exchange(std::move(request));
    const auto handle = loadLe<std::int64_t>(result.data() + kCreateHandleAt);
    if (m_lastStatus != 0 || handle == -1) throw std::runtime_error("cannot open " + path);
    return handle;
}

void PluginHost::close(std::int64_t handle) {
    Message request = header(kClose, m_mapId);
    append(request, handle);
    exchange(std::move(request));
}

PluginHost::Message PluginHost::queryRequest(std::int64_t handle) const {
    Message request = header(kQueryFileInfo, m_mapId);
    append(request, handle);
    return request;
}

PluginHost::Message PluginHost::readRequest(std::int64_t handle, std::uint64_t offset,
                                            std::uint32_t count) const {
    Message request = header(kRead, m_mapId);
    append(request, handle);
    append(request, offset);
    append(request, count);
    return request;
}

PluginHost::Message PluginHost::writeRequest(std::int64_t handle, std::uint64_t offset,
                                             std::uint32_t count) const {
    Message request = header(kWrite, m_mapId);
    append(request, handle);
    append(request, offset);
    append(request, count);
    request.resize(request.size() + count, 'w');
    return request;
}

PluginHost::Message PluginHost::listRequest(std::int64_t handle, const std::string& folder) const {
    Message request = header(kDirList, m_mapId);
    append(request, handle);
    appendPath(request, folder + "/*");
    append(request, std::uint32_t{0});  // flags
    append(request, std::uint32_t{0});
    append(request, kReplyLimit);
    return request;
}
