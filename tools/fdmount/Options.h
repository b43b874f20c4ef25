// The command line of fdmount.
#pragma once

#include <chrono>
#include <optional>
#include <string>
#include <vector>

#include "peer/Machine.h"

namespace fdmount {

enum class Command { kMount, kDrives, kList, kStat, kGet, kPut, kRemove };

struct Options {
    std::string channel;
    Command command = Command::kDrives;
    std::string mountPoint;                 // kMount
    std::vector<std::string> mountOptions;  // kMount: lists of words
    bool foreground = false;                // kMount
    std::vector<std::string> paths;         // of the command, in the order of its arguments
    bool longForm = false;                  // ls
    bool all = false;                       // ls
    bool removeFolders = false;             // rm
    bool quiet = false;                     // get, put: no progress
    bool trace = false;
    peer::Dialect dialect = peer::Dialect::kLinux;
    std::chrono::milliseconds timeout{30000};
    peer::windows::Policy policy;
};

inline constexpr int kExitFailure = 1;
inline constexpr int kExitUsage = 2;

// Nothing if there is nothing to run: `exitCode` is then the process's.
std::optional<Options> parseOptions(int argc, char** argv, int& exitCode);

}  // namespace fdmount
