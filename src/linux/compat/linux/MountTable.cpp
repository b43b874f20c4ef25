// The mount table of Linux, from /proc/self/mountinfo: the kernel answers from memory, so nothing
// here can wait for a file system. Any thread; each has a table of its own.
#include "linux/compat/MountTable.h"

#include <fcntl.h>
#include <poll.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <string_view>

#include "MountInfo.h"

namespace compat {
namespace {

constexpr int kMaxReads = 5;           // of a table that changes while it is read
constexpr std::size_t kChunk = 65536;  // the kernel hands out a page or so at a time

// Positions of the fields of a line, counted from 0. A line has at least the fields up to the
// options; any number of optional fields follows, then a lone "-" and the type.
constexpr int kMountPathField = 4;
constexpr int kFirstOptionalField = 6;

class Descriptor {
public:
    explicit Descriptor(const char* path) : m_fd(open(path, O_RDONLY | O_CLOEXEC)) {}
    ~Descriptor() {
        if (m_fd >= 0) close(m_fd);
    }
    Descriptor(const Descriptor&) = delete;
    Descriptor& operator=(const Descriptor&) = delete;

    int get() const { return m_fd; }

private:
    int m_fd;
};

std::string readToEnd(int fd) {
    std::string text;
    for (;;) {
        const std::size_t end = text.size();
        text.resize(end + kChunk);
        const ssize_t count = read(fd, text.data() + end, kChunk);
        text.resize(count > 0 ? end + static_cast<std::size_t>(count) : end);
        if (count == 0) return text;
        if (count < 0 && errno != EINTR) return {};
    }
}

// Whether the table has changed since the descriptor was opened or last asked.
bool changedMeanwhile(int fd) {
    pollfd request{fd, POLLPRI, 0};
    return poll(&request, 1, 0) == 1 && (request.revents & (POLLPRI | POLLERR)) != 0;
}

bool isOctal(char c) {
    return c >= '0' && c <= '7';
}

// The first field of `line`, which loses it and the blank behind it.
std::string_view takeField(std::string_view& line) {
    const std::size_t end = line.find(' ');
    const std::string_view field = line.substr(0, end);
    line.remove_prefix(end == std::string_view::npos ? line.size() : end + 1);
    return field;
}

// Decodes a field in place and terminates it: the decoded text is never longer, and the byte behind
// a field is a separator that nobody looks at any more.
const char* decodeInPlace(std::string& text, std::string_view field) {
    char* const start = text.data() + (field.data() - text.data());
    char* to = start;
    for (std::size_t i = 0; i < field.size();) {
        const std::string_view rest = field.substr(i);
        const bool escaped = rest.size() >= 4 && rest[0] == '\\' && rest[1] <= '3' &&
                             isOctal(rest[1]) && isOctal(rest[2]) && isOctal(rest[3]);
        const int value =
            escaped ? (rest[1] - '0') * 64 + (rest[2] - '0') * 8 + (rest[3] - '0') : rest[0];
        *to++ = static_cast<char>(value);
        i += escaped ? 4 : 1;
    }
    *to = '\0';
    return start;
}

}  // namespace

std::string readMountInfo(const char* path) {
    const Descriptor table(path);
    if (table.get() < 0) return {};

    std::string text = readToEnd(table.get());
    for (int reads = 1; reads < kMaxReads && changedMeanwhile(table.get()); ++reads) {
        if (lseek(table.get(), 0, SEEK_SET) != 0) break;
        text = readToEnd(table.get());
    }
    return text;
}

std::vector<MountEntry> parseMountInfo(std::string& text) {
    std::vector<MountEntry> entries;
    std::string_view rest = text;
    while (!rest.empty()) {
        std::string_view line = rest.substr(0, rest.find('\n'));
        rest.remove_prefix(std::min(line.size() + 1, rest.size()));

        std::string_view mountPath;
        for (int field = 0; field < kFirstOptionalField; ++field) {
            const std::string_view value = takeField(line);
            if (field == kMountPathField) mountPath = value;
        }
        while (!line.empty() && takeField(line) != "-") {
        }
        const std::string_view typeName = takeField(line);
        if (mountPath.empty() || typeName.empty()) continue;

        entries.push_back({decodeInPlace(text, mountPath), decodeInPlace(text, typeName)});
    }
    return entries;
}

int getmntinfo(MountEntry** mounts, int /*flags*/) {
    thread_local std::string text;
    thread_local std::vector<MountEntry> entries;

    text = readMountInfo("/proc/self/mountinfo");
    entries = parseMountInfo(text);
    *mounts = entries.data();
    return static_cast<int>(entries.size());
}

}  // namespace compat
