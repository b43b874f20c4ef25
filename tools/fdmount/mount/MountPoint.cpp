#include "fdmount/mount/MountPoint.h"

#include <fcntl.h>
#include <spawn.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <system_error>

#include "peer/FileDescriptor.h"
#include "peer/Text.h"

namespace fdmount {

namespace {

constexpr const char* kDevice = "/dev/fuse";
constexpr const char* kHelper = "fusermount3";

std::string textOf(int error) {
    return std::generic_category().message(error);
}

// As a shell reads it, so that the line can be pasted.
std::string typed(const std::string& path) {
    return peer::quoted(path);
}

[[noreturn]] void refuseFolder(const std::string& path, int error) {
    if (error == ENOTCONN || error == ECONNABORTED) {
        throw MountError(path + ": is a mount whose program has ended; take it off with: " +
                         kHelper + " -u " + typed(path));
    }
    if (error == ENOENT) {
        const bool isWord = path.find('/') == std::string::npos;
        throw MountError(path + ": there is no such " + (isWord ? "command, and no such " : "") +
                         "folder; make it with: mkdir " + typed(path));
    }
    throw MountError(path + ": " + textOf(error));
}

void checkFolder(const std::string& path, bool mayBeFull) {
    struct stat info {};
    if (::stat(path.c_str(), &info) != 0) refuseFolder(path, errno);
    if (!S_ISDIR(info.st_mode)) throw MountError(path + ": is not a folder");
    std::error_code error;
    const bool empty = std::filesystem::is_empty(path, error);
    if (error) refuseFolder(path, error.value());
    if (!empty && !mayBeFull) {
        throw MountError(path + ": is not empty; choose an empty folder, or cover what it holds " +
                         "with -o nonempty");
    }
}

bool canBeFound(const std::string& program) {
    const char* const list = std::getenv("PATH");
    std::string rest = list != nullptr ? list : "/usr/bin:/bin";
    while (!rest.empty()) {
        const std::size_t colon = rest.find(':');
        const std::string file = rest.substr(0, colon) + "/" + program;
        if (::access(file.c_str(), X_OK) == 0) return true;
        rest = colon == std::string::npos ? "" : rest.substr(colon + 1);
    }
    return false;
}

// With the rights of whoever may do without the helper, the device itself must open.
void checkSystem() {
    const bool hasHelper = canBeFound(kHelper);
    if (!hasHelper && ::geteuid() != 0) {
        throw MountError(std::string(kHelper) + " is missing; install the package fuse3");
    }
    const peer::FileDescriptor device(::open(kDevice, O_RDWR | O_CLOEXEC));
    const int error = errno;
    if (device || (hasHelper && error == EACCES)) return;
    const bool noModule = error == ENOENT || error == ENODEV || error == ENXIO;
    throw MountError(std::string(kDevice) + ": " + textOf(error) +
                     (noModule ? "; load the kernel's module with: modprobe fuse" : ""));
}

void runHelper(const std::string& path) {
    std::string words[] = {kHelper, "-u", "-q", "-z", "--", path};
    char* arguments[] = {words[0].data(), words[1].data(), words[2].data(), words[3].data(),
                         words[4].data(), words[5].data(), nullptr};
    pid_t child = 0;
    if (::posix_spawnp(&child, kHelper, nullptr, nullptr, arguments, environ) != 0) return;
    while (::waitpid(child, nullptr, 0) < 0 && errno == EINTR) {
    }
}

}  // namespace

std::string checkMountPoint(const std::string& path, bool mayBeFull) {
    checkFolder(path, mayBeFull);
    checkSystem();
    std::error_code error;
    std::string whole = std::filesystem::canonical(path, error);
    if (error) refuseFolder(path, error.value());
    return whole;
}

void detachMount(const std::string& path) {
    if (::umount2(path.c_str(), MNT_DETACH | UMOUNT_NOFOLLOW) != 0) runHelper(path);
}

void raiseReadAhead(const std::string& path) {
    // What the kernel knows is enough. A thread that waits for an answer of its own process could
    // not be ended, nor could the mount, should the process be killed meanwhile.
    struct statx info {};
    if (::statx(AT_FDCWD, path.c_str(), AT_STATX_DONT_SYNC, 0, &info) != 0) return;
    std::ofstream file("/sys/class/bdi/" + std::to_string(info.stx_dev_major) + ":" +
                       std::to_string(info.stx_dev_minor) + "/read_ahead_kb");
    file << kReadAhead / 1024 << std::flush;
}

}  // namespace fdmount
