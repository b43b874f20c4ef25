// The platform seam for the list of mounted file systems: getmntinfo of macOS, with what both
// monitors need of it, on every platform. Any thread.
#pragma once

#include "MountFlags.h"  // MNT_WAIT and MNT_NOWAIT, from the platform's own folder

namespace compat {

// Texts of any length, zero-terminated. They belong to the seam.
struct MountEntry {
    const char* f_mntonname;   // the mount path
    const char* f_fstypename;  // the type of the file system
};

// Points `*mounts` at the mount table, in the kernel's order, and returns the count of its entries:
// 0 for a table that cannot be read. The array lives until the calling thread calls again or ends,
// and no other thread touches it. `flags` is MNT_WAIT for fresh data or MNT_NOWAIT.
int getmntinfo(MountEntry** mounts, int flags);

}  // namespace compat
