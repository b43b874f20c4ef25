// What every command works with: the session, and paths of the form DRIVE/path.
#pragma once

#include <memory>
#include <stdexcept>
#include <string>

#include "fdmount/Options.h"
#include "peer/Endpoint.h"
#include "peer/windows/Session.h"
#include "peer/windows/Status.h"

namespace fdmount {

// A failure with the name of the thing that it concerns.
class CommandError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

struct RemotePath {
    std::string shown;  // as it was given
    std::string drive;
    std::uint8_t map = 0;
    std::string path;  // on the drive; empty for the drive itself
};

class Client {
public:
    // Connects, and waits for the other side to introduce itself.
    explicit Client(const Options& options);
    ~Client();
    Client(const Client&) = delete;
    Client& operator=(const Client&) = delete;

    peer::windows::Session& session() { return *m_session; }
    const Options& options() const { return m_options; }

    std::vector<peer::windows::Drive> allDrives();

    // Waits for the drive. Throws CommandError if it is not offered.
    RemotePath resolve(const std::string& name);

private:
    const Options& m_options;
    peer::Connection m_connection;
    std::unique_ptr<peer::windows::Session> m_session;
};

// Runs `work` and gives its failures the name of the thing.
template <typename Work>
auto about(const std::string& name, Work work) {
    try {
        return work();
    } catch (const peer::RemoteError& error) {
        throw CommandError(name + ": " + error.what());
    } catch (const peer::BadMessage& error) {
        throw CommandError(name + ": " + error.what());
    }
}

}  // namespace fdmount
