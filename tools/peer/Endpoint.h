// Where a channel leads: "unix:PATH", a socket, "tcp:PORT", a port of this machine's loopback
// address, or "exec:COMMAND", the standard input and output of a command that this process starts.
#pragma once

#include <sys/types.h>

#include <memory>
#include <string>

#include "peer/Channel.h"

namespace peer {

// A command that was started for a channel. Ended with its owner: first by the end of its input,
// then, if it does not go within two seconds, by SIGTERM, and after two more by SIGKILL.
class Child {
public:
    explicit Child(pid_t pid) : m_pid(pid) {}
    ~Child();
    Child(const Child&) = delete;
    Child& operator=(const Child&) = delete;

    // How it ended, in words, if it has ended.
    std::string ending();

private:
    bool waitedFor(int milliseconds);

    pid_t m_pid;
    bool m_ended = false;
    int m_status = 0;
};

struct Connection {
    std::unique_ptr<Child> child;  // outlives the channel: it ends when its input does
    std::unique_ptr<Channel> channel;
};

// Throws std::invalid_argument if the text is no endpoint, ChannelError if nobody is there.
Connection connectTo(const std::string& endpoint);

// Why the text is none of an endpoint that can be connected to, or listened on: empty if it is one.
// Port 0 is one to listen on.
std::string endpointFault(const std::string& text);
std::string listenerFault(const std::string& text);

// A Unix socket that only this user may connect to, or a TCP port that every user of this machine
// may. The socket's file goes with its owner, also if the process has left the file's root since.
class Listener {
public:
    explicit Listener(const std::string& endpoint);
    ~Listener();
    Listener(const Listener&) = delete;
    Listener& operator=(const Listener&) = delete;

    // What to connect to: for port 0 with the port that the system chose.
    const std::string& name() const { return m_name; }

    // The next connection, or null once `wake` is awake.
    std::unique_ptr<Channel> accept(const WakePipe& wake);

private:
    void listenUnix(const std::string& path);

    std::string m_name;
    bool m_isTcp = false;
    std::string m_file;
    FileDescriptor m_folder;
    FileDescriptor m_socket;
};

}  // namespace peer
