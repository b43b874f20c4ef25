#include "peer/Channel.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/uio.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <csignal>
#include <cstring>
#include <system_error>

#include "common/Comm/Linger.h"

namespace peer {

namespace {

constexpr std::size_t kLengthSize = 4;
constexpr std::size_t kReadAhead = std::size_t{64} << 10;
constexpr std::size_t kMaxParts = 4;  // of a message

int makeNonBlocking(int fd) {
    const int flags = ::fcntl(fd, F_GETFL);
    if (flags >= 0) ::fcntl(fd, F_SETFL, flags | O_NONBLOCK);
    return flags;
}

// What is left of the parts when `count` bytes of them have been written.
std::span<iovec> behind(std::span<iovec> parts, std::size_t count) {
    while (!parts.empty() && count >= parts.front().iov_len) {
        count -= parts.front().iov_len;
        parts = parts.subspan(1);
    }
    if (!parts.empty()) {
        parts.front().iov_base = static_cast<char*>(parts.front().iov_base) + count;
        parts.front().iov_len -= count;
    }
    return parts;
}

FileDescriptor duplicate(const FileDescriptor& of) {
    return FileDescriptor(::fcntl(of.get(), F_DUPFD_CLOEXEC, 0));
}

}  // namespace

Channel::Channel(FileDescriptor stream, std::string name)
    : m_in(std::move(stream)), m_out(duplicate(m_in)), m_name(std::move(name)) {
    m_inFlags = m_outFlags = makeNonBlocking(m_in.get());
    m_buffer.resize(kReadAhead);
}

Channel::Channel(FileDescriptor in, FileDescriptor out, std::string name)
    : m_in(std::move(in)), m_out(std::move(out)), m_name(std::move(name)) {
    m_inFlags = makeNonBlocking(m_in.get());
    m_outFlags = makeNonBlocking(m_out.get());
    m_buffer.resize(kReadAhead);
}

Channel::~Channel() {
    if (m_outFlags >= 0) ::fcntl(m_out.get(), F_SETFL, m_outFlags);
    if (m_inFlags >= 0) ::fcntl(m_in.get(), F_SETFL, m_inFlags & ~O_NONBLOCK);
}

std::optional<Bytes> Channel::receive() {
    Bytes message;
    while (true) {
        Arrival arrival = Arrival::kNothing;
        lingerWhile([&] {
            arrival = tryReceive(message);
            return arrival == Arrival::kNothing;
        });
        if (arrival == Arrival::kMessage) return message;
        if (arrival == Arrival::kEnd) return std::nullopt;
        awaitInput();
    }
}

Arrival Channel::tryReceive(Bytes& message) {
    checkInterrupted();
    if (!m_inBody) {
        const Arrival arrival = takeLength();
        if (arrival != Arrival::kMessage) return arrival;
    }
    const Arrival arrival = takeBody();
    if (arrival != Arrival::kMessage) return arrival;
    m_inBody = false;
    message = std::move(m_message);
    return Arrival::kMessage;
}

bool Channel::hasMore() const {
    const std::size_t ahead = m_end - m_begin;
    if (m_inBody || ahead < kLengthSize) return false;
    const std::size_t length = loadLe<std::uint32_t>(m_buffer.data() + m_begin);
    return length > kMaxMessage || ahead - kLengthSize >= length;
}

Arrival Channel::takeLength() {
    while (m_end - m_begin < kLengthSize) {
        const Arrival arrival = readAhead();
        if (arrival == Arrival::kEnd && m_begin < m_end) {
            fail("the other side hung up in the middle of a message");
        }
        if (arrival != Arrival::kMessage) return arrival;
    }
    const std::size_t length = loadLe<std::uint32_t>(m_buffer.data() + m_begin);
    if (length > kMaxMessage) {
        fail("the other side announces a message of " + std::to_string(length) +
             " bytes, more than the " + std::to_string(kMaxMessage) + " that a message may have");
    }
    m_begin += kLengthSize;
    m_message = Bytes(length);
    m_filled = 0;
    m_inBody = true;
    return Arrival::kMessage;
}

// What is long goes straight to its place, what is short through the bytes read ahead.
Arrival Channel::takeBody() {
    while (m_filled < m_message.size()) {
        const std::size_t missing = m_message.size() - m_filled;
        char* const to = m_message.data() + m_filled;
        if (m_begin < m_end) {
            const std::size_t taken = std::min(missing, m_end - m_begin);
            std::memcpy(to, m_buffer.data() + m_begin, taken);
            m_begin += taken;
            m_filled += taken;
            continue;
        }
        const Arrival arrival =
            missing >= m_buffer.size() ? readSome(to, missing, m_filled) : readAhead();
        if (arrival == Arrival::kEnd) {
            fail("the other side hung up in the middle of a message (" + std::to_string(m_filled) +
                 " of " + std::to_string(m_message.size()) + " bytes)");
        }
        if (arrival != Arrival::kMessage) return arrival;
    }
    return Arrival::kMessage;
}

Arrival Channel::readAhead() {
    std::memmove(m_buffer.data(), m_buffer.data() + m_begin, m_end - m_begin);
    m_end -= m_begin;
    m_begin = 0;
    return readSome(m_buffer.data() + m_end, m_buffer.size() - m_end, m_end);
}

// Moves `end` behind what it has read.
Arrival Channel::readSome(char* to, std::size_t room, std::size_t& end) {
    ssize_t got = -1;
    do {
        got = ::read(m_in.get(), to, room);
    } while (got < 0 && errno == EINTR);
    if (got > 0) {
        end += static_cast<std::size_t>(got);
        return Arrival::kMessage;
    }
    if (got == 0 || errno == ECONNRESET) return Arrival::kEnd;
    if (errno != EAGAIN && errno != EWOULDBLOCK) fail("cannot read", errno);
    return Arrival::kNothing;
}

void Channel::send(std::span<const View> parts) {
    std::array<iovec, kMaxParts + 1> left{};
    std::size_t size = 0;
    std::size_t count = 1;
    for (const View& part : parts) {
        size += part.size();
        if (part.empty()) continue;
        if (count > kMaxParts) fail("a message of too many parts cannot be sent");
        left[count++] = {const_cast<char*>(part.data()), part.size()};
    }
    if (size > kMaxMessage) fail("a message of " + std::to_string(size) + " bytes cannot be sent");
    char head[kLengthSize];
    storeLe(head, static_cast<std::uint32_t>(size));
    left[0] = {head, kLengthSize};

    checkInterrupted();
    const std::lock_guard lock(m_sendMutex);
    if (m_sendBroken) fail("the other side has hung up");
    m_sendBroken = true;  // until all of it has left
    sendAll({left.data(), count});
    m_sendBroken = false;
}

void Channel::sendAll(std::span<iovec> parts) {
    while (!parts.empty()) {
        const ssize_t written = ::writev(m_out.get(), parts.data(), static_cast<int>(parts.size()));
        if (written >= 0) {
            parts = behind(parts, static_cast<std::size_t>(written));
        } else if (errno == EAGAIN || errno == EWOULDBLOCK) {
            waitFor(m_out.get(), POLLOUT);
        } else if (errno == EPIPE || errno == ECONNRESET) {
            fail("the other side has hung up");
        } else if (errno != EINTR) {
            fail("cannot write", errno);
        }
    }
}

void Channel::waitFor(int fd, short events) const {
    pollfd both[2] = {{fd, events, 0}, {m_wake.readEnd(), POLLIN, 0}};
    while (::poll(both, 2, -1) < 0) {
        if (errno != EINTR) fail("cannot wait", errno);
    }
    checkInterrupted();
}

void Channel::checkInterrupted() const {
    if (m_interrupted) throw ChannelInterrupted(m_name + ": interrupted");
}

void Channel::fail(const std::string& what, int error) const {
    throw ChannelError(m_name + ": " + what +
                       (error == 0 ? "" : ": " + std::generic_category().message(error)));
}

void ignoreBrokenPipes() {
    std::signal(SIGPIPE, SIG_IGN);
}

void holdPlaceOf(int standardStream) {
    if (::fcntl(standardStream, F_GETFD) >= 0) return;
    const int flags = standardStream == STDIN_FILENO ? O_WRONLY : O_RDONLY;
    FileDescriptor nothing(::open("/dev/null", flags));
    if (nothing.get() == standardStream) {
        [[maybe_unused]] const int kept = nothing.release();
    } else if (nothing) {
        ::dup2(nothing.get(), standardStream);
    }
}

}  // namespace peer
