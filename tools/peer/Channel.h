// A channel over a byte stream: each message travels as a 32-bit little-endian length and that many
// bytes. Any thread may send; one thread at a time receives.
#pragma once

#include <poll.h>
#include <sys/uio.h>

#include <atomic>
#include <mutex>
#include <optional>
#include <span>
#include <stdexcept>
#include <string>

#include "peer/Bytes.h"
#include "peer/FileDescriptor.h"
#include "peer/WakePipe.h"

namespace peer {

inline constexpr std::size_t kMaxMessage = std::size_t{64} << 20;

// The stream failed, or what came over it is no sequence of messages.
class ChannelError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

// Somebody here called interrupt().
class ChannelInterrupted : public ChannelError {
public:
    using ChannelError::ChannelError;
};

// What tryReceive() has found.
enum class Arrival { kNothing, kMessage, kEnd };

class Channel {
public:
    // One descriptor for both ways, such as a socket. `name` stands in every error text.
    Channel(FileDescriptor stream, std::string name);

    // Two descriptors, such as standard input and output.
    Channel(FileDescriptor in, FileDescriptor out, std::string name);

    // Gives both descriptors their blocking mode back, since others may share them.
    ~Channel();

    Channel(const Channel&) = delete;
    Channel& operator=(const Channel&) = delete;

    // The next message, or nothing if the other side ended the stream between two messages.
    std::optional<Bytes> receive();

    // The same without waiting. What is there of a message in part stays for the next call.
    Arrival tryReceive(Bytes& message);

    // Whether tryReceive() finds a message or a failure in what has been read already: nothing need
    // come for that any more, and awaitInput() knows nothing of it.
    bool hasMore() const;

    // Returns when tryReceive() may find more, or interrupt() was called.
    void awaitInput() const { waitFor(m_in.get(), POLLIN); }

    void send(View message) { send({&message, 1}); }

    // One message in parts, so that nobody has to copy them together first.
    void send(std::span<const View> parts);

    // Ends every send and receive, now and later. Safe in a signal handler.
    void interrupt() {
        m_interrupted = true;
        m_wake.wake();
    }

    const std::string& name() const { return m_name; }

private:
    Arrival takeLength();
    Arrival takeBody();
    Arrival readAhead();
    Arrival readSome(char* to, std::size_t room, std::size_t& end);
    void sendAll(std::span<iovec> parts);
    void waitFor(int fd, short events) const;
    void checkInterrupted() const;
    [[noreturn]] void fail(const std::string& what, int error = 0) const;

    FileDescriptor m_in, m_out;
    int m_inFlags = 0, m_outFlags = 0;
    std::string m_name;
    WakePipe m_wake;
    std::atomic<bool> m_interrupted{false};
    Bytes m_buffer;             // bytes read ahead; of the receiving thread
    std::size_t m_begin = 0;    // the first of them
    std::size_t m_end = 0;      // behind the last of them
    bool m_inBody = false;      // the length of m_message is known
    Bytes m_message;            // what comes
    std::size_t m_filled = 0;   // of it
    std::mutex m_sendMutex;     // held across the write: a message leaves in one piece
    bool m_sendBroken = false;  // a message left in part; guarded by m_sendMutex
};

// A write to a stream whose reader has gone is an error to report, not a signal to die from.
void ignoreBrokenPipes();

// For a standard stream that was closed when the program began: nothing else may get its number,
// since what is written there would get into it. To use the stream fails as before.
void holdPlaceOf(int standardStream);

}  // namespace peer
