// put: copies a file to a drive, under a name of its own until it is whole.
#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <deque>
#include <optional>
#include <random>

#include "fdmount/Commands.h"
#include "fdmount/LocalFile.h"
#include "fdmount/Progress.h"
#include "fdmount/Signals.h"

namespace fdmount {

using peer::Attributes;
using peer::File;

namespace {

constexpr std::size_t kWritesInFlight = 8;

struct Write {
    std::uint64_t offset;
    peer::Bytes data;
    File::Writing wait;
};

std::string temporaryName(const std::string& path) {
    std::random_device random;
    const std::size_t slash = path.rfind('/');
    const std::string folder = slash == std::string::npos ? "" : path.substr(0, slash + 1);
    return folder + ".fdmount-" + std::to_string(::getpid()) + "-" + std::to_string(random());
}

// A new file on the drive. Goes again with its owner, unless keepAs() gave it another name.
class NewFile {
public:
    NewFile(Client& client, const RemotePath& target, std::uint32_t permissions)
        : m_client(client), m_files(target.files), m_path(temporaryName(target.path)) {
        // Its making is waited for whatever signal comes, so that it can be removed.
        onStopSignal({});
        m_file = m_files->create(m_path, O_RDWR, permissions);
        client.stopOnSignals();
    }
    ~NewFile() {
        if (!m_exists) return;
        try {
            onStopSignal({});  // one that comes now, or came just before, must not stop this
            m_client.machine().resume();
            m_file.reset();
            m_files->remove(m_path);
        } catch (const std::exception& error) {
            warn(m_path + ": is left behind on the drive: " + error.what());
        }
    }
    NewFile(const NewFile&) = delete;
    NewFile& operator=(const NewFile&) = delete;

    File& file() { return *m_file; }

    void keepAs(const std::string& path) {
        m_file.reset();
        m_files->rename(m_path, path);
        m_exists = false;
    }

private:
    Client& m_client;
    const std::shared_ptr<peer::FileSystem> m_files;
    const std::string m_path;
    std::unique_ptr<File> m_file;
    bool m_exists = true;
};

// Waits for the oldest write. What the other side took in part is sent again from there.
void finishOldest(File& file, std::deque<Write>& asked) {
    Write write = std::move(asked.front());
    asked.pop_front();
    std::size_t done = 0;
    while (true) {
        const std::size_t taken = write.wait();
        done += taken;
        if (done == write.data.size()) return;
        if (taken == 0) throw peer::RemoteError(ENOSPC, "no space left on the drive");
        write.wait = file.write(write.offset + done, peer::View(write.data).subspan(done));
    }
}

void copyIn(File& file, Source& source, Progress& progress) {
    std::deque<Write> asked;
    std::uint64_t offset = 0;
    bool ended = false;
    while (!ended || !asked.empty()) {
        if (!ended && asked.size() < kWritesInFlight) {
            peer::Bytes data = source.read(File::kMaxTransfer);
            ended = data.size() < File::kMaxTransfer;
            if (data.empty()) continue;
            File::Writing wait = file.write(offset, data);
            const std::size_t size = data.size();
            asked.push_back({offset, std::move(data), std::move(wait)});
            offset += size;
        } else {
            finishOldest(file, asked);
        }
        progress.at(static_cast<std::int64_t>(offset));
    }
}

std::optional<Attributes> existing(const RemotePath& target) {
    try {
        return target.files->stat(target.path);
    } catch (const peer::RemoteError& error) {
        if (error.error() != ENOENT) throw;
        return std::nullopt;
    }
}

// Takes the place of a file with that file's permissions.
void keepPermissions(File& file, const RemotePath& target, const Attributes& replaced) {
    try {
        file.chmod(replaced.mode & peer::kPermissions);
    } catch (const peer::RemoteError& error) {
        warn(target.shown + ": has not kept its permissions: " + error.what());
    }
}

void copyTo(Client& client, const RemotePath& target, Source& source, Progress& progress,
            const std::optional<Attributes>& replaced) {
    NewFile file(client, target, source.permissions());
    if (stopSignal() != 0) throw peer::Cancelled();
    copyIn(file.file(), source, progress);
    if (replaced) keepPermissions(file.file(), target, *replaced);
    file.file().flush();
    file.keepAs(target.path);
}

}  // namespace

int putFile(Client& client) {
    Source source(client.options().paths[0]);
    RemotePath target = client.resolve(client.options().paths[1]);
    about(target.shown, [&] {
        std::optional<Attributes> replaced = existing(target);
        if (replaced && leadsToFolder(target, *replaced)) {
            if (source.fileName().empty()) {
                throw CommandError(target.shown +
                                   ": is a directory, and standard input has no name to keep");
            }
            target.path += (target.path.empty() ? "" : "/") + source.fileName();
            replaced = existing(target);
            if (replaced && replaced->isDirectory()) {
                throw CommandError(target.shown + ": is a directory");
            }
        } else if (target.shown.ends_with('/')) {
            throw CommandError(target.shown + ": is not a directory");
        }
        if (replaced && replaced->isLink()) replaced.reset();  // which gives its place away
        if (replaced && !replaced->isRegular()) {
            throw CommandError(target.shown + ": is not a regular file");
        }
        Progress progress(target.shown, source.size(), client.options().quiet);
        copyTo(client, target, source, progress, replaced);
    });
    return 0;
}

}  // namespace fdmount
