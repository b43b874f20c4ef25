#include "support/PrivateRoot.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <cerrno>
#include <system_error>

PrivateRoot::PrivateRoot(const std::string& folder)
    : m_oldRoot(open("/", O_RDONLY | O_DIRECTORY | O_CLOEXEC)),
      m_toWide(iconv_open("UTF-16LE", "UTF-8")),
      m_fromWide(iconv_open("UTF-8", "UTF-16LE")) {
    if (chroot(folder.c_str()) != 0 || chdir("/") != 0) {
        throw std::system_error(errno, std::generic_category(), "chroot " + folder);
    }
}

PrivateRoot::~PrivateRoot() {
    EXPECT_EQ(fchdir(m_oldRoot), 0);
    EXPECT_EQ(chroot("."), 0);
    close(m_oldRoot);
    iconv_close(m_toWide);
    iconv_close(m_fromWide);
}
