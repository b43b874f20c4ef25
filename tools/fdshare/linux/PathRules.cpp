// Confinement by Landlock: rules on paths that hold for this process and its threads.
#include <fcntl.h>
#include <linux/landlock.h>
#include <sys/prctl.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>
#include <system_error>

#include "fdshare/linux/Confinement.h"
#include "peer/FileDescriptor.h"

namespace host {

namespace {

constexpr std::uint64_t kReadRights = LANDLOCK_ACCESS_FS_READ_FILE | LANDLOCK_ACCESS_FS_READ_DIR;
constexpr std::uint64_t kFirstRights = (LANDLOCK_ACCESS_FS_MAKE_SYM << 1) - 1;
constexpr std::uint64_t kReferRight = std::uint64_t{1} << 13;     // from version 2 on
constexpr std::uint64_t kTruncateRight = std::uint64_t{1} << 14;  // from version 3 on

std::string failed(const char* what) {
    return std::string("Landlock: ") + what + ": " + std::generic_category().message(errno);
}

std::uint64_t rightsOf(long version) {
    std::uint64_t rights = kFirstRights;
    if (version >= 2) rights |= kReferRight;
    if (version >= 3) rights |= kTruncateRight;
    return rights;
}

// What a drive's user does there: no programs are run, and no devices made.
std::uint64_t allowedOf(std::uint64_t handled, bool readOnly) {
    if (readOnly) return kReadRights;
    return handled &
           ~static_cast<std::uint64_t>(LANDLOCK_ACCESS_FS_EXECUTE | LANDLOCK_ACCESS_FS_MAKE_CHAR |
                                       LANDLOCK_ACCESS_FS_MAKE_BLOCK);
}

}  // namespace

std::string enforcePathRules(const std::vector<Share>& shares, bool readOnly) {
    const long version =
        ::syscall(SYS_landlock_create_ruleset, nullptr, 0, LANDLOCK_CREATE_RULESET_VERSION);
    if (version < 1) return failed("not available");

    landlock_ruleset_attr handled{};
    handled.handled_access_fs = rightsOf(version);
    const peer::FileDescriptor rules(static_cast<int>(
        ::syscall(SYS_landlock_create_ruleset, &handled, sizeof handled.handled_access_fs, 0)));
    if (!rules) return failed("no rule set");

    for (const Share& share : shares) {
        const peer::FileDescriptor folder(::open(share.folder.c_str(), O_PATH | O_CLOEXEC));
        if (!folder) return failed(share.folder.c_str());
        landlock_path_beneath_attr rule{};
        rule.allowed_access = allowedOf(handled.handled_access_fs, readOnly);
        rule.parent_fd = folder.get();
        if (::syscall(SYS_landlock_add_rule, rules.get(), LANDLOCK_RULE_PATH_BENEATH, &rule, 0) !=
            0) {
            return failed(share.folder.c_str());
        }
    }
    if (::prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0) != 0) return failed("no new privileges");
    if (::syscall(SYS_landlock_restrict_self, rules.get(), 0) != 0) return failed("not enforced");
    return {};
}

}  // namespace host
