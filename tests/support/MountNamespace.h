// Runs the body of a test where it may mount and unmount: in a process of its own, inside a private
// mount namespace, and a user namespace as well if the user is an ordinary one.
#pragma once

#include <functional>
#include <string>

// To be the whole of a test. Starts this program anew for the current test only, in the namespace,
// where the call runs `body` with an empty folder whose mounts nobody else sees and which vanish
// with the process. Fails the test if that process fails, and skips it, with the reason, on a
// machine that forbids namespaces.
void inMountNamespace(const std::function<void(const std::string& folder)>& body);

// Each makes the folder that it mounts on, and throws std::system_error if the call fails.
void mountTmpfs(const std::string& path);
void bindMount(const std::string& source, const std::string& path);
void remountReadOnly(const std::string& path);
void moveMount(const std::string& from, const std::string& to);
void unmount(const std::string& path);
