// What endpoints of all kinds share.
#pragma once

#include <string>

#include "peer/FileDescriptor.h"

namespace peer {

// Throws ChannelError with the name in front, and the words for `error` behind.
[[noreturn]] void failEndpoint(const std::string& name, const std::string& what, int error = 0);

void closeOnExec(int fd);

// A new stream socket.
FileDescriptor streamSocket(const std::string& name, int family);

}  // namespace peer
