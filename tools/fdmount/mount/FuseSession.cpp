#include "fdmount/mount/FuseSession.h"

#include <malloc.h>

#include <cstdarg>
#include <cstdio>
#include <memory>
#include <mutex>
#include <vector>

#include "fdmount/mount/Fuse.h"
#include "fdmount/mount/MountPoint.h"
#include "fdmount/mount/Operations.h"

namespace fdmount {

namespace {

// A call that waits for the other side holds its thread. So many can wait at a time.
constexpr unsigned kMostThreads = 64;
constexpr unsigned kIdleThreads = 8;

std::mutex g_saidMutex;  // guards g_said
std::string g_said;      // the last thing that the library complained of

__attribute__((format(printf, 2, 0))) void keepWhatIsSaid(fuse_log_level /*level*/,
                                                          const char* format,
                                                          std::va_list arguments) {
    char text[512];
    std::vsnprintf(text, sizeof text, format, arguments);
    const std::lock_guard lock(g_saidMutex);
    g_said = text;
    while (g_said.ends_with('\n')) g_said.pop_back();
}

std::string whatWasSaid() {
    const std::lock_guard lock(g_saidMutex);
    return g_said.empty() ? "" : " (" + g_said + ")";
}

// A comma within a value would end it.
std::string escaped(const std::string& value) {
    std::string text;
    for (const char letter : value) {
        if (letter == ',' || letter == '\\') text.push_back('\\');
        text.push_back(letter);
    }
    return text;
}

std::vector<std::string> argumentsOf(const MountOptions& options) {
    std::string list = "fsname=" + escaped(options.fsname) +
                       ",subtype=" + escaped(options.subtype) +
                       ",max_read=" + std::to_string(options.maxRead);
    if (options.readOnly) list += ",ro";
    for (const std::string& word : options.forKernel) list += "," + word;
    return {"fdmount", "-o", list};
}

// Every read takes a block as large as what it reads. Blocks that come from the system anew each
// time cost more than the bytes.
void keepLargeBlocks() {
    ::mallopt(M_MMAP_THRESHOLD, 32 << 20);
    ::mallopt(M_TRIM_THRESHOLD, 64 << 20);
}

}  // namespace

FuseSession::FuseSession(Mount& mount, const std::string& mountPoint) {
    ::fuse_set_log_func(keepWhatIsSaid);
    keepLargeBlocks();
    std::vector<std::string> words = argumentsOf(mount.options());
    std::vector<char*> pointers;
    pointers.reserve(words.size() + 1);
    for (std::string& word : words) pointers.push_back(word.data());
    pointers.push_back(nullptr);
    fuse_args arguments = FUSE_ARGS_INIT(static_cast<int>(words.size()), pointers.data());
    m_fuse = ::fuse_new(&arguments, &operations(), sizeof(fuse_operations), &mount);
    ::fuse_opt_free_args(&arguments);
    if (m_fuse == nullptr) throw MountError(mountPoint + ": cannot be mounted" + whatWasSaid());
    if (::fuse_mount(m_fuse, mountPoint.c_str()) != 0) {
        ::fuse_destroy(m_fuse);
        throw MountError(mountPoint + ": cannot be mounted" + whatWasSaid());
    }
}

FuseSession::~FuseSession() {
    if (m_fuse == nullptr) return;
    join();
    ::fuse_unmount(m_fuse);
    ::fuse_destroy(m_fuse);
}

void FuseSession::start(std::function<void()> ended) {
    m_loop = std::thread([fuse = m_fuse, ended = std::move(ended)] {
        const std::unique_ptr<fuse_loop_config, decltype(&::fuse_loop_cfg_destroy)> config(
            ::fuse_loop_cfg_create(), ::fuse_loop_cfg_destroy);
        ::fuse_loop_cfg_set_max_threads(config.get(), kMostThreads);
        ::fuse_loop_cfg_set_idle_threads(config.get(), kIdleThreads);
        ::fuse_loop_cfg_set_clone_fd(config.get(), 0);
        ::fuse_loop_mt(fuse, config.get());
        ended();
    });
}

void FuseSession::join() {
    if (m_loop.joinable()) m_loop.join();
}

void FuseSession::abandon() {
    if (m_loop.joinable()) m_loop.detach();
    m_fuse = nullptr;
}

void FuseSession::forgetName(const std::string& name) {
    ::fuse_lowlevel_notify_inval_entry(::fuse_get_session(m_fuse), FUSE_ROOT_ID, name.c_str(),
                                       name.size());
}

}  // namespace fdmount
