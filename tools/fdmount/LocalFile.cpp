#include "fdmount/LocalFile.h"

#include <fcntl.h>
#include <limits.h>
#include <poll.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <system_error>

#include "fdmount/Client.h"
#include "fdmount/Signals.h"

namespace fdmount {

namespace {

constexpr const char* kStandardStream = "-";

std::string textOf(int error) {
    return std::generic_category().message(error);
}

mode_t currentMask() {
    const mode_t mask = ::umask(0);
    ::umask(mask);
    return mask;
}

std::string folderOf(const std::string& path) {
    const std::size_t slash = path.rfind('/');
    return slash == std::string::npos ? "" : path.substr(0, slash + 1);
}

}  // namespace

Target::Target(const std::string& name, const std::string& fileName, std::uint32_t permissions)
    : m_name(name) {
    if (name == kStandardStream) {
        m_name = "standard output";
        m_file.reset(::fcntl(STDOUT_FILENO, F_DUPFD_CLOEXEC, 3));
        if (!m_file) fail(errno);
        struct stat stream {};
        if (::fstat(m_file.get(), &stream) == 0 && !S_ISREG(stream.st_mode)) m_chunk = PIPE_BUF;
        return;
    }
    struct stat info {};
    if (::stat(m_name.c_str(), &info) == 0 && S_ISDIR(info.st_mode)) {
        m_name += (m_name.ends_with('/') ? "" : "/") + fileName;
        if (::stat(m_name.c_str(), &info) == 0 && S_ISDIR(info.st_mode)) fail(EISDIR);
    }
    if (::stat(m_name.c_str(), &info) == 0 && !S_ISREG(info.st_mode)) {
        throw CommandError(m_name + ": is not a regular file; use - for standard output");
    }
    std::string pattern = folderOf(m_name) + ".fdmount-XXXXXX";
    m_file.reset(::mkstemp(pattern.data()));
    if (!m_file) fail(errno);
    m_temporary = pattern;
    ::fcntl(m_file.get(), F_SETFD, FD_CLOEXEC);
    ::fchmod(m_file.get(), static_cast<mode_t>(permissions & 0777U) & ~currentMask());
}

Target::~Target() {
    if (!m_temporary.empty()) ::unlink(m_temporary.c_str());
}

void Target::write(peer::View bytes) {
    while (!bytes.empty()) {
        waitUnlessStopped(m_file.get(), POLLOUT);
        const ssize_t written =
            ::write(m_file.get(), bytes.data(), std::min(bytes.size(), m_chunk));
        if (written >= 0) {
            bytes = bytes.subspan(static_cast<std::size_t>(written));
        } else if (errno != EINTR) {
            fail(errno);
        }
    }
}

void Target::finish() {
    // What a file system holds back can still fail at the close.
    if (::close(m_file.release()) != 0) fail(errno);
    if (m_temporary.empty()) return;
    if (::rename(m_temporary.c_str(), m_name.c_str()) != 0) fail(errno);
    m_temporary.clear();
}

void Target::fail(int error) const {
    throw CommandError(m_name + ": " + textOf(error));
}

Source::Source(const std::string& name) : m_name(name) {
    if (name == kStandardStream) {
        m_name = "standard input";
        m_isStream = true;
        m_file.reset(::fcntl(STDIN_FILENO, F_DUPFD_CLOEXEC, 3));
        if (!m_file) throw CommandError(m_name + ": " + textOf(errno));
        return;
    }
    struct stat info {};
    if (::stat(name.c_str(), &info) != 0) throw CommandError(name + ": " + textOf(errno));
    if (S_ISDIR(info.st_mode)) throw CommandError(name + ": is a directory");
    if (!S_ISREG(info.st_mode)) {
        throw CommandError(name + ": is not a regular file; use - for standard input");
    }
    m_file.reset(::open(name.c_str(), O_RDONLY | O_CLOEXEC));
    if (!m_file) throw CommandError(name + ": " + textOf(errno));
    m_size = info.st_size;
    m_permissions = info.st_mode & 0777U;
}

peer::Bytes Source::read(std::size_t count) {
    peer::Bytes bytes(count);
    std::size_t have = 0;
    while (have < count) {
        waitUnlessStopped(m_file.get(), POLLIN);
        const ssize_t got = ::read(m_file.get(), bytes.data() + have, count - have);
        if (got == 0) break;
        if (got > 0) {
            have += static_cast<std::size_t>(got);
        } else if (errno != EINTR) {
            throw CommandError(m_name + ": " + textOf(errno));
        }
    }
    bytes.resize(have);
    return bytes;
}

std::string Source::fileName() const {
    return m_isStream ? "" : m_name.substr(folderOf(m_name).size());
}

}  // namespace fdmount
