// What an object of the other side is, and how its attributes are set.
#pragma once

#include <string_view>

#include "peer/FileSystem.h"
#include "peer/windows/RemoteHandle.h"

namespace peer::windows {

// The dialect names neither owner nor inode: everything belongs to the user of this process, and
// the path stands for the object.
Attributes attributesOf(const ObjectInfo& info, std::string_view path);

// Both throw EPERM if the answer shows that nothing was set. The other side keeps the owner's
// permission to read, and times in microseconds. setMode() gives the permissions that the file has.
std::uint32_t setMode(const RemoteHandle& file, std::uint32_t mode);
void setTimes(const RemoteHandle& file, Time accessed, Time modified);

// Throws EPERM if the policy forbids it, EFBIG if the policy allows no such size.
void setSize(const RemoteHandle& file, std::int64_t size);

}  // namespace peer::windows
