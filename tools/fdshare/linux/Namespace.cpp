// Confinement by namespaces: a mount namespace whose root is a small read-only file system that
// holds the shares. An ordinary user needs a user namespace for that; root does without, and so
// keeps its rights over the files that it shares.
#include <fcntl.h>
#include <linux/capability.h>
#include <sched.h>
#include <sys/mount.h>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <stdexcept>
#include <system_error>

#include "fdshare/linux/Confinement.h"
#include "peer/FileDescriptor.h"

namespace host {

namespace {

constexpr const char* kStage = "/tmp";  // covered in the new namespace, and only there
constexpr const char* kMountTable = "/proc/self/mountinfo";

// Not in every system's headers.
struct MountAttributes {
    std::uint64_t set = 0, clear = 0, propagation = 0, userNamespace = 0;
};
constexpr std::uint64_t kAttrReadOnly = 0x1, kAttrNoSuid = 0x2, kAttrNoDev = 0x4;
constexpr unsigned kRecursive = 0x8000;

[[noreturn]] void fail(const std::string& what) {
    throw std::runtime_error("namespace: " + what + ": " + std::generic_category().message(errno));
}

void require(bool done, const std::string& what) {
    if (!done) fail(what);
}

void writeFile(const char* path, const std::string& text) {
    const peer::FileDescriptor file(::open(path, O_WRONLY | O_CLOEXEC));
    require(
        file && ::write(file.get(), text.data(), text.size()) == static_cast<ssize_t>(text.size()),
        path);
}

void enterUserNamespace() {
    const std::string user = std::to_string(::geteuid());
    const std::string group = std::to_string(::getegid());
    require(::unshare(CLONE_NEWUSER | CLONE_NEWNS) == 0, "unshare");
    writeFile("/proc/self/setgroups", "deny");
    writeFile("/proc/self/uid_map", user + " " + user + " 1");
    writeFile("/proc/self/gid_map", group + " " + group + " 1");
}

void makeFolders(const std::string& path) {
    for (std::size_t slash = path.find('/', 1);; slash = path.find('/', slash + 1)) {
        const std::string part = path.substr(0, slash);
        require(::mkdir(part.c_str(), 0755) == 0 || errno == EEXIST, part);
        if (slash == std::string::npos) return;
    }
}

// The flags that a mount has already and that an ordinary user may not take away.
unsigned long flagsOf(const std::string& path) {
    struct statvfs info {};
    require(::statvfs(path.c_str(), &info) == 0, path);
    unsigned long flags = 0;
    if ((info.f_flag & ST_RDONLY) != 0) flags |= MS_RDONLY;
    if ((info.f_flag & ST_NOEXEC) != 0) flags |= MS_NOEXEC;
    if ((info.f_flag & ST_NOATIME) != 0) flags |= MS_NOATIME;
    if ((info.f_flag & ST_NODIRATIME) != 0) flags |= MS_NODIRATIME;
    if ((info.f_flag & ST_RELATIME) != 0) flags |= MS_RELATIME;
    return flags;
}

void restrictMount(const std::string& path, bool readOnly) {
    MountAttributes attributes;
    attributes.set = kAttrNoSuid | kAttrNoDev | (readOnly ? kAttrReadOnly : std::uint64_t{0});
    constexpr long kMountSetattr = 442;  // the same on every architecture
    if (::syscall(kMountSetattr, AT_FDCWD, path.c_str(), kRecursive, &attributes,
                  sizeof attributes) == 0) {
        return;
    }
    require(errno == ENOSYS, path);

    // An older kernel changes one mount at a time; what is mounted below the share keeps its flags.
    const unsigned long flags = MS_REMOUNT | MS_BIND | MS_NOSUID | MS_NODEV | flagsOf(path) |
                                (readOnly ? static_cast<unsigned long>(MS_RDONLY) : 0UL);
    require(::mount(nullptr, path.c_str(), nullptr, flags, nullptr) == 0, path);
}

void bindFile(const char* source, const std::string& target) {
    makeFolders(target.substr(0, target.rfind('/')));
    const peer::FileDescriptor file(::open(target.c_str(), O_CREAT | O_WRONLY | O_CLOEXEC, 0444));
    require(static_cast<bool>(file), target);
    require(::mount(source, target.c_str(), nullptr, MS_BIND, nullptr) == 0, source);
    restrictMount(target, true);
}

// Shares are taken by descriptor: the stage covers part of the tree.
std::string pathOf(const peer::FileDescriptor& folder) {
    return "/proc/self/fd/" + std::to_string(folder.get());
}

void buildRoot(const std::vector<Share>& shares, bool readOnly) {
    require(::mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0, "private mounts");

    std::vector<peer::FileDescriptor> folders;
    for (const Share& share : shares) {
        folders.emplace_back(::open(share.folder.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC));
        require(static_cast<bool>(folders.back()), share.folder);
    }
    require(::mount("fdshare", kStage, "tmpfs", MS_NOSUID | MS_NODEV | MS_NOEXEC,
                    "mode=0755,size=1m") == 0,
            kStage);
    bindFile(kMountTable, kStage + std::string(kMountTable));
    for (std::size_t i = 0; i < shares.size(); ++i) {
        const std::string place = kStage + shares[i].place;
        makeFolders(place);
        require(::mount(pathOf(folders[i]).c_str(), place.c_str(), nullptr, MS_BIND | MS_REC,
                        nullptr) == 0,
                shares[i].folder);
        // Whoever shares everything has the stage in it, where their own folder is.
        if (shares[i].folder == "/") {
            const std::string stage = place + kStage;
            require(::umount2(stage.c_str(), MNT_DETACH) == 0, stage);
        }
        restrictMount(place, readOnly);
    }
    folders.clear();
    require(::mount(nullptr, kStage, nullptr,
                    MS_REMOUNT | MS_RDONLY | MS_NOSUID | MS_NODEV | MS_NOEXEC, nullptr) == 0,
            kStage);
}

void moveIntoRoot() {
    require(::chdir(kStage) == 0, kStage);
    require(::syscall(SYS_pivot_root, ".", ".") == 0, "pivot_root");
    require(::umount2(".", MNT_DETACH) == 0, "the old root");
    require(::chdir("/") == 0, "/");
}

// What served to build the root is not needed to serve files. Root keeps what is about files.
void dropCapabilities(bool all) {
    constexpr std::uint32_t kFileRights = 1U << CAP_CHOWN | 1U << CAP_DAC_OVERRIDE |
                                          1U << CAP_DAC_READ_SEARCH | 1U << CAP_FOWNER |
                                          1U << CAP_FSETID | 1U << CAP_MKNOD;
    __user_cap_header_struct header{_LINUX_CAPABILITY_VERSION_3, 0};
    __user_cap_data_struct data[2]{};
    require(::syscall(SYS_capget, &header, data) == 0, "capget");
    const std::uint32_t kept = all ? 0 : kFileRights;
    data[0].effective &= kept;
    data[0].permitted &= kept;
    data[0].inheritable = 0;
    data[1] = {};
    require(::syscall(SYS_capset, &header, data) == 0, "capset");
    require(::prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0) == 0, "no new privileges");
}

void enter(const std::vector<Share>& shares, bool readOnly) {
    const bool privileged = ::geteuid() == 0 && ::unshare(CLONE_NEWNS) == 0;
    if (!privileged) enterUserNamespace();
    buildRoot(shares, readOnly);
    moveIntoRoot();
    dropCapabilities(!privileged);
}

// Whether it works here: a process cannot go back half-way.
std::string rehearse(const std::vector<Share>& shares, bool readOnly) {
    int ends[2];
    if (::pipe2(ends, O_CLOEXEC) != 0) return "namespace: no pipe";
    peer::FileDescriptor in(ends[0]), out(ends[1]);
    const pid_t pid = ::fork();
    if (pid < 0) return "namespace: no process";
    if (pid == 0) {
        std::string why;
        try {
            enter(shares, readOnly);
        } catch (const std::exception& error) {
            why = error.what();
        }
        [[maybe_unused]] const auto written = ::write(out.get(), why.data(), why.size());
        ::_exit(why.empty() ? 0 : 1);
    }
    out.reset();
    char text[512];
    std::string why;
    for (ssize_t got = 0; (got = ::read(in.get(), text, sizeof text)) > 0;) {
        why.append(text, static_cast<std::size_t>(got));
    }
    int status = 0;
    while (::waitpid(pid, &status, 0) < 0 && errno == EINTR) {
    }
    if (why.empty() && status != 0) why = "namespace: the rehearsal failed";
    return why;
}

}  // namespace

std::string enterNamespace(const std::vector<Share>& shares, bool readOnly) {
    if (std::string why = rehearse(shares, readOnly); !why.empty()) return why;
    try {
        enter(shares, readOnly);
        return {};
    } catch (const std::exception& error) {
        // Half-way in: nothing that is offered from here would be what was asked for.
        std::fprintf(stderr, "fdshare: %s\n", error.what());
        std::_Exit(1);
    }
}

}  // namespace host
