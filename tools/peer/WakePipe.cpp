#include "peer/WakePipe.h"

#include <fcntl.h>

#include <cerrno>
#include <system_error>

namespace peer {

WakePipe::WakePipe() {
    int ends[2];
    if (::pipe(ends) != 0) throw std::system_error(errno, std::generic_category(), "pipe");
    m_read.reset(ends[0]);
    m_write.reset(ends[1]);
    for (const int end : ends) {
        ::fcntl(end, F_SETFD, FD_CLOEXEC);
        ::fcntl(end, F_SETFL, O_NONBLOCK);
    }
}

void WakePipe::wake() const {
    const int saved = errno;
    [[maybe_unused]] const auto written =
        ::write(m_write.get(), "", 1);  // full means awake already
    errno = saved;
}

void WakePipe::drain() const {
    char bytes[64];
    while (::read(m_read.get(), bytes, sizeof bytes) > 0) {
    }
}

}  // namespace peer
