#include "peer/TcpPort.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/socket.h>

#include <cerrno>
#include <charconv>

#include "peer/Sockets.h"

namespace peer {

namespace {

sockaddr_in loopback(std::uint16_t port) {
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(port);
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    return address;
}

// What came of a connect() that a signal has interrupted, and that goes on by itself.
int endOfConnect(int fd) {
    pollfd one{fd, POLLOUT, 0};
    while (::poll(&one, 1, -1) < 0 && errno == EINTR) {
    }
    int error = 0;
    socklen_t size = sizeof error;
    return ::getsockopt(fd, SOL_SOCKET, SO_ERROR, &error, &size) == 0 ? error : errno;
}

int connectError(int fd, const sockaddr_in& address) {
    if (::connect(fd, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0) return 0;
    return errno == EINTR ? endOfConnect(fd) : errno;
}

}  // namespace

std::optional<std::uint16_t> parsePort(std::string_view digits) {
    std::uint16_t port = 0;
    const char* end = digits.data() + digits.size();
    const auto [behind, error] = std::from_chars(digits.data(), end, port);
    if (error != std::errc() || behind != end) return std::nullopt;
    return port;
}

FileDescriptor connectToPort(const std::string& name, std::uint16_t port) {
    FileDescriptor fd = streamSocket(name, AF_INET);
    int error = connectError(fd.get(), loopback(port));
    if (error == 0 && isConnectedToItself(fd)) error = ECONNREFUSED;
    if (error != 0) failEndpoint(name, "cannot connect", error);
    sendWithoutDelay(fd.get());
    return fd;
}

FileDescriptor listenOnPort(const std::string& name, std::uint16_t port) {
    FileDescriptor fd = streamSocket(name, AF_INET);
    // Connections that have ended keep their port for a minute; this does not mind them.
    const int on = 1;
    ::setsockopt(fd.get(), SOL_SOCKET, SO_REUSEADDR, &on, sizeof on);
    const sockaddr_in address = loopback(port);
    if (::bind(fd.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0 ||
        ::listen(fd.get(), 8) != 0) {
        failEndpoint(name, "cannot listen", errno);
    }
    return fd;
}

std::uint16_t portOf(const FileDescriptor& socket) {
    sockaddr_in address{};
    socklen_t size = sizeof address;
    ::getsockname(socket.get(), reinterpret_cast<sockaddr*>(&address), &size);
    return ntohs(address.sin_port);
}

bool isConnectedToItself(const FileDescriptor& socket) {
    sockaddr_in peer{};
    socklen_t size = sizeof peer;
    return ::getpeername(socket.get(), reinterpret_cast<sockaddr*>(&peer), &size) == 0 &&
           ntohs(peer.sin_port) == portOf(socket);
}

void sendWithoutDelay(int fd) {
    const int on = 1;
    ::setsockopt(fd, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
}

}  // namespace peer
