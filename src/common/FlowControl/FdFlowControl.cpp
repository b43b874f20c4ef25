// A schedule in virtual time: each block pushes the moment at which the channel is free again into
// the future, by the time that its bytes take at the byte rate.
#include "common/FlowControl/FdFlowControl.h"

#include <algorithm>

#include "common/Comm/FdLog.h"
#include "linux/comm/Opreator/FdCommon_linux.h"

namespace {

constexpr std::uint32_t kDefaultSpeed = 1048576;

// Towards zero. A schedule of ages stays within what the result can hold.
std::int64_t wholeUnits(double wait) {
    constexpr double kLongest = 9.0e18;
    return static_cast<std::int64_t>(std::min(wait, kLongest));
}

}  // namespace

FdFlowControl* FdFlowControl::getInstance() {
    static FdFlowControl instance;
    return &instance;
}

FdFlowControl::FdFlowControl() : m_speed(kDefaultSpeed) {
    FD_LOG_INFO("speed:  %u Byte/s", m_speed);
    FD_LOG_INFO("split:  %u split/s", m_split);
}

std::int64_t FdFlowControl::getWaitTime(unsigned size) {
    return waitTimeAt(GetCurrentTick_high(), size);
}

std::int64_t FdFlowControl::waitTimeAt(double now, unsigned size) {
    if (size == 0 || m_speed == 0) return 0;
    return wholeUnits(waitFor(now, size));
}

double FdFlowControl::waitFor(double now, unsigned size) {
    const std::uint32_t slice = m_speed / m_split;
    const double span = static_cast<double>(size) * m_second / m_speed;
    const double sliceTime = static_cast<double>(m_second) / m_split;

    if (m_timePoint >= now) {  // the channel is busy, or free at this very moment
        const double wait = m_timePoint - now;
        m_bufferSize = slice;
        m_timePoint += span;
        return wait;
    }
    if (now - m_timePoint > sliceTime) {  // idle for a slice: more than that is not saved up
        m_bufferSize = slice;
        m_timePoint = now + span;
        return 0;
    }
    if (m_bufferSize > size) {  // Kept: a block of exactly what is left starts a new slice
        m_bufferSize -= size;
        return 0;
    }
    const double wait = static_cast<double>(size - m_bufferSize) * m_second / m_speed;
    m_bufferSize = slice;
    m_timePoint = now + wait + sliceTime;
    return wait;
}

void FdFlowControl::waitSendData(unsigned size) {
    FD_LOG_INFO("waitCount: %d", static_cast<int>(getWaitTime(size)));
    FD_LOG_INFO("todo");  // Kept: a sender would sleep here
}

bool FdFlowControl::setSecSize(unsigned speed) {
    m_speed = speed;
    FD_LOG_INFO("set speed: %u Byte/s", speed);
    return true;
}

bool FdFlowControl::reset() {
    m_timePoint = 0.0;
    // Kept: not the slice of the calculation, and it wraps. The next block overwrites it.
    m_bufferSize = m_speed * m_second / m_split;
    m_speed = kDefaultSpeed;
    FD_LOG_INFO("haven send: %llu", static_cast<unsigned long long>(m_haveSend));
    FD_LOG_INFO("speed:  %u Byte/s", m_speed);
    FD_LOG_INFO("split:  %u split/s", m_split);
    FD_LOG_INFO("time point : %lf", m_timePoint);
    FD_LOG_INFO("buffer size: %u", m_bufferSize);
    return true;
}
