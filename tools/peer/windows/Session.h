// The remote desktop's side of one connection in the Windows dialect: handshake, policy, the drives
// that are offered, and numbered requests with many in flight. All operations may be called from
// any thread.
//
// The other side answers one request after the other, in the order in which they came. A request
// whose follower is answered will therefore never be.
#pragma once

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <deque>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

#include "peer/Bytes.h"
#include "peer/Channel.h"
#include "peer/Errors.h"
#include "peer/Receiver.h"
#include "peer/windows/Messages.h"
#include "peer/windows/Policy.h"
#include "peer/windows/Tracer.h"

namespace peer::windows {

struct Drive {
    std::uint32_t id = 0;
    std::string name;
    VolumeInfo volume;
    bool printer = false;
    bool hasNames = false;  // the three below were announced
    std::int32_t type = 0;
    std::string computer, share;
};

class Session {
public:
    // A message leaves or has come. Called with a lock held: it must not call back.
    using TraceSink = std::function<void(const std::string& line)>;

    // The drives changed: see drives(), or the session has ended. Called on any thread with a lock
    // held: it must not call back.
    using DriveListener = std::function<void()>;

    struct Options {
        Policy policy;
        std::chrono::milliseconds timeout{30000};  // for one answer
        TraceSink trace;                           // may be empty
        DriveListener driveListener;               // may be empty
    };

    class Pending;
    using Ticket = std::shared_ptr<Pending>;

    static constexpr std::size_t kMaxInFlight = 255;  // `seq` has one byte

    // The channel outlives the session.
    Session(Channel& channel, Options options);

    ~Session();

    Session(const Session&) = delete;
    Session& operator=(const Session&) = delete;

    // Waits for the handshake and answers with the policy. Once, before everything else.
    void open();

    // Interrupts the channel for good. Every operation fails from here on, and none touches the
    // channel.
    void close();

    // Why the session has ended, in words; empty while it goes on.
    std::string ending() const;

    void sendPolicy(const Policy& policy);

    // Whether the policy lets sizes be changed, up to its bound.
    bool isResizable() const { return m_resizable; }

    // --- drives

    std::vector<Drive> drives() const;

    // True once `found` holds for the drives. False if it did not when all drives of the other side
    // were known, or after `limit`.
    bool waitForDrives(const std::function<bool(const std::vector<Drive>&)>& found,
                       std::chrono::milliseconds limit);

    // --- requests

    // Sends, and blocks while kMaxInFlight requests wait for their results.
    Ticket submit(Bytes request);

    // The result, whole. One thread waits for a ticket. Throws SessionError; what an open that was
    // given up has opened all the same is closed later.
    Bytes wait(const Ticket& ticket);
    Bytes ask(Bytes request) { return wait(submit(std::move(request))); }

    // Opens or creates. Throws StatusError if there is no handle at the end.
    Created open(std::uint8_t map, std::string_view path, std::uint32_t flags,
                 std::uint32_t mode = 0);
    void close(std::uint8_t map, std::uint64_t handle);

    // Closes without waiting for the answer.
    void release(std::uint8_t map, std::uint64_t handle) noexcept;

    ObjectInfo queryInfo(std::uint8_t map, std::uint64_t handle);
    VolumeInfo volume(std::uint8_t map, std::uint64_t handle);
    ObjectInfo setInfo(std::uint8_t map, std::uint64_t handle, const ObjectInfo& info);
    ObjectInfo setEndOfFile(std::uint8_t map, std::uint64_t handle, std::int64_t size);
    void flush(std::uint8_t map, std::uint64_t handle);
    void remove(std::uint8_t map, std::string_view path, std::uint32_t flags);
    void rename(std::uint8_t map, std::string_view from, std::string_view to, std::uint32_t flags);

    // Every wait, now and later, throws Cancelled, until resume().
    void cancel();
    void resume();

private:
    void handle(Bytes message);
    Ticket handleResult(Bytes message);
    void handleDrive(const Header& header, View message);
    void end(const std::string& why);
    void trace(Direction direction, View message);
    Ticket send(Bytes request);
    void closeOrphans();
    void closeOrKeep(std::uint8_t map, std::uint64_t handle) noexcept;
    void abandonLocked(Pending& ticket);
    void wakeAllLocked();
    bool mapsAreKnown();
    bool isOverLocked() const { return m_cancelled || !m_ending.empty(); }
    void checkLocked() const;

    Channel& m_channel;
    const Options m_options;
    std::atomic<bool> m_resizable;  // by the policy that was sent last

    mutable std::mutex m_mutex;         // guards everything below
    std::condition_variable m_changed;  // all but a result, which wakes its own waiter
    std::deque<Ticket> m_inFlight;      // oldest first; their seqs follow each other
    std::vector<std::pair<std::uint8_t, std::uint64_t>> m_orphans;  // maps and handles to close
    std::uint8_t m_nextSeq = 0;
    std::vector<Drive> m_drives;
    std::chrono::steady_clock::time_point m_lastNews;
    bool m_shaken = false;
    bool m_cancelled = false;
    std::string m_ending;  // why no more messages come; empty while they may
    Tracer m_tracer;

    // Held from taking a number to the write: requests leave in the order of their numbers. Taken
    // before m_mutex.
    std::mutex m_submitMutex;

    Receiver m_receiver;
};

}  // namespace peer::windows
