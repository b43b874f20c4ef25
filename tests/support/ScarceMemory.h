// Lets this process map a little more memory while it lives, and no large piece: a sanitizer needs
// some for itself at any time. Without effect on a system that does not bound a program's memory.
#pragma once

#include <sys/resource.h>
#include <unistd.h>

#include <fstream>

class ScarceMemory {
public:
    ScarceMemory() {
        getrlimit(RLIMIT_AS, &m_before);
        rlimit scarce = m_before;
        scarce.rlim_cur = mapped() + kSpare;
        setrlimit(RLIMIT_AS, &scarce);
    }
    ~ScarceMemory() { setrlimit(RLIMIT_AS, &m_before); }
    ScarceMemory(const ScarceMemory&) = delete;
    ScarceMemory& operator=(const ScarceMemory&) = delete;

private:
    static constexpr rlim_t kSpare = rlim_t{16} << 20U;

    static rlim_t mapped() {
        rlim_t pages = 0;
        std::ifstream("/proc/self/statm") >> pages;
        return pages * static_cast<rlim_t>(::sysconf(_SC_PAGESIZE));
    }

    rlimit m_before{};
};
