// get: copies a file from a drive. Many reads are under way at a time.
#include <algorithm>
#include <deque>
#include <limits>

#include "fdmount/Commands.h"
#include "fdmount/LocalFile.h"
#include "fdmount/Progress.h"
#include "peer/windows/Status.h"

namespace fdmount {

using namespace peer::windows;

namespace {

constexpr std::size_t kReadsInFlight = 8;
constexpr std::int64_t kUnknownSize = std::numeric_limits<std::int64_t>::max();

struct Read {
    std::uint32_t length;
    Session::Ticket ticket;
};

// A remote file that is closed with its owner, as far as the connection still stands.
class OpenFile {
public:
    OpenFile(Session& session, const RemotePath& file)
        : m_session(session),
          m_map(file.map),
          m_created(session.open(file.map, file.path, kOpenIfExists | kFailIfNew | kAccessRead)) {}
    ~OpenFile() {
        try {
            m_session.submit(closeRequest(m_map, m_created.handle));
        } catch (const std::exception&) {
            return;  // nothing is open any more
        }
    }
    OpenFile(const OpenFile&) = delete;
    OpenFile& operator=(const OpenFile&) = delete;

    std::uint64_t handle() const { return m_created.handle; }
    const ObjectInfo& info() const { return m_created.info; }

private:
    Session& m_session;
    const std::uint8_t m_map;
    const Created m_created;
};

// Copies up to `limit` bytes and returns how many there were. A file without a known size is read
// to its end, with one read at a time, as each may be the last.
std::int64_t copyOut(Session& session, std::uint8_t map, std::uint64_t handle, std::int64_t limit,
                     Target& target, Progress& progress) {
    const std::size_t window = limit == kUnknownSize ? 1 : kReadsInFlight;
    std::deque<Read> asked;
    std::int64_t done = 0;
    std::int64_t next = 0;
    while (true) {
        for (; asked.size() < window && next < limit; next += asked.back().length) {
            const auto length = static_cast<std::uint32_t>(
                std::min<std::int64_t>(static_cast<std::int64_t>(kMaxTransfer), limit - next));
            asked.push_back({length, session.submit(readRequest(
                                         map, handle, static_cast<std::uint64_t>(next), length))});
        }
        if (asked.empty()) return done;

        const Read read = asked.front();
        asked.pop_front();
        const peer::Bytes result = session.wait(read.ticket);
        const peer::View data = parseRead(result, read.length);
        if (data.empty()) return done;
        target.write(data);
        done += static_cast<std::int64_t>(data.size());
        progress.at(done);
        if (data.size() < read.length) {  // those under way begin in the wrong place
            asked.clear();
            next = done;
        }
    }
}

void checkKind(const std::string& name, const ObjectInfo& info) {
    if (info.isDirectory()) throw CommandError(name + ": is a directory");
    if (!info.isRegular()) throw CommandError(name + ": is not a regular file");
}

// What was copied is what was there, or the user hears that it is not.
void checkUnchanged(Session& session, const RemotePath& file, const OpenFile& open,
                    std::int64_t done) {
    const ObjectInfo& before = open.info();
    if (done < before.size) {
        throw CommandError(file.shown +
                           ": became shorter while it was read: " + std::to_string(done) + " of " +
                           std::to_string(before.size) + " bytes were there");
    }
    const ObjectInfo after = session.queryInfo(file.map, open.handle());
    if (after.size != before.size) {
        warn(file.shown + ": changed its size while it was read; the copy has the " +
             std::to_string(done) + " bytes that it began with");
    } else if (after.modified != before.modified) {
        warn(file.shown + ": changed while it was read; the copy may hold old and new parts");
    }
}

}  // namespace

int getFile(Client& client) {
    const std::vector<std::string>& paths = client.options().paths;
    const RemotePath file = client.resolve(paths.front());
    Session& session = client.session();
    about(file.shown, [&] {
        // Before the open, which may wait for ever on a FIFO.
        const ObjectInfo info = session.stat(file.map, file.path);
        checkKind(file.shown, info);
        const OpenFile open(session, file);
        checkKind(file.shown, open.info());

        const std::string fileName = file.path.substr(file.path.rfind('/') + 1);
        Target target(paths.size() > 1 ? paths[1] : fileName, fileName, info.mode);
        Progress progress(file.shown, open.info().size, client.options().quiet);
        const std::int64_t limit = open.info().size > 0 ? open.info().size : kUnknownSize;
        const std::int64_t done =
            copyOut(session, file.map, open.handle(), limit, target, progress);
        if (limit != kUnknownSize) checkUnchanged(session, file, open, done);
        target.finish();
    });
    return 0;
}

}  // namespace fdmount
