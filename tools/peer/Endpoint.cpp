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
#include <thread>

#include "peer/Sockets.h"
#include "peer/TcpPort.h"

namespace peer {

namespace {

constexpr std::string_view kUnix = "unix:";
constexpr std::string_view kTcp = "tcp:";
constexpr std::string_view kExec = "exec:";

std::optional<std::uint16_t> portIn(const std::string& endpoint) {
    return parsePort(std::string_view(endpoint).substr(kTcp.size()));
}

std::string portFault(const std::string& endpoint, int least) {
    const auto port = portIn(endpoint);
    if (port && *port >= least) return {};
    return endpoint + ": is not tcp:PORT with a number from " + std::to_string(least) +
           " to 65535; the address is always 127.0.0.1";
}

sockaddr_un addressOf(const std::string& name, const std::string& path) {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    if (path.size() >= sizeof address.sun_path) {
        failEndpoint(name, "the path of a socket has at most " +
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
    if (::stat(path.c_str(), &info) != 0) failEndpoint(name, "cannot connect", errno);
    if (!S_ISSOCK(info.st_mode)) failEndpoint(name, "is not a socket");

    FileDescriptor fd = streamSocket(name, AF_UNIX);
    const sockaddr_un address = addressOf(name, path);
    while (::connect(fd.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0) {
        if (errno == EISCONN) break;
        if (errno != EINTR) failEndpoint(name, "cannot connect", errno);
    }
    enlargeBuffers(fd.get());
    Connection connection;
    connection.channel = std::make_unique<Channel>(std::move(fd), name);
    return connection;
}

Connection startCommand(const std::string& name, const std::string& command) {
    int ends[2];
    if (::socketpair(AF_UNIX, SOCK_STREAM, 0, ends) != 0) failEndpoint(name, "cannot start", errno);
    FileDescriptor ours(ends[0]), theirs(ends[1]);
    closeOnExec(ends[0]);
    closeOnExec(ends[1]);
    enlargeBuffers(ends[0]);
    enlargeBuffers(ends[1]);

    const pid_t pid = ::fork();
    if (pid < 0) failEndpoint(name, "cannot start", errno);
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

std::string endpointFault(const std::string& text) {
    if (text.starts_with(kTcp)) return portFault(text, 1);
    const bool isNamed = (text.starts_with(kUnix) && text.size() > kUnix.size()) ||
                         (text.starts_with(kExec) && text.size() > kExec.size());
    return isNamed ? "" : text + ": is none of unix:PATH, tcp:PORT and exec:COMMAND";
}

std::string listenerFault(const std::string& text) {
    if (text.starts_with(kTcp)) return portFault(text, 0);
    if (text.starts_with(kUnix) && text.size() > kUnix.size()) return {};
    return text + ": is neither unix:PATH nor tcp:PORT";
}

Connection connectTo(const std::string& endpoint) {
    if (std::string fault = endpointFault(endpoint); !fault.empty()) {
        throw std::invalid_argument(fault);
    }
    if (endpoint.starts_with(kUnix)) return connectUnix(endpoint, endpoint.substr(kUnix.size()));
    if (endpoint.starts_with(kExec)) return startCommand(endpoint, endpoint.substr(kExec.size()));
    Connection connection;
    connection.channel =
        std::make_unique<Channel>(connectToPort(endpoint, *portIn(endpoint)), endpoint);
    return connection;
}

Listener::Listener(const std::string& endpoint) : m_name(endpoint) {
    if (std::string fault = listenerFault(endpoint); !fault.empty()) {
        throw std::invalid_argument(fault);
    }
    m_isTcp = endpoint.starts_with(kTcp);
    if (m_isTcp) {
        m_socket = listenOnPort(m_name, *portIn(endpoint));
        m_name = std::string(kTcp) + std::to_string(portOf(m_socket));
    } else {
        listenUnix(endpoint.substr(kUnix.size()));
    }
    ::fcntl(m_socket.get(), F_SETFL, O_NONBLOCK);
}

void Listener::listenUnix(const std::string& path) {
    const std::size_t slash = path.rfind('/');
    const std::string folder = slash == std::string::npos ? "." : path.substr(0, slash + 1);
    const std::string file = slash == std::string::npos ? path : path.substr(slash + 1);

    // A socket that nobody listens on any more is the remains of a process that was killed.
    struct stat info {};
    if (::lstat(path.c_str(), &info) == 0) {
        if (!S_ISSOCK(info.st_mode)) failEndpoint(m_name, "exists and is not a socket");
        const FileDescriptor probe = streamSocket(m_name, AF_UNIX);
        const sockaddr_un address = addressOf(m_name, path);
        if (::connect(probe.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) ==
            0) {
            failEndpoint(m_name, "somebody listens there already");
        }
        ::unlink(path.c_str());
    }

    m_folder.reset(::open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (!m_folder) failEndpoint(m_name, "cannot open its folder", errno);
    m_socket = streamSocket(m_name, AF_UNIX);
    const sockaddr_un address = addressOf(m_name, path);

    // No connection can come before listen(), so the file is private when the first may.
    if (::bind(m_socket.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0) {
        failEndpoint(m_name, "cannot make the socket", errno);
    }
    m_file = file;
    if (::chmod(path.c_str(), S_IRUSR | S_IWUSR) != 0 || ::listen(m_socket.get(), 8) != 0) {
        const int error = errno;
        ::unlink(path.c_str());
        failEndpoint(m_name, "cannot listen", error);
    }
}

Listener::~Listener() {
    if (!m_file.empty()) ::unlinkat(m_folder.get(), m_file.c_str(), 0);
}

std::unique_ptr<Channel> Listener::accept(const WakePipe& wake) {
    while (true) {
        pollfd both[2] = {{m_socket.get(), POLLIN, 0}, {wake.readEnd(), POLLIN, 0}};
        if (::poll(both, 2, -1) < 0 && errno != EINTR) failEndpoint(m_name, "cannot wait", errno);
        if (both[1].revents != 0) return nullptr;
        if (both[0].revents == 0) continue;

        FileDescriptor fd(::accept(m_socket.get(), nullptr, nullptr));
        if (fd) {
            closeOnExec(fd.get());
            m_isTcp ? sendWithoutDelay(fd.get()) : enlargeBuffers(fd.get());
            return std::make_unique<Channel>(std::move(fd), m_name);
        }
        if (errno != EAGAIN && errno != EWOULDBLOCK && errno != EINTR && errno != ECONNABORTED) {
            failEndpoint(m_name, "cannot take a connection", errno);
        }
    }
}

}  // namespace peer
