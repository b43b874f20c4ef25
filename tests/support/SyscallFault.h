// Lets chosen system calls of one thread fail, for failures that no file system can be made to
// show.
#pragma once

#include <cstdint>
#include <functional>
#include <vector>

struct SyscallFault {
    enum class Call { Open, Sleep, Mkdir, Close };

    Call call;
    int error;  // the errno that it fails with
    // The call fails only if the bits of `mask` in its flags equal `value`. Open alone has flags.
    std::uint32_t mask = 0;
    std::uint32_t value = 0;
};

// Why a test is skipped then.
constexpr char kNoFaults[] = "this machine does not let a thread filter its system calls";

// Runs `body` on a thread of its own. False, without running it, where the machine forbids this.
bool runWithFaults(const std::vector<SyscallFault>& faults, const std::function<void()>& body);
