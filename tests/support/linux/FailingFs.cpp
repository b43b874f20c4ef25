#define FUSE_USE_VERSION 31
#include "support/linux/FailingFs.h"

#include <fcntl.h>
#include <fuse.h>
#include <fuse_lowlevel.h>
#include <poll.h>
#include <sys/eventfd.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <map>
#include <mutex>
#include <system_error>
#include <thread>

namespace {

struct Node {
    mode_t mode = 0;
    off_t size = 0;
    timespec times[2] = {{1000, 0}, {2000, 0}};
    bool refusedToGo = false;
    int looks = 0;  // since then
};

struct Failure {
    int error = 0;
    int after = 0;
};

using Call = FailingFs::Call;

[[noreturn]] void give(const char* what) {
    throw std::system_error(errno == 0 ? EIO : errno, std::generic_category(), what);
}

}  // namespace

// The names are paths, as the requests bring them. The lock guards what the test and the serving
// thread share.
struct FailingFs::Core {
    mutable std::mutex mutex;
    std::map<std::string, Node> nodes{{"/", {S_IFDIR | 0755}}};
    std::map<Call, Failure> failures;
    int vanishAfter = INT_MAX;

    fuse* fs = nullptr;
    int wakeFd = -1;
    std::thread server;

    // Under the lock. 0, or the negative error that the call is to answer.
    int answerOf(Call call) {
        Failure& failure = failures[call];
        if (failure.error == 0) return 0;
        return failure.after-- > 0 ? 0 : -failure.error;
    }

    // Runs `change` on the node of a path, unless the call is to fail.
    template <typename Change>
    int onNode(Call call, const char* path, Change change) {
        const std::lock_guard lock(mutex);
        if (const int failed = answerOf(call); failed != 0) return failed;
        const auto node = nodes.find(path);
        return node == nodes.end() ? -ENOENT : change(node->second);
    }

    int look(const char* path, struct stat* found) {
        return onNode(Call::Lookup, path, [&](Node& node) {
            if (node.refusedToGo && ++node.looks > vanishAfter) return -ENOENT;
            found->st_mode = node.mode;
            found->st_nlink = 1;
            found->st_size = node.size;
            found->st_atim = node.times[0];
            found->st_mtim = node.times[1];
            return 0;
        });
    }

    int drop(Call call, const char* path) {
        const std::lock_guard lock(mutex);
        const int failed = answerOf(call);
        if (failed == 0) {
            nodes.erase(path);
        } else if (const auto node = nodes.find(path); node != nodes.end()) {
            node->second.refusedToGo = true;
            node->second.looks = 0;
        }
        return failed;
    }

    int move(const char* from, const char* to) {
        const std::lock_guard lock(mutex);
        if (const int failed = answerOf(Call::Rename); failed != 0) return failed;
        nodes[to] = nodes[from];
        nodes.erase(from);
        return 0;
    }

    void mount(const std::string& mountPoint);
    void serve() const;
    static fuse_operations operations();
    static void configure(fuse_config* config);
    static Core& self() { return *static_cast<Core*>(fuse_get_context()->private_data); }
};

// Nothing is remembered by the kernel: each look of a test comes through.
void FailingFs::Core::configure(fuse_config* config) {
    config->entry_timeout = 0;
    config->attr_timeout = 0;
    config->negative_timeout = 0;
    config->hard_remove = 1;
    config->direct_io = 1;
}

