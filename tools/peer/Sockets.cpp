#include "peer/Sockets.h"

#include <fcntl.h>
#include <sys/socket.h>

#include <cerrno>
#include <system_error>

#include "peer/Channel.h"

namespace peer {

void failEndpoint(const std::string& name, const std::string& what, int error) {
    throw ChannelError(name + ": " + what +
                       (error == 0 ? "" : ": " + std::generic_category().message(error)));
}

void closeOnExec(int fd) {
    ::fcntl(fd, F_SETFD, FD_CLOEXEC);
}

FileDescriptor streamSocket(const std::string& name, int family) {
    FileDescriptor fd(::socket(family, SOCK_STREAM, 0));
    if (!fd) failEndpoint(name, "cannot make a socket", errno);
    closeOnExec(fd.get());
    return fd;
}

}  // namespace peer
