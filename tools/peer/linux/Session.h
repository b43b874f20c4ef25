// The remote desktop's side of one connection in the Linux dialect: handshake, policy, the drives
// that are offered, and numbered requests, any number of them in flight and answered in any order.
// A thread of its own takes drives in and sees them off; all operations may be called from any
// thread.
//
// The other side drops a request for a drive that it is about to list again, which it does once
// after the drive was mapped. A drive is offered when it has answered for the first time.
#pragma once

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <deque>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "peer/Bytes.h"
#include "peer/Channel.h"
#include "peer/Errors.h"
#include "peer/Machine.h"
#include "peer/Receiver.h"
#include "peer/linux/Messages.h"
#include "peer/linux/Tracer.h"
#include "peer/windows/Policy.h"

namespace peer::linux {

// An offered drive. `gone` never goes back to false.
struct Drive {
    Drive(std::int32_t number, PlugRecord record) : map(number), plug(std::move(record)) {}

    const std::int32_t map;
    const PlugRecord plug;
    std::atomic<bool> gone{false};
};
using DrivePtr = std::shared_ptr<Drive>;

class Session {
private:
    struct Slot;

public:
    // A request under way. One that nobody waits for any more may be let go.
    class Ticket {
    public:
        Ticket() = default;
        Ticket(Session& session, Slot& slot) : m_session(&session), m_slot(&slot) {}
        Ticket(Ticket&& other) noexcept : m_session(other.m_session), m_slot(other.m_slot) {
            other.m_slot = nullptr;
        }
        Ticket& operator=(Ticket&&) = delete;
        ~Ticket();

    private:
        friend class Session;
        Session* m_session = nullptr;
        Slot* m_slot = nullptr;
    };

    static constexpr std::size_t kMaxInFlight = 512;  // each one costs the other side a thread

    Session(Channel& channel, Machine::Options options);
    ~Session();
    Session(const Session&) = delete;
    Session& operator=(const Session&) = delete;

    // Waits for the handshake and answers with the policy. Once, before everything else.
    void open();

    // Interrupts the channel for good and waits for the threads. Every operation fails from here
    // on, and none touches the channel.
    void close();

    // --- drives

    std::vector<DrivePtr> drives() const;

    // Of drives with one name, `found` sees the earlier first, whichever answers first.
    bool waitForDrives(const std::function<bool(const std::vector<DrivePtr>&)>& found,
                       std::chrono::milliseconds limit);

    // Called on the thread of the drives when they changed or the session has ended. Not from
    // within a listener.
    void listen(std::function<void()> listener);
    std::string ending() const;

    // --- requests

    // Sends. The data of a request need not outlive this.
    Ticket submit(const Drive& drive, Request request);

    // The reply, whole. Throws NoAnswer, RemoteError with ENODEV for a drive that went meanwhile,
    // or what ended the session.
    Bytes wait(Ticket ticket);
    Bytes ask(const Drive& drive, Request request) {
        return wait(submit(drive, std::move(request)));
    }

    // Every wait, now and later, throws Cancelled, until resume().
    void cancel();
    void resume();

private:
    using Clock = std::chrono::steady_clock;

    // One request under way. The number of a request names its slot and how often the slot was
    // used, so that an answer that comes too late finds nobody.
    struct Slot {
        std::mutex mutex;  // guards what follows
        std::condition_variable answered;
        std::int64_t use = 1;
        std::int32_t map = 0, code = 0;
        bool waiting = false, done = false, driveGone = false;
        Bytes reply;
    };

    // A drive from its announcement on.
    struct Guest {
        enum class State { kPlugged, kMapped, kAcknowledged, kOffered };

        DrivePtr drive;
        State state = State::kPlugged;
        Clock::time_point nextProbe;  // while kAcknowledged
        Clock::duration pause{};      // between two probes
    };

    void handle(Bytes message);
    void handleControl(const Head& head, View message);
    void handlePlug(const Head& head, View message);
    void handleUnplug(std::int32_t map);
    void handleProbed(std::int32_t map);
    void deliver(const Head& head, Bytes message);
    void end(const std::string& why);

    void driveLoop();
    bool driveWork(std::unique_lock<std::mutex>& lock);
    void probe(std::int32_t map);
    void tellListener();
    bool isSettledLocked() const;

    Slot& takeSlot();
    void release(Slot& slot);
    template <typename Work>
    void forAllSlots(Work work);
    std::int64_t numberOf(const Slot& slot) const;

    void send(View head, View data = {}, View tail = {});
    void trace(Direction direction, View message);
    void check() const;
    std::vector<Guest>::iterator find(std::int32_t map);
    std::vector<DrivePtr> drivesLocked() const;
    std::vector<DrivePtr> drivesInOrderLocked() const;

    Channel& m_channel;
    const Machine::Options m_options;
    const std::string m_name;

    std::vector<Slot> m_slots;
    std::mutex m_freeMutex;  // guards m_free
    std::condition_variable m_freed;
    std::vector<Slot*> m_free;

    std::atomic<bool> m_ended{false};
    std::atomic<bool> m_cancelled{false};

    mutable std::mutex m_mutex;  // guards everything below, but for what says otherwise
    std::condition_variable m_changed;
    std::vector<Guest> m_guests;
    std::deque<Bytes> m_goodbyes;  // answers to unplugs, to be sent
    Clock::time_point m_lastNews;
    bool m_shaken = false;
    bool m_news = false;   // for the listener
    std::string m_ending;  // why no more messages come; empty while they may

    std::mutex m_listenerMutex;  // held while it runs; guards m_listener
    std::function<void()> m_listener;

    std::mutex m_sendMutex;  // held across a send; guards m_closed
    bool m_closed = false;
    std::atomic<bool> m_closing{false};

    std::mutex m_traceMutex;  // guards m_tracer; held while the sink runs
    Tracer m_tracer;

    Receiver m_receiver;
    std::thread m_driveKeeper;
};

}  // namespace peer::linux
