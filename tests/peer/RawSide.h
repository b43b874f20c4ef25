// The far end of a channel, under the test's control byte by byte.
#pragma once

#include <sys/socket.h>
#include <unistd.h>

#include <memory>
#include <stdexcept>
#include <string>
#include <utility>

#include "peer/Channel.h"
#include "peer/windows/Protocol.h"

inline std::pair<peer::FileDescriptor, peer::FileDescriptor> socketPair() {
    int ends[2];
    if (::socketpair(AF_UNIX, SOCK_STREAM, 0, ends) != 0) throw std::runtime_error("socketpair");
    return {peer::FileDescriptor(ends[0]), peer::FileDescriptor(ends[1])};
}

inline void writeAll(int fd, std::string_view bytes) {
    while (!bytes.empty()) {
        const ssize_t written = ::write(fd, bytes.data(), bytes.size());
        if (written <= 0) throw std::runtime_error("the reader has gone");
        bytes.remove_prefix(static_cast<std::size_t>(written));
    }
}

// The drives' side of a session: says what the test tells it to.
class FakeDrives {
public:
    FakeDrives() {
        auto [near, far] = socketPair();
        m_near = std::make_unique<peer::Channel>(std::move(near), "near");
        m_far = std::make_unique<peer::Channel>(std::move(far), "far");
        peer::ignoreBrokenPipes();
    }

    peer::Channel& channel() { return *m_near; }
    peer::Channel& far() { return *m_far; }
    void hangUp() { m_far.reset(); }

    void shakeHands() { m_far->send(handshake()); }
    peer::Bytes next() { return m_far->receive().value(); }

    static peer::Bytes handshake() {
        static constexpr char kBytes[] =
            "\xEF\xCD\x00\x00\x3D\x00\x00\x00\x03\x00\x00\x00\x77\x67\x71";
        return {kBytes, kBytes + 15};
    }

    // A result to `request` with this behind its header.
    static peer::Bytes result(peer::View request, peer::View payload) {
        peer::Bytes message;
        peer::appendLe(message, std::uint16_t{514});
        message.push_back(request[2]);
        message.push_back(request[3]);
        peer::appendLe(message, std::uint32_t{0});
        peer::appendLe(message, static_cast<std::uint32_t>(payload.size()));
        peer::append(message, payload);
        return message;
    }

    // The usual form: status, count, data, and three stale bytes.
    static peer::Bytes payload(std::int32_t status, std::uint32_t count, peer::View data = {}) {
        peer::Bytes bytes;
        peer::appendLe(bytes, status);
        peer::appendLe(bytes, count);
        peer::append(bytes, data);
        bytes.append(3, '\x55');
        return bytes;
    }

    void answer(peer::View request, peer::View payload) { m_far->send(result(request, payload)); }

    static peer::Bytes driveAdded(std::uint32_t id, const std::string& name) {
        peer::Bytes message = head(peer::windows::kMapAdd);
        peer::appendLe(message, id);
        peer::appendLe(message, static_cast<std::uint32_t>(name.size() + 1));
        peer::append(message, {name.c_str(), name.size() + 1});
        peer::appendLe(message, std::uint16_t{0});
        peer::appendLe(message, std::uint64_t{1000000});
        peer::appendLe(message, std::uint64_t{400000});
        message.append(22 + 3, '\0');
        return message;
    }

    static peer::Bytes driveNamed(std::uint32_t id, const std::string& share) {
        peer::Bytes message = head(peer::windows::kDriveName);
        peer::appendLe(message, id);
        peer::appendLe(message, std::uint32_t{0});
        peer::appendLe(message, std::uint32_t{0});
        peer::appendLe(message, std::uint32_t{8});
        peer::appendLe(message, std::uint16_t{5});
        peer::append(message, {"host", 5});
        peer::appendLe(message, static_cast<std::uint16_t>(share.size() + 1));
        peer::append(message, {share.c_str(), share.size() + 1});
        message.append(3, '\0');
        return message;
    }

    static peer::Bytes driveDeleted(std::uint32_t id) {
        peer::Bytes message = head(peer::windows::kMapDelete);
        peer::appendLe(message, id);
        peer::appendLe(message, std::uint32_t{1});
        message.append(4, '\0');
        return message;
    }

private:
    static peer::Bytes head(std::uint16_t code) {
        peer::Bytes message;
        peer::appendLe(message, code);
        message.append(10, '\0');
        return message;
    }

    std::unique_ptr<peer::Channel> m_near, m_far;
};
