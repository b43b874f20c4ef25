// OpenSSH's sftp-server over a socket pair, and a client of version 3 of its protocol that keeps as
// many requests in flight as it is told to.
#pragma once

#include <sys/types.h>

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

class SftpServer {
public:
    // The largest read that the server answers whole, and the largest write that it takes.
    static constexpr std::size_t kMaxTransfer = 256000;

    SftpServer();
    ~SftpServer();
    SftpServer(const SftpServer&) = delete;
    SftpServer& operator=(const SftpServer&) = delete;

    static bool isInstalled();

    std::string openFile(const std::string& path, bool forWriting);
    std::string openFolder(const std::string& path);
    void close(const std::string& handle);

    // One request each; answered in order.
    void sendLstat(const std::string& path);
    void sendRead(const std::string& handle, std::uint64_t offset, std::size_t count);
    void sendWrite(const std::string& handle, std::uint64_t offset, std::string_view data);

    // Takes one reply and checks its kind. Bytes of data, or 0.
    std::size_t receiveAttributes();
    std::size_t receiveData();
    void receiveOk();

    // Entries of one reply, 0 at the end of the folder.
    std::size_t readFolder(const std::string& handle);

private:
    void send(std::uint8_t type, std::string_view body);
    std::uint8_t receive();  // the reply's type; what stands behind it is m_body
    void fill(std::size_t size);
    std::string receiveHandle();

    int m_socket = -1;
    pid_t m_process = -1;
    std::uint32_t m_nextId = 0;
    std::vector<char> m_input;  // bytes from m_begin to m_end are not yet taken
    std::size_t m_begin = 0;
    std::size_t m_end = 0;
    std::string_view m_body;  // valid until the next receive()
    std::string m_request;
};
