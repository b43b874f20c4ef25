// Handles of a drive's own folder, or of one that can be opened, opened ahead of their use. The
// other side looks up or lists once with a handle and takes any for it, so one that is open already
// saves an exchange. When nothing has been looked up for a while they are closed, or the drive
// could not be unmounted over there.
#pragma once

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <deque>
#include <memory>
#include <mutex>
#include <string>
#include <string_view>
#include <thread>

#include "peer/windows/RemoteHandle.h"
#include "peer/windows/Session.h"

namespace peer::windows {

class SpareHandles {
public:
    SpareHandles(std::shared_ptr<Session> session, std::uint8_t map);
    ~SpareHandles();  // closes them
    SpareHandles(const SpareHandles&) = delete;
    SpareHandles& operator=(const SpareHandles&) = delete;

    // One that is open, or one that is opened now. Throws StatusError if the folder cannot be.
    RemoteHandle take();

    // From now on this folder.
    void openAt(std::string_view folder);

    // Opens another, for the next who takes. Does not wait.
    void order();

private:
    using Clock = std::chrono::steady_clock;

    Session::Ticket open(const std::string& folder);
    RemoteHandle opened(const Session::Ticket& ticket);
    void tidy();
    void closeAll(const std::deque<Session::Ticket>& spares);

    const std::shared_ptr<Session> m_session;
    const std::uint8_t m_map;
    std::mutex m_mutex;  // guards everything below but the thread
    std::condition_variable m_changed;
    std::string m_folder;
    std::deque<Session::Ticket> m_spares;
    Clock::time_point m_lastUse;
    bool m_ended = false;
    std::thread m_tidier;
};

}  // namespace peer::windows
