// Who and what this machine is, and what its wall clock says. Any thread, but the names of users
// come from static data of the C library.
#include "linux/comm/Opreator/FdCommon_linux.h"

#include <pwd.h>
#include <unistd.h>

#include <algorithm>
#include <cassert>
#include <cstring>
#include <string_view>

#include "ZBoundsChecked.h"
#include "common/Comm/FdLog.h"
#include "linux/comm/Opreator/Ticks.h"

namespace {

constexpr std::size_t kComputerNameLength = sizeof(kComputerName) - 1;

std::size_t roomOf(int size) {
    return static_cast<std::size_t>(std::max(size, 0));
}

// The room in front of the last byte, or a size that memcpy_s refuses.
std::size_t limitOf(int size) {
    return roomOf(size - (size > 0 ? 1 : 0));
}

int lengthOf(const char* name, int size) {
    assert(name != nullptr);  // memcpy_s has refused such a one
    return static_cast<int>(strnlen(name, roomOf(size)));
}

bool isShorterThan(std::string_view text, int size) {
    return text.size() < roomOf(size);
}

// The result of memcpy_s.
int replaceName(char* name, int size, std::string_view text) {
    memset_s(name, roomOf(size), 0, roomOf(size));
    return memcpy_s(name, limitOf(size), text.data(), text.size());
}

}  // namespace

int getHostName(char* name, int size) {
    if (name != nullptr && size > 0) {
        if (gethostname(name, static_cast<std::size_t>(size)) == 0) return lengthOf(name, size);
        std::fill_n(name, size, '\0');  // the call may have left a part of a name too long for it
    }

    if (memcpy_s(name, limitOf(size), kComputerName, kComputerNameLength) != 0) {
        FD_LOG_ERROR("memcpy_s failed");
        return -1;
    }
    FD_LOG_WARN("set the name: %s", name);
    return lengthOf(name, size);
}

int getLoginName(char* name, int size) {
    const char* const login = getlogin();
    if (login == nullptr || !isShorterThan(login, size)) return -1;

    if (replaceName(name, size, login) != 0) {
        FD_LOG_ERROR("memcpy_s failed");
        return -1;
    }
    return lengthOf(name, size);
}

int getAccountName(char* name, int size) {
    const passwd* const account = getpwuid(geteuid());
    if (account == nullptr || !isShorterThan(account->pw_name, size)) return -1;

    if (const int err = replaceName(name, size, account->pw_name); err != 0) {
        FD_LOG_ERROR("memcpy_s failed, err = %d", err);
        return -1;
    }
    return lengthOf(name, size);
}

int getComputerName(char* name, int size) {
    if (name == nullptr) return -1;
    strcpy_s(name, roomOf(size), kComputerName);
    return lengthOf(name, size);
}

unsigned int ticksOf(const timeval& time) {
    return static_cast<unsigned int>(time.tv_sec) * 1000U +
           static_cast<unsigned int>(time.tv_usec) / 1000U;
}

double highTicksOf(const timeval& time) {
    return static_cast<double>(time.tv_sec) * 1000.0 + static_cast<double>(time.tv_usec) / 1000.0;
}

unsigned int GetCurrentTick() {
    timeval now{};
    gettimeofday(&now, nullptr);
    return ticksOf(now);
}

double GetCurrentTick_high() {
    timeval now{};
    gettimeofday(&now, nullptr);
    return highTicksOf(now);
}
