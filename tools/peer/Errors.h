// What can go wrong between this program and the machine whose drives it uses.
#pragma once

#include <stdexcept>
#include <string>

namespace peer {

// The other side refused an operation.
class RemoteError : public std::runtime_error {
public:
    RemoteError(int error, const std::string& text) : std::runtime_error(text), m_error(error) {}

    // An errno of this system, greater than zero.
    int error() const { return m_error; }

private:
    int m_error;
};

// The session is over, or a request got no answer.
class SessionError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

// One request got no answer in time. The session goes on.
class NoAnswer : public SessionError {
public:
    using SessionError::SessionError;
};

// cancel() ended a wait.
class Cancelled : public SessionError {
public:
    Cancelled() : SessionError("interrupted") {}
};

}  // namespace peer
