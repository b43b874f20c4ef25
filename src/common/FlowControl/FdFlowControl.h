// The pacing calculator: how long the sender of a block would have to wait to keep to a byte rate,
// with a burst allowance of one time slice. No road calls it yet. It has no lock: it keeps the
// schedule of one sending thread.
#pragma once

#include <cstdint>

class FdFlowControl {
public:
    // Made at first use, by whichever thread comes first, and destroyed when the process exits.
    static FdFlowControl* getInstance();

    virtual ~FdFlowControl() = default;
    FdFlowControl(const FdFlowControl&) = delete;
    FdFlowControl& operator=(const FdFlowControl&) = delete;

    std::int64_t getWaitTime(unsigned size);  // whole milliseconds for a block of `size` bytes
    void waitSendData(unsigned size);         // computes and logs the wait, and does not sleep
    bool setSecSize(unsigned speed);          // bytes a second; 0 switches the pacing off
    bool reset();                             // the schedule and the byte rate, not what was sent

protected:
    FdFlowControl();

    // getWaitTime with the clock at `now`, a time in milliseconds.
    std::int64_t waitTimeAt(double now, unsigned size);

    std::uint64_t m_haveSend = 0;    // nothing adds to it yet
    std::uint32_t m_speed;           // bytes a second
    std::uint32_t m_bufferSize = 0;  // bytes left in the current slice
    double m_timePoint = 0.0;        // when the channel is free, by the schedule
    std::uint32_t m_second = 1000;   // clock units in a second
    std::uint32_t m_split = 1;       // slices in a second

private:
    double waitFor(double now, unsigned size);
};
