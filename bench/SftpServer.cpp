#include "SftpServer.h"

#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstring>
#include <stdexcept>

namespace {
constexpr const char* kProgram = "/usr/lib/openssh/sftp-server";

enum PacketType : std::uint8_t {
    kInit = 1,
    kVersion = 2,
    kOpen = 3,
    kClose = 4,
    kRead = 5,
    kWrite = 6,
    kLstat = 7,
    kOpendir = 11,
    kReaddir = 12,
    kStatus = 101,
    kHandle = 102,
    kData = 103,
    kName = 104,
    kAttrs = 105,
};

constexpr std::uint32_t kOpenRead = 1;
constexpr std::uint32_t kOpenWrite = 2;
constexpr std::size_t kLengthSize = 4;
constexpr std::size_t kBodyAt = 5;  // behind type and id
constexpr std::size_t kInputSize = std::size_t{512} << 10;

template <typename T>
void appendBe(std::string& to, T value) {
    for (int shift = static_cast<int>(sizeof(T)) * 8 - 8; shift >= 0; shift -= 8) {
        to += static_cast<char>(static_cast<unsigned char>(value >> shift));
    }
}

void appendText(std::string& to, std::string_view text) {
    appendBe(to, static_cast<std::uint32_t>(text.size()));
    to += text;
}

std::uint32_t loadBe(const char* from) {
    std::uint32_t value = 0;
    for (int i = 0; i < 4; ++i) value = value << 8 | static_cast<unsigned char>(from[i]);
    return value;
}

void writeAll(int fd, std::string_view data) {
    while (!data.empty()) {
        const ssize_t written = write(fd, data.data(), data.size());
        if (written < 0 && errno == EINTR) continue;
        if (written <= 0) throw std::runtime_error("sftp-server took no more data");
        data.remove_prefix(static_cast<std::size_t>(written));
    }
}

[[noreturn]] void runServer(int socket) {
    dup2(socket, STDIN_FILENO);
    dup2(socket, STDOUT_FILENO);
    execl(kProgram, kProgram, static_cast<char*>(nullptr));
    _exit(127);
}
}  // namespace

bool SftpServer::isInstalled() {
    return access(kProgram, X_OK) == 0;
}

SftpServer::SftpServer() : m_input(kInputSize) {
    std::array<int, 2> pair{};
    if (socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, pair.data()) != 0) {
        throw std::runtime_error("no socket pair");
    }
    m_process = fork();
    if (m_process == 0) runServer(pair[1]);
    ::close(pair[1]);
    m_socket = pair[0];
    if (m_process < 0) throw std::runtime_error("cannot start sftp-server");

    std::string hello;
    appendBe(hello, std::uint32_t{5});
    hello += static_cast<char>(kInit);
    appendBe(hello, std::uint32_t{3});
    writeAll(m_socket, hello);
    if (receive() != kVersion) throw std::runtime_error("sftp-server gave no version");
}

SftpServer::~SftpServer() {
    ::close(m_socket);  // the server ends when its input does
    waitpid(m_process, nullptr, 0);
}

void SftpServer::send(std::uint8_t type, std::string_view body) {
    m_request.clear();
    appendBe(m_request, static_cast<std::uint32_t>(body.size() + kBodyAt));
    m_request += static_cast<char>(type);
    appendBe(m_request, m_nextId++);
    m_request += body;
    writeAll(m_socket, m_request);
}

// Has `size` bytes in the buffer from m_begin on.
void SftpServer::fill(std::size_t size) {
    if (m_begin + size > m_input.size()) {
        std::memmove(m_input.data(), m_input.data() + m_begin, m_end - m_begin);
        m_end -= m_begin;
        m_begin = 0;
        if (size > m_input.size()) m_input.resize(size);
    }
    while (m_end - m_begin < size) {
        const ssize_t got = read(m_socket, m_input.data() + m_end, m_input.size() - m_end);
        if (got < 0 && errno == EINTR) continue;
        if (got <= 0) throw std::runtime_error("sftp-server hung up");
        m_end += static_cast<std::size_t>(got);
    }
}

std::uint8_t SftpServer::receive() {
    fill(kLengthSize);
    const std::size_t size = loadBe(m_input.data() + m_begin);
    if (size < kBodyAt) throw std::runtime_error("short reply of sftp-server");
    fill(kLengthSize + size);
    const char* packet = m_input.data() + m_begin + kLengthSize;
    m_body = {packet + kBodyAt, size - kBodyAt};
    m_begin += kLengthSize + size;
    return static_cast<std::uint8_t>(packet[0]);
}

std::string SftpServer::receiveHandle() {
    if (receive() != kHandle) throw std::runtime_error("sftp-server gave no handle");
    return std::string(m_body.substr(kLengthSize, loadBe(m_body.data())));
}

std::string SftpServer::openFile(const std::string& path, bool forWriting) {
    std::string body;
    appendText(body, path);
    appendBe(body, forWriting ? kOpenWrite : kOpenRead);
    appendBe(body, std::uint32_t{0});  // no attributes
    send(kOpen, body);
    return receiveHandle();
}

std::string SftpServer::openFolder(const std::string& path) {
    std::string body;
    appendText(body, path);
    send(kOpendir, body);
    return receiveHandle();
}

void SftpServer::close(const std::string& handle) {
    std::string body;
    appendText(body, handle);
    send(kClose, body);
    receiveOk();
}

void SftpServer::sendLstat(const std::string& path) {
    std::string body;
    appendText(body, path);
    send(kLstat, body);
}

void SftpServer::sendRead(const std::string& handle, std::uint64_t offset, std::size_t count) {
    std::string body;
    appendText(body, handle);
    appendBe(body, offset);
    appendBe(body, static_cast<std::uint32_t>(count));
    send(kRead, body);
}

void SftpServer::sendWrite(const std::string& handle, std::uint64_t offset, std::string_view data) {
    std::string body;
    body.reserve(data.size() + 64);
    appendText(body, handle);
    appendBe(body, offset);
    appendText(body, data);
    send(kWrite, body);
}

std::size_t SftpServer::receiveAttributes() {
    if (receive() != kAttrs) throw std::runtime_error("sftp-server gave no attributes");
    return 0;
}

std::size_t SftpServer::receiveData() {
    if (receive() != kData) throw std::runtime_error("sftp-server gave no data");
    return loadBe(m_body.data());
}

void SftpServer::receiveOk() {
    if (receive() != kStatus || loadBe(m_body.data()) != 0) {
        throw std::runtime_error("sftp-server refused a request");
    }
}

std::size_t SftpServer::readFolder(const std::string& handle) {
    std::string body;
    appendText(body, handle);
    send(kReaddir, body);
    return receive() == kName ? loadBe(m_body.data()) : 0;
}
