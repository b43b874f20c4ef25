// The words behind -o.
#pragma once

#include <sys/types.h>

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace fdmount {

struct MountOptions {
    // Who owns everything; without, whoever mounts.
    std::optional<uid_t> uid;
    std::optional<gid_t> gid;
    std::uint32_t umask = 0;  // permissions that nothing has
    bool readOnly = false;
    bool overFullFolder = false;  // nonempty

    // In seconds: how long the kernel believes what it was told.
    double attributeTimeout = 20;
    double entryTimeout = 20;
    double negativeTimeout = 0;

    unsigned maxRead = 1U << 20;
    std::string fsname = "fdmount";
    std::string subtype = "fdmount";
    std::vector<std::string> forKernel;  // handed through as they are
};

// Each text is a list as in "ro,uid=1000". Throws std::invalid_argument.
MountOptions parseMountOptions(const std::vector<std::string>& lists);

}  // namespace fdmount
