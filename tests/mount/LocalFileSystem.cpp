#include "mount/LocalFileSystem.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <unistd.h>

#include <climits>
#include <numeric>
#include <utility>

#include "peer/FileDescriptor.h"

namespace {

constexpr std::int64_t kSecond = 1'000'000'000;

template <typename Result>
Result checked(Result result, std::string_view what) {
    if (result < 0) throw peer::RemoteError(errno, std::string(what));
    return result;
}

peer::Time timeOf(const struct timespec& time) {
    return time.tv_sec * kSecond + time.tv_nsec;
}

peer::Attributes attributesOf(const struct stat& info) {
    peer::Attributes attributes;
    attributes.mode = info.st_mode;
    attributes.uid = info.st_uid;
    attributes.gid = info.st_gid;
    attributes.inode = info.st_ino;
    attributes.links = info.st_nlink;
    attributes.device = info.st_rdev;
    attributes.size = info.st_size;
    attributes.blocks = info.st_blocks;
    attributes.accessed = timeOf(info.st_atim);
    attributes.modified = timeOf(info.st_mtim);
    attributes.changed = timeOf(info.st_ctim);
    return attributes;
}

}  // namespace

// Knows its path only, as the drives of one dialect do.
class LocalFile : public peer::File {
public:
    LocalFile(LocalFileSystem& owner, std::string path) : m_owner(owner), m_path(std::move(path)) {
        const std::lock_guard lock(m_owner.m_mutex);
        m_owner.m_open.insert(&m_path);
    }
    ~LocalFile() override {
        const std::lock_guard lock(m_owner.m_mutex);
        m_owner.m_open.erase(&m_path);
    }

    Reading read(std::uint64_t offset, std::size_t length) override {
        return [this, offset, length] {
            m_owner.ask("read");
            const peer::FileDescriptor file(openAs(O_RDONLY));
            peer::Data data;
            data.message.resize(length);
            const ssize_t count = checked(
                ::pread(file.get(), data.message.data(), length, static_cast<off_t>(offset)),
                "read");
            data.bytes = peer::View(data.message).first(static_cast<std::size_t>(count));
            return data;
        };
    }

    // Carried out when somebody waits for it: whoever does not wait sees the old bytes.
    Writing write(std::uint64_t offset, peer::View data) override {
        return [this, offset, bytes = peer::Bytes(data.data(), data.data() + data.size())] {
            m_owner.ask("write");
            const peer::FileDescriptor file(openAs(O_WRONLY));
            return static_cast<std::size_t>(checked(
                ::pwrite(file.get(), bytes.data(), bytes.size(), static_cast<off_t>(offset)),
                "write"));
        };
    }

    peer::Attributes stat() override { return m_owner.stat(path()); }
    void truncate(std::int64_t size) override { m_owner.truncate(path(), size); }
    std::optional<std::uint32_t> chmod(std::uint32_t mode) override {
        return m_owner.chmod(path(), mode);
    }
    void setTimes(peer::Time accessed, peer::Time modified) override {
        m_owner.setTimes(path(), accessed, modified);
    }
    void flush() override { m_owner.ask("flush"); }

private:
    int openAs(int flags) {
        const std::string now = path();
        return checked(::open(m_owner.local(now).c_str(), flags | O_CLOEXEC), now);
    }
    std::string path() const {
        const std::lock_guard lock(m_owner.m_mutex);
        return m_path;
    }

    LocalFileSystem& m_owner;
    std::string m_path;  // guarded by the owner's mutex
};

void LocalFileSystem::onAsk(std::function<void(const std::string&)> hook) {
    const std::lock_guard lock(m_mutex);
    m_hook = std::move(hook);
}

int LocalFileSystem::asked(const std::string& operation) const {
    const std::lock_guard lock(m_mutex);
    const auto found = m_asked.find(operation);
    return found == m_asked.end() ? 0 : found->second;
}

int LocalFileSystem::asked() const {
    const std::lock_guard lock(m_mutex);
    return std::accumulate(m_asked.begin(), m_asked.end(), 0,
                           [](int sum, const auto& item) { return sum + item.second; });
}

void LocalFileSystem::forgetAsked() {
    const std::lock_guard lock(m_mutex);
    m_asked.clear();
}

void LocalFileSystem::ask(const std::string& operation) {
    std::function<void(const std::string&)> hook;
    {
        const std::lock_guard lock(m_mutex);
        ++m_asked[operation];
        hook = m_hook;
    }
    if (hook) hook(operation);
}

std::string LocalFileSystem::local(std::string_view path) const {
    return m_root + "/" + std::string(path);
}

