// This system has no mount namespaces: the tests that need one are skipped here.
#include "support/MountNamespace.h"

#include <gtest/gtest.h>

#include <cstdlib>

void inMountNamespace(const std::function<void(const std::string& folder)>& /*body*/) {
    GTEST_SKIP() << "this system has no mount namespaces";
}

// Without a namespace no body runs, so nobody calls these.
void mountTmpfs(const std::string& /*path*/) {
    std::abort();
}
void bindMount(const std::string& /*source*/, const std::string& /*path*/) {
    std::abort();
}
void remountReadOnly(const std::string& /*path*/) {
    std::abort();
}
void moveMount(const std::string& /*from*/, const std::string& /*to*/) {
    std::abort();
}
void unmount(const std::string& /*path*/) {
    std::abort();
}
