// One connection: a plug-in of its own from Init to Release.
#pragma once

#include <memory>
#include <string>

#include "fdshare/HostLimit.h"
#include "peer/Channel.h"

namespace host {

// Serves until the other side hangs up or the channel is interrupted. Returns why it ended early,
// or an empty text.
std::string serve(const std::shared_ptr<peer::Channel>& channel, const HostLimit& limit);

}  // namespace host
