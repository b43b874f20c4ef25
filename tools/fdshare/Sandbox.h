// Keeps this process to the shared folders, so that no path from the other side, with ".." or
// through a symbolic link, reaches anything else. Each platform has its own.
#pragma once

#include <string>
#include <vector>

namespace host {

struct Share {
    std::string folder;  // absolute, no symbolic links
    std::string place;   // where it stands in the confined file tree
};

enum class Confinement {
    kNamespace,  // the file tree holds the shares, each in its place, and nothing else
    kPathRules,  // the file tree is as it was, and only the shares can be opened
    kNone
};

struct Confined {
    Confinement how = Confinement::kNone;
    std::string why;  // what stood in the way of something better
};

// Before any thread is started.
Confined confine(const std::vector<Share>& shares, bool readOnly);

}  // namespace host
