// Runs the programs as a user does, and keeps what they write.
#pragma once

#include <sys/types.h>

#include <string>
#include <vector>

struct Outcome {
    int exitCode = -1;  // 128 and above: ended by a signal
    std::string out, err;
};

// A process that is ended with its owner.
class Program {
public:
    struct Options {
        std::string folder = {};  // to run in; empty: this one
        uid_t user = 0;           // to run as, if this process may choose
        std::string in = "/dev/null";
        std::string out = {};  // empty: what Outcome keeps
    };

    Program(const std::vector<std::string>& command, const Options& options);
    ~Program();
    Program(const Program&) = delete;
    Program& operator=(const Program&) = delete;

    pid_t pid() const { return m_pid; }
    void signal(int number) const;

    // Waits for the end, a minute at most, or five under the thread sanitizer.
    Outcome finish();

    // Waits until error() holds `text`, as long.
    bool waitForError(const std::string& text);

    // What it has written to standard error up to now.
    std::string error() const;

private:
    pid_t m_pid = -1;
    bool m_ended = false;
    int m_status = 0;
    std::string m_outFile, m_errFile;
};

inline Outcome run(const std::vector<std::string>& command, const Program::Options& options) {
    return Program(command, options).finish();
}
