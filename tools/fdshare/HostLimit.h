// What this host allows, whatever the other side's policy asks for. It is applied to each inbound
// policy message before the plug-in sees it.
#pragma once

#include <string>
#include <vector>

#include "peer/Bytes.h"

namespace host {

struct HostLimit {
    bool readOnly = false;

    // Not empty: the file tree, cut down to these folders, and no mounted drive.
    std::vector<std::string> rootFolders;

    bool isNone() const { return !readOnly && rootFolders.empty(); }
};

// False if the message must not reach the plug-in: a policy that cannot be read cannot be limited.
bool applyLimit(const HostLimit& limit, peer::Bytes& message);

}  // namespace host
