// One line for each message of the Linux dialect, for people. The messages before the switch are
// the Windows dialect's, and so are their lines.
#pragma once

#include <string>

#include "peer/Bytes.h"
#include "peer/windows/Tracer.h"

namespace peer::linux {

class Tracer {
public:
    // "> read map 1 idx 7: '/folder/file', offset 0, length 4096 (180 bytes)"
    std::string line(Direction direction, View message);

private:
    windows::Tracer m_before;
};

}  // namespace peer::linux
