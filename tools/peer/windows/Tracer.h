// One line for each message, for people. Remembers what was asked, so that a result says what it
// answers. Used under the caller's lock.
#pragma once

#include <array>
#include <cstdint>
#include <string>

#include "peer/Bytes.h"

namespace peer {

enum class Direction { kToDrives, kFromDrives };

}  // namespace peer

namespace peer::windows {

class Tracer {
public:
    // "> read map 0 seq 7: handle 12, offset 0, length 4096 (32 bytes)"
    std::string line(Direction direction, View message);

private:
    std::array<std::uint16_t, 256> m_asked{};  // by seq, the code of the request
};

}  // namespace peer::windows