peer::Attributes LocalFileSystem::stat(std::string_view path) {
    ask("stat");
    struct stat info {};
    checked(::lstat(local(path).c_str(), &info), path);
    return attributesOf(info);
}

peer::Volume LocalFileSystem::volume() {
    ask("volume");
    struct statvfs info {};
    checked(::statvfs(m_root.c_str(), &info), m_root);
    peer::Volume volume;
    volume.blockSize = info.f_frsize;
    volume.blocks = info.f_blocks;
    volume.freeBlocks = info.f_bfree;
    volume.availableBlocks = info.f_bavail;
    return volume;
}

void LocalFileSystem::list(std::string_view path, const Take& take) {
    ask("list");
    const std::unique_ptr<DIR, int (*)(DIR*)> stream(::opendir(local(path).c_str()), ::closedir);
    if (!stream) throw peer::RemoteError(errno, std::string(path));
    std::vector<peer::DirEntry> entries;
    while (const dirent* entry = ::readdir(stream.get())) {
        const std::string name = entry->d_name;
        struct stat info {};
        if (name == "." || name == "..") continue;
        if (::fstatat(::dirfd(stream.get()), name.c_str(), &info, AT_SYMLINK_NOFOLLOW) != 0)
            continue;
        entries.push_back({name, attributesOf(info)});
        if (entries.size() == 100) take(std::exchange(entries, {}));
    }
    take(std::move(entries));
}

std::unique_ptr<peer::File> LocalFileSystem::open(std::string_view path, int flags) {
    ask("open");
    const peer::FileDescriptor probe(
        checked(::open(local(path).c_str(), (flags & (O_ACCMODE | O_TRUNC)) | O_CLOEXEC), path));
    return std::make_unique<LocalFile>(*this, std::string(path));
}

std::unique_ptr<peer::File> LocalFileSystem::create(std::string_view path, int flags,
                                                    std::uint32_t mode) {
    ask("create");
    const peer::FileDescriptor made(checked(
        ::open(local(path).c_str(), (flags & O_ACCMODE) | O_CREAT | O_EXCL | O_CLOEXEC, mode),
        path));
    return std::make_unique<LocalFile>(*this, std::string(path));
}

void LocalFileSystem::makeNode(std::string_view path, std::uint32_t mode, std::uint64_t device) {
    ask("makeNode");
    checked(::mknod(local(path).c_str(), mode, device), path);
}

void LocalFileSystem::makeFolder(std::string_view path, std::uint32_t mode) {
    ask("makeFolder");
    checked(::mkdir(local(path).c_str(), mode), path);
}

void LocalFileSystem::remove(std::string_view path) {
    ask("remove");
    checked(::unlink(local(path).c_str()), path);
}

void LocalFileSystem::removeFolder(std::string_view path) {
    ask("removeFolder");
    checked(::rmdir(local(path).c_str()), path);
}

void LocalFileSystem::rename(std::string_view from, std::string_view to) {
    ask("rename");
    checked(::rename(local(from).c_str(), local(to).c_str()), from);
    const std::lock_guard lock(m_mutex);
    for (std::string* open : m_open) {
        if (*open == from || open->starts_with(std::string(from) + "/")) {
            *open = std::string(to) + open->substr(from.size());
        }
    }
}

void LocalFileSystem::link(std::string_view from, std::string_view to) {
    ask("link");
    checked(::link(local(from).c_str(), local(to).c_str()), from);
}

void LocalFileSystem::makeLink(const std::string& target, std::string_view path) {
    ask("makeLink");
    checked(::symlink(target.c_str(), local(path).c_str()), path);
}

std::string LocalFileSystem::readLink(std::string_view path) {
    ask("readLink");
    char target[PATH_MAX];
    const ssize_t size = checked(::readlink(local(path).c_str(), target, sizeof target), path);
    return {target, static_cast<std::size_t>(size)};
}

void LocalFileSystem::truncate(std::string_view path, std::int64_t size) {
    ask("truncate");
    checked(::truncate(local(path).c_str(), size), path);
}

std::optional<std::uint32_t> LocalFileSystem::chmod(std::string_view path, std::uint32_t mode) {
    ask("chmod");
    checked(::chmod(local(path).c_str(), mode), path);
    return mode;
}

void LocalFileSystem::setTimes(std::string_view path, peer::Time accessed, peer::Time modified) {
    ask("setTimes");
    if (!m_keepsTimes) throw peer::RemoteError(ENOSYS, std::string(path));
    const struct timespec times[2] = {{accessed / kSecond, accessed % kSecond},
                                      {modified / kSecond, modified % kSecond}};
    checked(::utimensat(AT_FDCWD, local(path).c_str(), times, AT_SYMLINK_NOFOLLOW), path);
}
