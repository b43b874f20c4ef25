// TCP ports of this machine, reached by its loopback address only. The system sizes the buffers of
// these connections by itself, and better than a fixed size.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "peer/FileDescriptor.h"

namespace peer {

// A number from 0 to 65535 in plain digits.
std::optional<std::uint16_t> parsePort(std::string_view digits);

// `name` stands in every error text; the errors are ChannelError.
FileDescriptor connectToPort(const std::string& name, std::uint16_t port);

// Port 0 lets the system choose one.
FileDescriptor listenOnPort(const std::string& name, std::uint16_t port);

// The port of this end of a socket.
std::uint16_t portOf(const FileDescriptor& socket);

// Whether both ends of the connection are this one: so may a connection to a port end where nobody
// listens, if the system happens to choose the same port for this end.
bool isConnectedToItself(const FileDescriptor& socket);

// Sends each message at once.
void sendWithoutDelay(int fd);

}  // namespace peer
