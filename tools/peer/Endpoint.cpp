#include "peer/Endpoint.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstring>
#include <system_error>
#include <thread>

namespace peer {

namespace {

constexpr std::string_view kUnix = "unix:";
constexpr std::string_view kExec = "exec:";

[[noreturn]] void fail(const std::string& name, const std::string& what, int error = 0) {
    throw ChannelError(name + ": " + what +
                       (error == 0 ? "" : ": " + std::generic_category().message(error)));
}

void closeOnExec(int fd) {
    ::fcntl(fd, F_SETFD, FD_CLOEXEC);
}

FileDescriptor unixSocket(const std::string& name) {
    FileDescriptor fd(::socket(AF_UNIX, SOCK_STREAM, 0));
    if (!fd) fail(name, "cannot make a socket", errno);
    closeOnExec(fd.get());
    return fd;
}

sockaddr_un addressOf(const std::string& name, const std::string& path) {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    if (path.size() >= sizeof address.sun_path) {
        fail(name, "the path of a socket has at most " +
                       std::to_string(sizeof address.sun_path - 1) + " bytes");
    }
    std::memcpy(address.sun_path, path.data(), path.size());
    return address;
}

// A message of a megabyte should not need ten wake-ups. The system may give less.
void enlargeBuffers(int fd) {
    const int size = 4 << 20;
    ::setsockopt(fd, SOL_SOCKET, SO_SNDBUF, &size, sizeof size);
    ::setsockopt(fd, SOL_SOCKET, SO_RCVBUF, &size, sizeof size);
}

Connection connectUnix(const std::string& name, const std::string& path) {
    struct stat info {};
    if (::stat(path.c_str(), &info) != 0) fail(name, "cannot connect", errno);
    if (!S_ISSOCK(info.st_mode)) fail(name, "is not a socket");

    FileDescriptor fd = unixSocket(name);
    const sockaddr_un address = addressOf(name, path);
    while (::connect(fd.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0) {
        if (errno == EISCONN) break;
        if (errno != EINTR) fail(name, "cannot connect", errno);
    }
    enlargeBuffers(fd.get());
    Connection connection;
    connection.channel = std::make_unique<Channel>(std::move(fd), name);
    return connection;
}

Connection startCommand(const std::string& name, const std::string& command) {
    int ends[2];
    if (::socketpair(AF_UNIX, SOCK_STREAM, 0, ends) != 0) fail(name, "cannot start", errno);
    FileDescriptor ours(ends[0]), theirs(ends[1]);
    closeOnExec(ends[0]);
    closeOnExec(ends[1]);
    enlargeBuffers(ends[0]);
    enlargeBuffers(ends[1]);

    const pid_t pid = ::fork();
    if (pid < 0) fail(name, "cannot start", errno);
    if (pid == 0) {
        ::dup2(theirs.get(), STDIN_FILENO);
        ::dup2(theirs.get(), STDOUT_FILENO);
        ::signal(SIGPIPE, SIG_DFL);
        ::execl("/bin/sh", "sh", "-c", command.c_str(), static_cast<char*>(nullptr));
        ::_exit(127);
    }
    Connection connection;
    connection.child = std::make_unique<Child>(pid);
    connection.channel = std::make_unique<Channel>(std::move(ours), name);
    return connection;
}

}  // namespace

Child::~Child() {
    if (waitedFor(2000)) return;
    ::kill(m_pid, SIGTERM);
    if (waitedFor(2000)) return;
    ::kill(m_pid, SIGKILL);
    waitedFor(2000);
}

bool Child::waitedFor(int milliseconds) {
    for (int waited = 0; !m_ended; waited += 5) {
        const pid_t ended = ::waitpid(m_pid, &m_status, WNOHANG);
        if (ended == m_pid || (ended < 0 && errno == ECHILD)) m_ended = true;
        if (m_ended || waited >= milliseconds) break;
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
    return m_ended;
}

std::string Child::ending() {
    if (!waitedFor(500)) return {};
    if (WIFSIGNALED(m_status))
        return "the command ended by signal " + std::to_string(WTERMSIG(m_status));
    return "the command ended with status " + std::to_string(WEXITSTATUS(m_status));
}

bool isEndpoint(const std::string& text) {
    return (text.starts_with(kUnix) && text.size() > kUnix.size()) ||
           (text.starts_with(kExec) && text.size() > kExec.size());
}

Connection connectTo(const std::string& endpoint) {
    if (!isEndpoint(endpoint)) {
        throw std::invalid_argument(endpoint + ": is neither unix:PATH nor exec:COMMAND");
    }
    if (endpoint.starts_with(kUnix)) return connectUnix(endpoint, endpoint.substr(kUnix.size()));
    return startCommand(endpoint, endpoint.substr(kExec.size()));
}

Listener::Listener(const std::string& endpoint) : m_name(endpoint) {
    if (!endpoint.starts_with(kUnix) || endpoint.size() == kUnix.size()) {
        throw std::invalid_argument(endpoint + ": is not unix:PATH");
    }
    const std::string path = endpoint.substr(kUnix.size());
    const std::size_t slash = path.rfind('/');
    const std::string folder = slash == std::string::npos ? "." : path.substr(0, slash + 1);
    const std::string file = slash == std::string::npos ? path : path.substr(slash + 1);

    // A socket that nobody listens on any more is the remains of a process that was killed.
    struct stat info {};
    if (::lstat(path.c_str(), &info) == 0) {
        if (!S_ISSOCK(info.st_mode)) fail(m_name, "exists and is not a socket");
        const FileDescriptor probe = unixSocket(m_name);
        const sockaddr_un address = addressOf(m_name, path);
        if (::connect(probe.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) ==
            0) {
            fail(m_name, "somebody listens there already");
        }
        ::unlink(path.c_str());
    }

    m_folder.reset(::open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (!m_folder) fail(m_name, "cannot open its folder", errno);
    m_socket = unixSocket(m_name);
    const sockaddr_un address = addressOf(m_name, path);

    // No connection can come before listen(), so the file is private when the first may.
    if (::bind(m_socket.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0) {
        fail(m_name, "cannot make the socket", errno);
    }
    m_file = file;
    if (::chmod(path.c_str(), S_IRUSR | S_IWUSR) != 0 || ::listen(m_socket.get(), 8) != 0) {
        const int error = errno;
        ::unlink(path.c_str());
        fail(m_name, "cannot listen", error);
    }
    ::fcntl(m_socket.get(), F_SETFL, O_NONBLOCK);
}

Listener::~Listener() {
    if (!m_file.empty()) ::unlinkat(m_folder.get(), m_file.c_str(), 0);
}

std::unique_ptr<Channel> Listener::accept(const WakePipe& wake) {
    while (true) {
        pollfd both[2] = {{m_socket.get(), POLLIN, 0}, {wake.readEnd(), POLLIN, 0}};
        if (::poll(both, 2, -1) < 0 && errno != EINTR) fail(m_name, "cannot wait", errno);
        if (both[1].revents != 0) return nullptr;
        if (both[0].revents == 0) continue;

        FileDescriptor fd(::accept(m_socket.get(), nullptr, nullptr));
        if (fd) {
            closeOnExec(fd.get());
            enlargeBuffers(fd.get());
            return std::make_unique<Channel>(std::move(fd), m_name);
        }
        if (errno != EAGAIN && errno != EWOULDBLOCK && errno != EINTR && errno != ECONNABORTED) {
            fail(m_name, "cannot take a connection", errno);
        }
    }
}

}  // namespace peer
