#include "support/MountNamespace.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sched.h>
#include <sys/mount.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <string_view>
#include <system_error>
#include <vector>

#include "support/TempDir.h"

namespace {

constexpr char kFolderVariable[] = "ZFD_MOUNT_NAMESPACE_FOLDER";
constexpr int kCannotStart = 127;

void check(int result, const char* call, const std::string& path) {
    if (result != 0) throw std::system_error(errno, std::generic_category(), call + (" " + path));
}

bool writeFile(const char* path, std::string_view text) {
    const int fd = open(path, O_WRONLY | O_CLOEXEC);
    if (fd < 0) return false;
    const bool done = write(fd, text.data(), text.size()) == static_cast<ssize_t>(text.size());
    close(fd);
    return done;
}

std::string currentTest() {
    const testing::TestInfo* test = testing::UnitTest::GetInstance()->current_test_info();
    return std::string(test->test_suite_name()) + "." + test->name();
}

// What the new process is started with: made before the fork, for nothing may be allocated behind
// it.
struct Launch {
    explicit Launch(const std::string& folder)
        : path(folder),
          uidMap("0 " + std::to_string(geteuid()) + " 1"),
          gidMap("0 " + std::to_string(getegid()) + " 1"),
          arguments{"namespace_test", "--gtest_filter=" + currentTest(), "--gtest_brief=1"} {
        for (char** entry = environ; *entry != nullptr; ++entry) {
            if (std::strncmp(*entry, "GTEST_", 6) != 0) environment.emplace_back(*entry);
        }
        environment.push_back(std::string(kFolderVariable) + "=" + folder);
        for (std::string& text : arguments) argv.push_back(text.data());
        for (std::string& text : environment) envp.push_back(text.data());
        argv.push_back(nullptr);
        envp.push_back(nullptr);
    }

    std::string path;
    std::string uidMap;
    std::string gidMap;
    std::vector<std::string> arguments;
    std::vector<std::string> environment;
    std::vector<char*> argv;
    std::vector<char*> envp;
};

// In the forked process. The name of the call that failed, or null.
const char* enterNamespace(const Launch& launch) {
    if (unshare(CLONE_NEWNS) != 0) {
        if (unshare(CLONE_NEWUSER | CLONE_NEWNS) != 0) return "unshare";
        if (!writeFile("/proc/self/setgroups", "deny")) return "setgroups";
        if (!writeFile("/proc/self/uid_map", launch.uidMap)) return "uid_map";
        if (!writeFile("/proc/self/gid_map", launch.gidMap)) return "gid_map";
    }
    if (mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0)
        return "mount --make-private";
    if (mount("tmpfs", launch.path.c_str(), "tmpfs", MS_NODEV | MS_NOSUID, "size=64m") != 0) {
        return "mount tmpfs";
    }
    return nullptr;
}

// Why the namespace could not be entered. The name is a literal, so its address holds in the
// process that forked as well.
struct Refusal {
    const char* call;
    int error;
};

[[noreturn]] void becomeTest(Launch& launch, int refusalFd) {
    prctl(PR_SET_PDEATHSIG, SIGKILL);  // never outlives the test that waits for it
    if (const char* call = enterNamespace(launch); call != nullptr) {
        const Refusal refusal{call, errno};
        _exit(write(refusalFd, &refusal, sizeof refusal) == sizeof refusal ? 0 : kCannotStart);
    }
    execve("/proc/self/exe", launch.argv.data(), launch.envp.data());
    _exit(kCannotStart);
}

void runInNamespace() {
    const TempDir folder;
    Launch launch(folder.str());
    int refusalPipe[2] = {-1, -1};
    ASSERT_EQ(pipe2(refusalPipe, O_CLOEXEC), 0);
    std::fflush(nullptr);
    const pid_t child = fork();
    ASSERT_GE(child, 0);
    if (child == 0) becomeTest(launch, refusalPipe[1]);

    close(refusalPipe[1]);
    Refusal refusal{};
    const ssize_t refused = read(refusalPipe[0], &refusal, sizeof refusal);  // none at the exec
    close(refusalPipe[0]);
    int status = 0;
    while (waitpid(child, &status, 0) < 0 && errno == EINTR) {
    }

    if (refused == sizeof refusal) {
        GTEST_SKIP() << "this machine forbids mount namespaces: " << refusal.call << ": "
                     << std::generic_category().message(refusal.error);
    }
    EXPECT_TRUE(WIFEXITED(status)) << "ended by signal " << WTERMSIG(status);
    EXPECT_EQ(WEXITSTATUS(status), 0) << "the output above has the failures";
}

}  // namespace

void inMountNamespace(const std::function<void(const std::string& folder)>& body) {
    const char* folder = std::getenv(kFolderVariable);
    if (folder == nullptr) {
        runInNamespace();
    } else {
        body(folder);
    }
}

void mountTmpfs(const std::string& path) {
    std::filesystem::create_directories(path);
    check(mount("tmpfs", path.c_str(), "tmpfs", MS_NODEV | MS_NOSUID, "size=4m"), "mount", path);
}

void bindMount(const std::string& source, const std::string& path) {
    std::filesystem::create_directories(path);
    check(mount(source.c_str(), path.c_str(), nullptr, MS_BIND, nullptr), "bind mount", path);
}

void remountReadOnly(const std::string& path) {
    constexpr unsigned long kFlags = MS_REMOUNT | MS_RDONLY | MS_NODEV | MS_NOSUID;
    check(mount(nullptr, path.c_str(), nullptr, kFlags, nullptr), "remount", path);
}

void moveMount(const std::string& from, const std::string& to) {
    std::filesystem::create_directories(to);
    check(mount(from.c_str(), to.c_str(), nullptr, MS_MOVE, nullptr), "move mount", to);
}

void unmount(const std::string& path) {
    check(umount2(path.c_str(), MNT_DETACH), "unmount", path);
}
