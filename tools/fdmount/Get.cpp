// get: copies a file from a drive. Many reads are under way at a time.
#include <fcntl.h>

#include <algorithm>
#include <deque>
#include <limits>

#include "fdmount/Commands.h"
#include "fdmount/LocalFile.h"
#include "fdmount/Progress.h"

namespace fdmount {

using peer::Attributes;
using peer::File;

namespace {

constexpr std::size_t kReadsInFlight = 8;
constexpr std::uint32_t kUsualPermissions = 0666;
constexpr std::int64_t kUnknownSize = std::numeric_limits<std::int64_t>::max();

struct Read {
    std::size_t length;
    File::Reading wait;
};

// Copies up to `limit` bytes and returns how many there were. A file without a known size is read
// to its end, with one read at a time, as each may be the last.
std::int64_t copyOut(File& file, std::int64_t limit, Target& target, Progress& progress) {
    const std::size_t window = limit == kUnknownSize ? 1 : kReadsInFlight;
    std::deque<Read> asked;
    std::int64_t done = 0;
    std::int64_t next = 0;
    while (true) {
        while (asked.size() < window && next < limit) {
            const auto length = static_cast<std::size_t>(
                std::min<std::int64_t>(std::int64_t{File::kMaxTransfer}, limit - next));
            asked.push_back({length, file.read(static_cast<std::uint64_t>(next), length)});
            next += static_cast<std::int64_t>(length);
        }
        if (asked.empty()) return done;

        const Read read = std::move(asked.front());
        asked.pop_front();
        const peer::Data data = read.wait();
        if (data.bytes.empty()) return done;
        target.write(data.bytes);
        done += static_cast<std::int64_t>(data.bytes.size());
        progress.at(done);
        if (data.bytes.size() < read.length) {  // those under way begin in the wrong place
            asked.clear();
            next = done;
        }
    }
}

void checkKind(const std::string& name, const Attributes& info) {
    if (info.isDirectory()) throw CommandError(name + ": is a directory");
    if (!info.isRegular()) throw CommandError(name + ": is not a regular file");
}

// What was copied is what was there, or the user hears that it is not.
void checkUnchanged(File& open, const RemotePath& file, const Attributes& before,
                    std::int64_t done) {
    if (done < before.size) {
        throw CommandError(file.shown +
                           ": became shorter while it was read: " + std::to_string(done) + " of " +
                           std::to_string(before.size) + " bytes were there");
    }
    const Attributes after = open.stat();
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
    about(file.shown, [&] {
        // Before the open, which may wait for ever on a FIFO.
        const Attributes found = file.files->stat(file.path);
        const bool isLink = found.isLink();
        if (leadsToFolder(file, found)) throw CommandError(file.shown + ": is a directory");
        if (!isLink) checkKind(file.shown, found);
        const std::unique_ptr<File> open = file.files->open(file.path, O_RDONLY);
        const Attributes info = isLink ? found : open->stat();
        if (!isLink) checkKind(file.shown, info);

        const std::string fileName = file.path.substr(file.path.rfind('/') + 1);
        Target target(paths.size() > 1 ? paths[1] : fileName, fileName,
                      isLink ? kUsualPermissions : info.mode);
        Progress progress(file.shown, isLink ? -1 : info.size, client.options().quiet);

        // The size of a link is not that of what it leads to.
        const std::int64_t limit = !isLink && info.size > 0 ? info.size : kUnknownSize;
        const std::int64_t done = copyOut(*open, limit, target, progress);
        if (limit != kUnknownSize) checkUnchanged(*open, file, info, done);
        target.finish();
    });
    return 0;
}

}  // namespace fdmount
