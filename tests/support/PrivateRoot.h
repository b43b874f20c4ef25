// Makes a folder the root of the file system while it lives, so that fixed paths such as "/dev/lp0"
// or "/net" can be made. For the bodies of inMountNamespace, whose process may do this.
#pragma once

#include <iconv.h>

#include <string>

class PrivateRoot {
public:
    // Throws std::system_error if the system does not allow it.
    explicit PrivateRoot(const std::string& folder);
    ~PrivateRoot();
    PrivateRoot(const PrivateRoot&) = delete;
    PrivateRoot& operator=(const PrivateRoot&) = delete;

private:
    int m_oldRoot;
    // The C library loads encodings from files, which the new root does not have: these keep them.
    iconv_t m_toWide;
    iconv_t m_fromWide;
};
