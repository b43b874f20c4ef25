// The base of the three workers of the Linux dialect: run flag, exit flag, status, and a stop that
// polls. Made, started, stopped and let go by FdLinuxDesktopClient or FdContext.
#pragma once

#include <atomic>

#include "common/Comm/ZThread.h"

class FdCmdQueue;
class FdContext;

// Values of a worker's status.
enum FdThreadStatu : int {
    kStatuCreated = 0,
    kStatuStarting = 1,
    kStatuReady = 2,
    kStatuWorking = 3,
    kStatuFinished = 5,
};

class FdThread : public ZThread {
public:
    // The context is not owned, but lives until this object has gone.
    FdThread(FdContext* context, const char* name);

    static constexpr int kStopMs = 20000;  // the patience with most of them

    // Clears the run flag and waits at most `msecond` milliseconds for the exit flag, which is the
    // result. 0 or less looks at the flag once.
    virtual bool waitStop(int msecond);

    // Waits until the status is at least `statu`. The status reached.
    virtual int waitStatu(int statu, int msecond);
    virtual int getThreadStatu();

    bool initRes();
    bool freeRes();

protected:
    // What every run() begins and ends with.
    void beginRun();
    void endRun();

    // Clears the run flag, also for a run() that has not begun yet.
    void askToStop();

    // The polling of waitStop.
    bool pollExit(int& msecond);

    // waitStop of a thread whose run() reads from `queue` without a time limit.
    bool stopReader(FdCmdQueue& queue, int msecond);

    const char* m_thread_name;  // not owned
    std::atomic<bool> m_run_flag{false};
    std::atomic<bool> m_exit_flag{false};
    std::atomic<int> m_statu{kStatuCreated};
    FdContext* m_context;

private:
    std::atomic<bool> m_stopAsked{false};  // outlives a stop that came before run() began
    ZMutex m_exitMutex{false};             // for the wait only
    ZWaitCondition m_exited;
};
