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
    char head[kLengthSize];
    const std::size_t got = fill(head, kLengthSize);
    if (got == 0) return std::nullopt;
    if (got < kLengthSize) fail("the other side hung up in the middle of a message");

    const std::size_t length = loadLe<std::uint32_t>(head);
    if (length > kMaxMessage) {
        fail("the other side announces a message of " + std::to_string(length) +
             " bytes, more than the " + std::to_string(kMaxMessage) + " that a message may have");
    }

    Bytes message(length);
    const std::size_t filled = fill(message.data(), length);
    if (filled < length) {
        fail("the other side hung up in the middle of a message (" + std::to_string(filled) +
             " of " + std::to_string(length) + " bytes)");
    }
    return message;
}

std::size_t Channel::fill(char* to, std::size_t count) {
    std::size_t have = 0;
    while (have < count) {
        if (m_begin < m_end) {
            const std::size_t taken = std::min(count - have, m_end - m_begin);
            std::memcpy(to + have, m_buffer.data() + m_begin, taken);
            m_begin += taken;
            have += taken;
            continue;
        }
        // What is long goes straight to its place, what is short through the read-ahead.
        if (count - have >= m_buffer.size()) {
            const std::size_t got = readSome(to + have, count - have);
            if (got == 0) break;
            have += got;
        } else {
            m_begin = 0;
            m_end = readSome(m_buffer.data(), m_buffer.size());
            if (m_end == 0) break;
        }
    }
    return have;
}

std::size_t Channel::readSome(char* to, std::size_t count) {
    while (true) {
        checkInterrupted();
        ssize_t got = -1;
        int error = 0;
        lingerWhile([&] {
            got = ::read(m_in.get(), to, count);
            error = got < 0 ? errno : 0;
            return error == EAGAIN || error == EWOULDBLOCK;
        });
        if (got >= 0) return static_cast<std::size_t>(got);
        if (error == EINTR) continue;
        if (error == ECONNRESET) return 0;
        if (error != EAGAIN && error != EWOULDBLOCK) fail("cannot read", error);
        waitFor(m_in.get(), POLLIN);
    }
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

}  // namespace peer
