// Takes in the messages of a channel, one after the other: on a thread of its own, and on the
// threads that linger for an answer, which spares them the way through the scheduler.
#pragma once

#include <atomic>
#include <condition_variable>
#include <functional>
#include <mutex>
#include <string>
#include <thread>

#include "common/Comm/Linger.h"
#include "peer/Bytes.h"
#include "peer/Channel.h"

namespace peer {

class Receiver {
public:
    // Gets each message; never two at a time. May throw BadMessage, which ends the channel's use.
    using Handler = std::function<void(Bytes message)>;

    // Called once, behind the last message, with the reason in words.
    using EndHandler = std::function<void(const std::string& why)>;

    // The channel outlives this. Both handlers are called on any thread that takes messages in.
    Receiver(Channel& channel, Handler handle, EndHandler end);
    ~Receiver();
    Receiver(const Receiver&) = delete;
    Receiver& operator=(const Receiver&) = delete;

    // Interrupts the channel for good. Nobody handles a message or touches the channel behind this.
    void close();

    // Returns as soon as `idle` gives false, at the latest after a moment, in which this thread
    // takes in what comes. Not with a lock that a handler takes.
    template <typename Idle>
    void lingerWhile(Idle idle) {
        ++m_helpers;
        ::lingerWhile([&] { return idle() && (!help() || idle()); });
        --m_helpers;
    }

    // Exists while a thread sleeps until a message has been handled.
    class Sleeper {
    public:
        explicit Sleeper(Receiver& receiver);
        ~Sleeper();
        Sleeper(const Sleeper&) = delete;
        Sleeper& operator=(const Sleeper&) = delete;

    private:
        Receiver& m_receiver;
    };

private:
    void run();
    bool help();
    bool takeIn();
    void finish(const std::string& why);
    bool isHelped();
    void pause();
    void awaitInput();

    Channel& m_channel;
    const Handler m_handle;
    const EndHandler m_end;

    std::mutex m_turn;    // held while a message is taken in; guards m_over
    bool m_over = false;  // nothing more comes

    std::atomic<int> m_helpers{0};      // threads that linger
    std::atomic<unsigned> m_helped{0};  // how often they have taken something in
    unsigned m_seen = 0;                // of these, by this object's thread

    std::mutex m_pauseMutex;  // guards what follows
    std::condition_variable m_needed;
    int m_sleepers = 0;
    bool m_closing = false;

    std::thread m_thread;
};

}  // namespace peer
