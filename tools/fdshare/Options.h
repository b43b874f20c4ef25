// The command line of fdshare.
#pragma once

#include <optional>
#include <string>
#include <vector>

struct Options {
    std::string listen;  // "unix:PATH" or "tcp:PORT"; empty with --stdio
    bool stdio = false;
    std::vector<std::string> folders;      // shared as drives of their own
    std::vector<std::string> rootFolders;  // shared as parts of the file tree
    bool readOnly = false;
    bool sandbox = true;
    int verbosity = 0;
};

inline constexpr int kExitFailure = 1;
inline constexpr int kExitUsage = 2;

// Nothing if there is nothing to run: `exitCode` is then the process's.
std::optional<Options> parseOptions(int argc, char** argv, int& exitCode);
