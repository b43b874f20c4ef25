// Which folders are offered, and as what.
#pragma once

#include <string>
#include <vector>

#include "fdshare/HostLimit.h"
#include "fdshare/Options.h"

namespace host {

// Confines the process as far as the options ask for, and says what the host allows from here on.
// Throws std::runtime_error where the folders cannot be offered. Before any thread is started.
HostLimit prepareShares(const Options& options);

}  // namespace host
