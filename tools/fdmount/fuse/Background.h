// Goes to the background in the manner of programs that mount: whoever started it gets its prompt
// back when the mount stands, and what went wrong until then.
#pragma once

#include <optional>
#include <string>

#include "peer/FileDescriptor.h"

namespace fdmount {

class Background {
public:
    // Forks. In the process that was started this gives the exit code, once the other one has
    // reported or ended; in the other one nothing. Before any thread is started.
    std::optional<int> enter();

    // The mount stands: lets go of the terminal, the folder and the process that waits.
    void reportSuccess();

private:
    peer::FileDescriptor m_report;  // invalid: this is no background
};

}  // namespace fdmount
