// The mount table of macOS. The system's getmntinfo hands out one array for the whole process, and
// two monitors may ask at once: its reentrant sister fills an array that the calling thread owns.
#include "linux/compat/MountTable.h"

#include <cstdlib>
#include <memory>
#include <vector>

namespace compat {
namespace {

struct Free {
    void operator()(struct statfs* table) const { std::free(table); }
};

}  // namespace

int getmntinfo(MountEntry** mounts, int flags) {
    thread_local std::unique_ptr<struct statfs, Free> table;
    thread_local std::vector<MountEntry> entries;

    struct statfs* fresh = nullptr;
    const int count = getmntinfo_r_np(&fresh, flags);
    table.reset(fresh);
    entries.clear();
    for (int i = 0; i < count; ++i) {
        entries.push_back({table.get()[i].f_mntonname, table.get()[i].f_fstypename});
    }
    *mounts = entries.data();
    return static_cast<int>(entries.size());
}

}  // namespace compat
