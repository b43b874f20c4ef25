// The attributes that an operation leaves for its own answer. The library asks for them, on the
// same thread, right after an operation that made or changed something; what the operation knows
// already need not be asked for again.
#pragma once

#include <sys/stat.h>

#include <optional>
#include <string>

namespace fdmount {

class Reply {
public:
    static void keep(const char* path, const struct stat& attributes);

    // Once, and only for the path that was kept last on this thread.
    static std::optional<struct stat> take(const char* path);

    // Before an operation: what an earlier one left was not asked for.
    static void clear();
};

}  // namespace fdmount
