// fdmount CHANNEL MOUNTPOINT.
#pragma once

#include "fdmount/Options.h"

namespace fdmount {

// Returns the process's exit code when the mount is off again; where the mount went to the
// background, when it stands. Before any thread is started.
int mountDrives(const Options& options);

}  // namespace fdmount
