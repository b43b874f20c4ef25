// To run fdshare where namespaces are forbidden, so that path rules confine it.
#pragma once

#include <string>

// In front of a command, for a shell.
inline const std::string kWithoutNamespaces =
    "/usr/bin/unshare -Ur /bin/sh -c 'echo 0 > /proc/sys/user/max_user_namespaces && "
    "echo 0 > /proc/sys/user/max_mnt_namespaces && exec \"$@\"' sh";

// Whether it wrote that this machine has no namespaces to forbid them in, or no path rules.
inline bool lacksMeansOfConfinement(const std::string& written) {
    const auto tells = [&](const char* text) { return written.find(text) != std::string::npos; };
    return written.starts_with("unshare: ") || tells("/usr/bin/unshare") ||
           tells("/proc/sys/user/max_") || tells("Landlock: not available");
}
