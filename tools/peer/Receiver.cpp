#include "peer/Receiver.h"

#include <chrono>
#include <utility>

#include "peer/Errors.h"

namespace peer {

namespace {
// How late a message may be noticed that nobody waits for, behind one that a helper took in.
constexpr std::chrono::milliseconds kPause{1};
}  // namespace

Receiver::Receiver(Channel& channel, Handler handle, EndHandler end)
    : m_channel(channel), m_handle(std::move(handle)), m_end(std::move(end)) {
    m_thread = std::thread([this] { run(); });
}

Receiver::~Receiver() {
    close();
}

void Receiver::close() {
    if (!m_thread.joinable()) return;
    m_channel.interrupt();
    {
        const std::lock_guard lock(m_pauseMutex);
        m_closing = true;
    }
    m_needed.notify_one();
    m_thread.join();
}

// A thread that only waits in poll() would be woken for each message that a helper takes in, so it
// stays away while helpers do.
void Receiver::run() {
    while (true) {
        {
            const std::lock_guard turn(m_turn);
            while (takeIn()) {
            }
            if (m_over) return;
        }
        if (isHelped()) {
            pause();
        } else {
            awaitInput();
        }
    }
}

bool Receiver::help() {
    const std::unique_lock turn(m_turn, std::try_to_lock);
    if (!turn || !takeIn()) return false;
    while (m_channel.hasMore() && takeIn()) {
    }
    ++m_helped;
    return true;
}

// With the turn. False if nothing has come.
bool Receiver::takeIn() {
    if (m_over) return false;
    try {
        Bytes message;
        const Arrival arrival = m_channel.tryReceive(message);
        if (arrival == Arrival::kMessage) m_handle(std::move(message));
        if (arrival == Arrival::kEnd) finish(m_channel.name() + ": the other side has hung up");
        return arrival == Arrival::kMessage;
    } catch (const BadMessage& bad) {
        finish(m_channel.name() + ": " + bad.what());
    } catch (const ChannelInterrupted&) {
        finish(m_channel.name() + ": the session has ended");
    } catch (const std::exception& error) {
        finish(error.what());
    }
    return false;
}

// With the turn.
void Receiver::finish(const std::string& why) {
    m_over = true;
    m_end(why);
}

void Receiver::awaitInput() {
    try {
        m_channel.awaitInput();
    } catch (const ChannelInterrupted&) {  // to be found by the next attempt
    } catch (const ChannelError& error) {
        const std::lock_guard turn(m_turn);
        if (!m_over) finish(error.what());
    }
}

bool Receiver::isHelped() {
    const unsigned helped = m_helped;
    const bool isHelped = m_helpers > 0 || helped != m_seen;
    m_seen = helped;
    return isHelped;
}

void Receiver::pause() {
    std::unique_lock lock(m_pauseMutex);
    m_needed.wait_for(lock, kPause, [this] { return m_sleepers > 0 || m_closing; });
    const bool needed = m_sleepers > 0;
    lock.unlock();
    if (needed) awaitInput();
}

Receiver::Sleeper::Sleeper(Receiver& receiver) : m_receiver(receiver) {
    {
        const std::lock_guard lock(m_receiver.m_pauseMutex);
        ++m_receiver.m_sleepers;
    }
    m_receiver.m_needed.notify_one();
}

Receiver::Sleeper::~Sleeper() {
    const std::lock_guard lock(m_receiver.m_pauseMutex);
    --m_receiver.m_sleepers;
}

}  // namespace peer
