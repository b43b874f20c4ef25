// A pipe that ends a wait in poll() from any thread or signal handler.
#pragma once

#include "peer/FileDescriptor.h"

namespace peer {

class WakePipe {
public:
    WakePipe();

    int readEnd() const { return m_read.get(); }

    // Safe in a signal handler. Every poll on the read end returns from here on.
    void wake() const;

    // Makes the pipe quiet again.
    void drain() const;

private:
    FileDescriptor m_read, m_write;
};

}  // namespace peer