fuse_operations FailingFs::Core::operations() {
    fuse_operations calls{};
    calls.init = [](fuse_conn_info*, fuse_config* config) -> void* {
        configure(config);
        return fuse_get_context()->private_data;
    };
    calls.getattr = [](const char* path, struct stat* found, fuse_file_info*) {
        return self().look(path, found);
    };
    calls.readdir = [](const char*, void* list, fuse_fill_dir_t fill, off_t, fuse_file_info*,
                       fuse_readdir_flags) {
        const std::lock_guard lock(self().mutex);
        for (const auto& [path, node] : self().nodes) {
            if (path != "/") fill(list, path.c_str() + 1, nullptr, 0, fuse_fill_dir_flags{});
        }
        return 0;
    };
    calls.unlink = [](const char* path) { return self().drop(Call::Unlink, path); };
    calls.rmdir = [](const char* path) { return self().drop(Call::Rmdir, path); };
    calls.rename = [](const char* from, const char* to, unsigned) { return self().move(from, to); };
    calls.truncate = [](const char* path, off_t size, fuse_file_info*) {
        return self().onNode(Call::Truncate, path, [&](Node& node) {
            node.size = size;
            return 0;
        });
    };
    calls.chmod = [](const char* path, mode_t mode, fuse_file_info*) {
        return self().onNode(Call::Chmod, path, [&](Node& node) {
            node.mode = (node.mode & S_IFMT) | (mode & 07777U);
            return 0;
        });
    };
    calls.utimens = [](const char* path, const timespec times[2], fuse_file_info*) {
        return self().onNode(Call::Utimens, path, [&](Node& node) {
            node.times[0] = times[0];
            node.times[1] = times[1];
            return 0;
        });
    };
    calls.open = [](const char*, fuse_file_info*) { return 0; };
    calls.read = [](const char* path, char* data, std::size_t size, off_t, fuse_file_info*) {
        return self().onNode(Call::Read, path, [&](Node&) {
            std::memset(data, 'r', size);
            return static_cast<int>(size);
        });
    };
    calls.write = [](const char* path, const char*, std::size_t size, off_t offset,
                     fuse_file_info*) {
        return self().onNode(Call::Write, path, [&](Node& node) {
            node.size = std::max(node.size, offset + static_cast<off_t>(size));
            return static_cast<int>(size);
        });
    };
    calls.fsync = [](const char* path, int, fuse_file_info*) {
        return self().onNode(Call::Fsync, path, [](Node&) { return 0; });
    };
    return calls;
}

void FailingFs::Core::mount(const std::string& mountPoint) {
    char name[] = "failing";
    char* argv[] = {name, nullptr};
    fuse_args arguments = FUSE_ARGS_INIT(1, argv);
    const fuse_operations calls = operations();
    errno = 0;
    fs = fuse_new(&arguments, &calls, sizeof calls, this);
    fuse_opt_free_args(&arguments);  // the call has made a copy of its own
    if (fs == nullptr) give("fuse_new");
    if (fuse_mount(fs, mountPoint.c_str()) != 0) give("fuse_mount");
    wakeFd = eventfd(0, EFD_CLOEXEC);
    if (wakeFd < 0) give("eventfd");
    server = std::thread([this] { serve(); });
}

// One request after the other, until the test is over.
void FailingFs::Core::serve() const {
    fuse_session* session = fuse_get_session(fs);
    fuse_buf buffer{};
    pollfd fds[2] = {{fuse_session_fd(session), POLLIN, 0}, {wakeFd, POLLIN, 0}};
    while (poll(fds, 2, -1) > 0 && fds[1].revents == 0) {
        const int received = fuse_session_receive_buf(session, &buffer);
        if (received == -EINTR || received == -EAGAIN) continue;
        if (received <= 0) break;
        fuse_session_process_buf(session, &buffer);
    }
    std::free(buffer.mem);
}

std::string FailingFs::reasonToSkip() {
    const int fd = open("/dev/fuse", O_RDWR | O_CLOEXEC);
    if (fd < 0) return std::string("/dev/fuse: ") + std::strerror(errno);
    close(fd);
    return {};
}

FailingFs::FailingFs(const std::string& mountPoint) : m_core(std::make_unique<Core>()) {
    std::filesystem::create_directories(mountPoint);
    m_core->mount(mountPoint);
}

// What is still open on it answers ENOTCONN from here on.
FailingFs::~FailingFs() {
    const eventfd_t one = 1;
    eventfd_write(m_core->wakeFd, one);
    m_core->server.join();
    close(m_core->wakeFd);
    fuse_unmount(m_core->fs);
    fuse_destroy(m_core->fs);
}

void FailingFs::addFile(const std::string& name) {
    const std::lock_guard lock(m_core->mutex);
    m_core->nodes["/" + name].mode = S_IFREG | 0644;
}

void FailingFs::addFolder(const std::string& name) {
    const std::lock_guard lock(m_core->mutex);
    m_core->nodes["/" + name].mode = S_IFDIR | 0755;
}

void FailingFs::fail(Call call, int error, int after) {
    const std::lock_guard lock(m_core->mutex);
    m_core->failures[call] = {error, after};
}

void FailingFs::vanishAfter(int looks) {
    const std::lock_guard lock(m_core->mutex);
    m_core->vanishAfter = looks;
}

int FailingFs::looksAt(const std::string& name) const {
    const std::lock_guard lock(m_core->mutex);
    return m_core->nodes.at("/" + name).looks;
}

off_t FailingFs::sizeOf(const std::string& name) const {
    const std::lock_guard lock(m_core->mutex);
    return m_core->nodes.at("/" + name).size;
}

mode_t FailingFs::modeOf(const std::string& name) const {
    const std::lock_guard lock(m_core->mutex);
    return m_core->nodes.at("/" + name).mode;
}
