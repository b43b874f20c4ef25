#include "peer/windows/SpareHandles.h"

#include <utility>

#include "peer/windows/Status.h"

namespace peer::windows {

namespace {
constexpr std::size_t kMostSpares = 16;
constexpr std::chrono::seconds kIdle{1};
}  // namespace

SpareHandles::SpareHandles(std::shared_ptr<Session> session, std::uint8_t map)
    : m_session(std::move(session)), m_map(map) {
    m_tidier = std::thread([this] { tidy(); });
}

SpareHandles::~SpareHandles() {
    {
        const std::lock_guard lock(m_mutex);
        m_ended = true;
        m_changed.notify_all();
    }
    m_tidier.join();
    closeAll(m_spares);
}

Session::Ticket SpareHandles::open(const std::string& folder) {
    return m_session->submit(createRequest(
        m_map, wirePath(folder), kDirectory | kOpenIfExists | kFailIfNew | kAccessRead, 0));
}

RemoteHandle SpareHandles::opened(const Session::Ticket& ticket) {
    const Created created = parseCreated(m_session->wait(ticket));
    RemoteHandle handle;
    if (created.handle != kNoHandle) handle = RemoteHandle(m_session, m_map, created.handle);
    if (created.outcome() != kSuccess) throw StatusError(created.outcome());
    return handle;
}

RemoteHandle SpareHandles::take() {
    Session::Ticket ticket;
    std::string folder;
    {
        const std::lock_guard lock(m_mutex);
        m_lastUse = Clock::now();
        folder = m_folder;
        if (!m_spares.empty()) {
            ticket = std::move(m_spares.front());
            m_spares.pop_front();
        }
    }
    return opened(ticket ? ticket : open(folder));
}

void SpareHandles::order() {
    std::string folder;
    {
        const std::lock_guard lock(m_mutex);
        if (m_spares.size() >= kMostSpares) return;
        folder = m_folder;
    }
    Session::Ticket ticket = open(folder);
    const std::lock_guard lock(m_mutex);
    m_spares.push_back(std::move(ticket));
    if (m_spares.size() == 1) m_changed.notify_all();
}

void SpareHandles::openAt(std::string_view folder) {
    const std::lock_guard lock(m_mutex);
    m_folder = folder;
}

void SpareHandles::tidy() {
    std::unique_lock lock(m_mutex);
    while (!m_ended) {
        if (m_spares.empty()) {
            m_changed.wait(lock);
        } else if (Clock::now() < m_lastUse + kIdle) {
            m_changed.wait_until(lock, m_lastUse + kIdle);
        } else {
            const auto spares = std::exchange(m_spares, {});
            lock.unlock();
            closeAll(spares);
            lock.lock();
        }
    }
}

void SpareHandles::closeAll(const std::deque<Session::Ticket>& spares) {
    for (const Session::Ticket& spare : spares) {
        try {
            opened(spare);
        } catch (const std::exception&) {
            // Not opened, so there is nothing to close; or the session closes it later.
            continue;
        }
    }
}

}  // namespace peer::windows
