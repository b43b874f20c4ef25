// What every command works with: the machine at the other end, and paths of the form DRIVE/path.
#pragma once

#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

#include "fdmount/Options.h"
#include "peer/Endpoint.h"
#include "peer/Machine.h"

namespace fdmount {

// A failure with the name of the thing that it concerns.
class CommandError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

struct RemotePath {
    std::string shown;  // as it was given
    std::shared_ptr<peer::FileSystem> files;
    std::string path;  // on the drive; empty for the drive itself
};

class Client {
public:
    // Connects, and waits for the other side to introduce itself.
    explicit Client(const Options& options);
    ~Client();
    Client(const Client&) = delete;
    Client& operator=(const Client&) = delete;

    peer::Machine& machine() { return *m_machine; }
    const Options& options() const { return m_options; }

    // Stop signals end every wait from here on, as they do from the start.
    void stopOnSignals();

    // Named as a mount names them.
    std::vector<peer::Offer> allDrives();

    // Waits for the drive. Throws CommandError if it is not offered.
    RemotePath resolve(const std::string& name);

private:
    const Options& m_options;
    peer::Connection m_connection;
    std::unique_ptr<peer::Machine> m_machine;
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
