// Threads, locks and sleeps over POSIX threads. A thread is never cancelled: stopping it clears its
// run flag and polls, for a bounded time, the exit flag that its run() sets as its last act.
#pragma once

#include <pthread.h>

#include <atomic>
#include <cstdint>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "common/Comm/ZThreadAnnotations.h"

class Z_CAPABILITY("mutex") ZMutex {
public:
    explicit ZMutex(bool recursive);
    virtual ~ZMutex();
    ZMutex(const ZMutex&) = delete;
    ZMutex& operator=(const ZMutex&) = delete;

    int lock() Z_ACQUIRE();
    int unlock() Z_RELEASE();
    pthread_mutex_t* get() { return &m_mutex; }

private:
    pthread_mutex_t m_mutex;
};

class Z_SCOPED_CAPABILITY ZMutexLocker {
public:
    explicit ZMutexLocker(ZMutex& mutex) Z_ACQUIRE(mutex) : m_mutex(mutex) { m_mutex.lock(); }
    ~ZMutexLocker() Z_RELEASE() { m_mutex.unlock(); }
    ZMutexLocker(const ZMutexLocker&) = delete;
    ZMutexLocker& operator=(const ZMutexLocker&) = delete;

private:
    ZMutex& m_mutex;
};

class ZWaitCondition {
public:
    ZWaitCondition();
    virtual ~ZWaitCondition();
    ZWaitCondition(const ZWaitCondition&) = delete;
    ZWaitCondition& operator=(const ZWaitCondition&) = delete;

    int wakeOne();
    int wakeAll();
    int wait(ZMutex& m) Z_REQUIRES(m);

    // True if woken, false after `ms` milliseconds of wall-clock time or on an error.
    bool wait(ZMutex& m, int ms) Z_REQUIRES(m);

private:
    pthread_cond_t m_cond;
};

class ZSemaphore {
public:
    explicit ZSemaphore(int n);
    virtual ~ZSemaphore();
    ZSemaphore(const ZSemaphore&) = delete;
    ZSemaphore& operator=(const ZSemaphore&) = delete;

    // Blocks until the count reaches `n`. Also returns, without subtracting, when the semaphore is
    // being destroyed; the caller cannot tell the two apart.
    void acquire(int n);
    bool tryAcquire(int n);
    void release(int n);
    int available() const { return m_count; }

private:
    ZMutex m_mutex{false};
    ZWaitCondition m_cond;
    std::atomic<int> m_count;
    std::atomic<std::uint8_t> m_stopFlag{0};
    std::atomic<std::uint8_t> m_waitFlag{0};
};

// Sleeps `ms` milliseconds and goes on sleeping after a signal.
void ZSleeps(int ms);

// A thread object. One owner calls start() and stopAndWait() and lets it go. An owner that holds it
// by std::shared_ptr may let go while run() is still busy: the object then lives until run() has
// returned. Whatever run() uses has to live as long, see keepAlive().
class ZThread : public std::enable_shared_from_this<ZThread> {
public:
    explicit ZThread(const char* name);
    virtual ~ZThread();
    ZThread(const ZThread&) = delete;
    ZThread& operator=(const ZThread&) = delete;

    void start();

    // The patience of most owners: 10 seconds.
    static constexpr int kStopSteps = 100;

    // Clears the run flag and waits for the exit flag, at most `waitSteps` steps of 100 ms. True at
    // once for a thread that does not run.
    bool stopAndWait(int waitSteps);

    bool wait();
    bool detach();

    // Kept until run() has returned and the object is gone. Called before start().
    template <typename T>
    void keepAlive(std::shared_ptr<T> used) {
        m_keptAlive.emplace_back(std::move(used));
    }

    static void msleep(unsigned long ms);
    static void usleep(unsigned long us);
    static void sleep(unsigned long s);
    static int currentThreadId();

protected:
    virtual void run() = 0;

    std::atomic<std::uint8_t> m_running{0};
    std::atomic<std::uint8_t> m_exit_flag{1};

private:
    static void* thread_proxy_func(void* arg);

    pthread_t m_threadId{};
    std::string m_threadName;
    bool m_joinable = false;          // the handle is neither joined nor detached yet
    std::shared_ptr<ZThread> m_self;  // handed over to the running thread by start()
    std::vector<std::shared_ptr<void>> m_keptAlive;  // set before start(), let go with the object
};
