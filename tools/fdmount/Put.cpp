// put: copies a file to a drive, under a name of its own until it is whole.
#include <unistd.h>

#include <deque>
#include <optional>
#include <random>

#include "fdmount/Commands.h"
#include "fdmount/LocalFile.h"
#include "fdmount/Progress.h"
#include "fdmount/Signals.h"
#include "peer/windows/Status.h"

namespace fdmount {

using namespace peer::windows;

namespace {

constexpr std::size_t kWritesInFlight = 8;

struct Write {
    std::uint64_t offset;
    peer::Bytes data;
    Session::Ticket ticket;
};

std::string temporaryName(const std::string& path) {
    std::random_device random;
    const std::size_t slash = path.rfind('/');
    const std::string folder = slash == std::string::npos ? "" : path.substr(0, slash + 1);
    return folder + ".fdmount-" + std::to_string(::getpid()) + "-" + std::to_string(random());
}

// A new file on the drive. Goes again with its owner, unless keep() gave it another name.
class NewFile {
public:
    NewFile(Session& session, const RemotePath& target, std::uint32_t permissions)
        : m_session(session),
          m_map(target.map),
          m_path(temporaryName(target.path)),
          m_handle(create(permissions)) {}
    ~NewFile() {
        if (!m_exists) return;
        try {
            onStopSignal({});  // one that comes now, or came just before, must not stop this
            m_session.resume();
            closeIt();
            m_session.remove(m_map, m_path, kRemoveFile);
        } catch (const std::exception& error) {
            warn(m_path + ": is left behind on the drive: " + error.what());
        }
    }
    NewFile(const NewFile&) = delete;
    NewFile& operator=(const NewFile&) = delete;

    std::uint64_t handle() const { return m_handle; }

    void keepAs(const std::string& path) {
        closeIt();
        m_session.rename(m_map, m_path, path, kRenameFile | kRenameReplace);
        m_exists = false;
    }

private:
    // A signal that overtakes the answer does not keep the file from being made: it is waited for,
    // so that it can be removed.
    std::uint64_t create(std::uint32_t permissions) {
        const Session::Ticket asked = m_session.submit(
            createRequest(m_map, wirePath(m_path), kFailIfExists | kCreateIfNew | kAccessReadWrite,
                          kModeRegular | permissions));
        peer::Bytes result;
        try {
            result = m_session.wait(asked);
        } catch (const peer::Cancelled&) {
            onStopSignal({});
            m_session.resume();
            result = m_session.wait(asked);
        }
        const Created created = parseCreated(result);
        if (const std::int32_t status = created.outcome(); status != kSuccess) {
            throw StatusError(status);
        }
        return created.handle;
    }

    void closeIt() {
        if (m_open) m_session.close(m_map, m_handle);
        m_open = false;
    }

    Session& m_session;
    const std::uint8_t m_map;
    const std::string m_path;
    const std::uint64_t m_handle;
    bool m_open = true;
    bool m_exists = true;
};

// Waits for the oldest write. What the other side took in part is sent again from there.
void finishOldest(Session& session, std::uint8_t map, std::uint64_t handle,
                  std::deque<Write>& asked) {
    const Write write = std::move(asked.front());
    asked.pop_front();
    std::size_t done = 0;
    Session::Ticket ticket = write.ticket;
    while (true) {
        const auto sent = static_cast<std::uint32_t>(write.data.size() - done);
        const std::uint32_t taken = parseWritten(session.wait(ticket), sent);
        done += taken;
        if (done == write.data.size()) return;
        if (taken == 0) throw StatusError(kDiskFull);
        ticket = session.submit(
            writeRequest(map, handle, write.offset + done, peer::View(write.data).subspan(done)));
    }
}

void copyIn(Session& session, std::uint8_t map, std::uint64_t handle, Source& source,
            Progress& progress) {
    std::deque<Write> asked;
    std::uint64_t offset = 0;
    bool ended = false;
    while (!ended || !asked.empty()) {
        if (!ended && asked.size() < kWritesInFlight) {
            peer::Bytes data = source.read(kMaxTransfer);
            ended = data.size() < kMaxTransfer;
            if (data.empty()) continue;
            const Session::Ticket ticket = session.submit(writeRequest(map, handle, offset, data));
            const std::size_t size = data.size();
            asked.push_back({offset, std::move(data), ticket});
            offset += size;
        } else {
            finishOldest(session, map, handle, asked);
        }
        progress.at(static_cast<std::int64_t>(offset));
    }
}

std::optional<ObjectInfo> existing(Session& session, const RemotePath& target) {
    try {
        return session.stat(target.map, target.path);
    } catch (const StatusError& error) {
        if (error.status() != kStatusFileNotFound) throw;
        return std::nullopt;
    }
}

// Takes the place of a file with that file's permissions.
void keepPermissions(Session& session, const RemotePath& target, const NewFile& file,
                     const ObjectInfo& replaced) {
    ObjectInfo wanted;
    wanted.mode = replaced.mode & (kModeTypeMask | 0777U);
    session.setInfo(target.map, file.handle(), wanted);
}

void copyTo(Session& session, const RemotePath& target, Source& source, Progress& progress,
            const std::optional<ObjectInfo>& replaced) {
    NewFile file(session, target, source.permissions());
    if (stopSignal() != 0) throw peer::Cancelled();
    copyIn(session, target.map, file.handle(), source, progress);
    if (replaced) keepPermissions(session, target, file, *replaced);
    session.flush(target.map, file.handle());
    file.keepAs(target.path);
}

}  // namespace

int putFile(Client& client) {
    Source source(client.options().paths[0]);
    RemotePath target = client.resolve(client.options().paths[1]);
    Session& session = client.session();
    about(target.shown, [&] {
        std::optional<ObjectInfo> replaced = existing(session, target);
        if (replaced && replaced->isDirectory()) {
            target.path += (target.path.empty() ? "" : "/") + source.fileName();
            replaced = existing(session, target);
            if (replaced && replaced->isDirectory()) throw StatusError(kIsADirectory);
        }
        if (replaced && !replaced->isRegular()) {
            throw CommandError(target.shown + ": is not a regular file");
        }
        Progress progress(target.shown, source.size(), client.options().quiet);
        copyTo(session, target, source, progress, replaced);
    });
    return 0;
}

}  // namespace fdmount
