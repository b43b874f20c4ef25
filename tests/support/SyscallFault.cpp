#include "support/SyscallFault.h"

#include <linux/filter.h>
#include <linux/seccomp.h>
#include <sys/prctl.h>
#include <sys/syscall.h>

#include <cstddef>
#include <thread>

namespace {

// Every call under which the C library may make it on this machine.
std::vector<long> numbersOf(SyscallFault::Call call) {
    switch (call) {
        case SyscallFault::Call::Open:
            return {SYS_openat};
        case SyscallFault::Call::Sleep:
            return {SYS_nanosleep, SYS_clock_nanosleep};
        case SyscallFault::Call::Mkdir:
#ifdef SYS_mkdir
            return {SYS_mkdir, SYS_mkdirat};
#else
            return {SYS_mkdirat};
#endif
        case SyscallFault::Call::Close:
            return {SYS_close};
    }
    return {};
}

sock_filter load(std::size_t offset) {
    return BPF_STMT(BPF_LD | BPF_W | BPF_ABS, static_cast<std::uint32_t>(offset));
}

std::vector<sock_filter> programOf(const std::vector<SyscallFault>& faults) {
    constexpr std::size_t kOpenFlagsAt = offsetof(seccomp_data, args) + 2 * sizeof(std::uint64_t);
    std::vector<sock_filter> program;
    for (const SyscallFault& fault : faults) {
        for (const long number : numbersOf(fault.call)) {
            program.push_back(load(offsetof(seccomp_data, nr)));
            program.push_back(
                BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, static_cast<std::uint32_t>(number), 0, 4));
            program.push_back(load(kOpenFlagsAt));
            program.push_back(BPF_STMT(BPF_ALU | BPF_AND | BPF_K, fault.mask));
            program.push_back(BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, fault.value, 0, 1));
            program.push_back(BPF_STMT(
                BPF_RET | BPF_K, SECCOMP_RET_ERRNO | static_cast<std::uint32_t>(fault.error)));
        }
    }
    program.push_back(BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ALLOW));
    return program;
}

bool install(const std::vector<SyscallFault>& faults) {
    std::vector<sock_filter> program = programOf(faults);
    const sock_fprog filter{static_cast<unsigned short>(program.size()), program.data()};
    return prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0) == 0 &&
           prctl(PR_SET_SECCOMP, SECCOMP_MODE_FILTER, &filter) == 0;
}

}  // namespace

bool runWithFaults(const std::vector<SyscallFault>& faults, const std::function<void()>& body) {
    bool installed = false;
    std::thread thread([&] {
        installed = install(faults);
        if (installed) body();
    });
    thread.join();
    return installed;
}
