#include "fdmount/fuse/Background.h"

#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <system_error>

#include "fdmount/Options.h"

namespace fdmount {

namespace {

// The error has been told by the one that failed, on the same standard error.
int exitCodeOf(pid_t child) {
    int status = 0;
    while (::waitpid(child, &status, 0) < 0 && errno == EINTR) {
    }
    return WIFEXITED(status) && WEXITSTATUS(status) != 0 ? WEXITSTATUS(status) : kExitFailure;
}

}  // namespace

std::optional<int> Background::enter() {
    int ends[2];
    if (::pipe2(ends, O_CLOEXEC) != 0) {
        throw std::system_error(errno, std::generic_category(), "pipe");
    }
    const peer::FileDescriptor readEnd(ends[0]);
    peer::FileDescriptor writeEnd(ends[1]);
    const pid_t child = ::fork();
    if (child < 0) throw std::system_error(errno, std::generic_category(), "fork");
    if (child == 0) {
        m_report = std::move(writeEnd);
        return std::nullopt;
    }
    writeEnd.reset();
    char byte = 0;
    ssize_t count = 0;
    while ((count = ::read(readEnd.get(), &byte, 1)) < 0 && errno == EINTR) {
    }
    return count == 1 ? 0 : exitCodeOf(child);
}

void Background::reportSuccess() {
    if (!m_report) return;
    ::setsid();
    [[maybe_unused]] const int root = ::chdir("/");
    const peer::FileDescriptor nothing(::open("/dev/null", O_RDWR | O_CLOEXEC));
    for (const int fd : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO}) ::dup2(nothing.get(), fd);
    [[maybe_unused]] const ssize_t told = ::write(m_report.get(), "", 1);
    m_report.reset();
}

}  // namespace fdmount
