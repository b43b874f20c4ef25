// The folder that is mounted on.
#pragma once

#include <stdexcept>
#include <string>

namespace fdmount {

// One line that says what is in the way, and what to do about it where that is known.
class MountError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

// The folder's full path. Throws MountError if nothing can be mounted there.
std::string checkMountPoint(const std::string& path, bool mayBeFull);

// Takes the mount off at once, whoever uses it.
void detachMount(const std::string& path);

constexpr unsigned kReadAhead = 4U << 20;  // bytes

// Asks the kernel to read ahead by that much. Only an administrator may; for others it reads ahead
// as it does by itself. Asks nothing of the mount, so nobody needs to answer for it yet.
void raiseReadAhead(const std::string& path);

}  // namespace fdmount
