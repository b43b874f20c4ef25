#include "e2e/Program.h"

#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <functional>
#include <stdexcept>
#include <thread>

#include "support/Sanitizers.h"
#include "support/TempDir.h"

namespace {

std::string temporaryFile() {
    char name[] = "/tmp/zfd-e2e-XXXXXX";
    const int fd = ::mkstemp(name);
    if (fd < 0) throw std::runtime_error("mkstemp");
    ::close(fd);
    return name;
}

// A sanitizer is slow at copying gigabytes.
constexpr std::chrono::minutes kPatience{kThreadSanitizer ? 5 : 1};

bool waitFor(const std::function<bool()>& done) {
    const auto deadline = std::chrono::steady_clock::now() + kPatience;
    while (!done()) {
        if (std::chrono::steady_clock::now() > deadline) return false;
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
    return true;
}

void redirect(int fd, const std::string& file, int flags) {
    const int opened = ::open(file.c_str(), flags);
    if (opened < 0 || ::dup2(opened, fd) < 0) ::_exit(126);
    ::close(opened);
}

}  // namespace

Program::Program(const std::vector<std::string>& command, const Options& options)
    : m_outFile(temporaryFile()), m_errFile(temporaryFile()) {
    std::vector<char*> arguments;
    for (const std::string& argument : command)
        arguments.push_back(const_cast<char*>(argument.data()));
    arguments.push_back(nullptr);

    m_pid = ::fork();
    if (m_pid < 0) throw std::runtime_error("fork");
    if (m_pid == 0) {
        redirect(STDIN_FILENO, options.in, O_RDONLY);
        redirect(STDOUT_FILENO, options.out.empty() ? m_outFile : options.out, O_WRONLY);
        redirect(STDERR_FILENO, m_errFile, O_WRONLY | O_APPEND);
        if (!options.folder.empty() && ::chdir(options.folder.c_str()) != 0) ::_exit(126);
        if (options.user != 0 && ::geteuid() == 0) {
            if (::setgid(options.user) != 0 || ::setuid(options.user) != 0) ::_exit(126);
        }
        // A leak checker needs /proc, which a confined process has not.
        ::setenv("LSAN_OPTIONS", "detect_leaks=0", 1);
        ::execv(arguments[0], arguments.data());
        ::_exit(127);
    }
}

Program::~Program() {
    if (!m_ended) {
        signal(SIGTERM);
        if (finish().exitCode == -1) {
            signal(SIGKILL);
            finish();
        }
    }
    ::unlink(m_outFile.c_str());
    ::unlink(m_errFile.c_str());
}

void Program::signal(int number) const {
    if (!m_ended) ::kill(m_pid, number);
}

Outcome Program::finish() {
    const bool ended =
        m_ended || waitFor([this] { return ::waitpid(m_pid, &m_status, WNOHANG) == m_pid; });
    m_ended = ended;
    Outcome outcome{-1, readFile(m_outFile), error()};
    if (ended) {
        outcome.exitCode = WIFEXITED(m_status) ? WEXITSTATUS(m_status) : 128 + WTERMSIG(m_status);
    }
    return outcome;
}

bool Program::waitForError(const std::string& text) {
    return waitFor([&] { return error().find(text) != std::string::npos; });
}

std::string Program::error() const {
    return readFile(m_errFile);
}
