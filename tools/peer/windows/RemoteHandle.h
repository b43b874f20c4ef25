// What the other side has open for this one, closed with its owner.
#pragma once

#include <cerrno>
#include <cstdint>
#include <memory>
#include <utility>

#include "peer/windows/Session.h"

namespace peer::windows {

class RemoteHandle {
public:
    RemoteHandle() = default;
    RemoteHandle(std::shared_ptr<Session> session, std::uint8_t map, std::uint64_t value)
        : m_session(std::move(session)), m_map(map), m_value(value) {}
    RemoteHandle(RemoteHandle&& other) noexcept { swap(other); }
    RemoteHandle& operator=(RemoteHandle other) noexcept {
        swap(other);
        return *this;
    }
    ~RemoteHandle() {
        if (m_session) m_session->release(m_map, m_value);
    }

    Session& session() const { return *m_session; }
    std::uint8_t map() const { return m_map; }
    std::uint64_t value() const { return m_value; }

private:
    void swap(RemoteHandle& other) noexcept {
        m_session.swap(other.m_session);
        std::swap(m_map, other.m_map);
        std::swap(m_value, other.m_value);
    }

    std::shared_ptr<Session> m_session;
    std::uint8_t m_map = 0;
    std::uint64_t m_value = kNoHandle;
};

// Takes a reply that is not what it must be for a failure of the one operation.
template <typename Work>
auto checked(Work work) {
    try {
        return work();
    } catch (const BadMessage& bad) {
        throw RemoteError(EIO, bad.what());
    }
}

}  // namespace peer::windows
