// Threads, locks and sleeps over POSIX threads.
#include "common/Comm/ZThread.h"

#include <sys/time.h>

#include <cerrno>
#include <ctime>

#include "common/Comm/FdLog.h"

namespace {
constexpr unsigned long kStopStepMs = 100;
constexpr long kNanosecondsPerSecond = 1000000000;
constexpr long kMicrosecondsPerSecond = 1000000;

timespec wallClockIn(long seconds, long microseconds) {
    timeval now{};
    gettimeofday(&now, nullptr);
    const long sum = now.tv_usec + microseconds;
    return {now.tv_sec + seconds + sum / kMicrosecondsPerSecond,
            sum % kMicrosecondsPerSecond * 1000};
}

// One timed wait on a condition that nobody signals. Kept: no loop, so a spurious wake-up ends it.
void waitOnce(long seconds, long microseconds) {
    pthread_mutex_t mutex;
    pthread_cond_t cond;
    pthread_mutex_init(&mutex, nullptr);
    pthread_cond_init(&cond, nullptr);
    const timespec deadline = wallClockIn(seconds, microseconds);
    pthread_mutex_lock(&mutex);
    pthread_cond_timedwait(&cond, &mutex, &deadline);
    pthread_mutex_unlock(&mutex);
    pthread_cond_destroy(&cond);
    pthread_mutex_destroy(&mutex);
}
}  // namespace

ZMutex::ZMutex(bool recursive) : m_mutex() {
    pthread_mutexattr_t attributes;
    pthread_mutexattr_init(&attributes);
    if (recursive) pthread_mutexattr_settype(&attributes, PTHREAD_MUTEX_RECURSIVE);
    if (pthread_mutex_init(&m_mutex, &attributes) != 0) FD_LOG_ERROR("pthread_mutex_init failed");
    pthread_mutexattr_destroy(&attributes);
}

ZMutex::~ZMutex() {
    pthread_mutex_destroy(&m_mutex);
}

int ZMutex::lock() {
    return pthread_mutex_lock(&m_mutex);
}

int ZMutex::unlock() {
    return pthread_mutex_unlock(&m_mutex);
}

ZWaitCondition::ZWaitCondition() : m_cond() {
    pthread_cond_init(&m_cond, nullptr);
}

ZWaitCondition::~ZWaitCondition() {
    pthread_cond_destroy(&m_cond);
}

int ZWaitCondition::wakeOne() {
    return pthread_cond_signal(&m_cond);
}

int ZWaitCondition::wakeAll() {
    return pthread_cond_broadcast(&m_cond);
}

int ZWaitCondition::wait(ZMutex& m) {
    return pthread_cond_wait(&m_cond, m.get());
}

bool ZWaitCondition::wait(ZMutex& m, int ms) {
    timeval now{};
    gettimeofday(&now, nullptr);
    const long long deadlineNs = static_cast<long long>(now.tv_sec) * kNanosecondsPerSecond +
                                 static_cast<long long>(ms) * 1000000 +
                                 static_cast<long long>(now.tv_usec) * 1000;
    timespec deadline{};
    deadline.tv_sec = static_cast<time_t>(deadlineNs / kNanosecondsPerSecond);
    deadline.tv_nsec = static_cast<long>(deadlineNs % kNanosecondsPerSecond);
    return pthread_cond_timedwait(&m_cond, m.get(), &deadline) == 0;
}

ZSemaphore::ZSemaphore(int n) : m_count(n) {}

ZSemaphore::~ZSemaphore() {
    m_stopFlag = 1;
    for (int i = 0; i < 10 && m_waitFlag != 0; ++i) {
        FD_LOG_INFO("CLS:~ZSem:i=%d,stopflag=%d,waitflag=%d waiting", i, m_stopFlag.load(),
                    m_waitFlag.load());
        {
            const ZMutexLocker lock(m_mutex);
            ++m_count;
            m_cond.wakeAll();
        }
        ZSleeps(2);
    }
    const ZMutexLocker lock(m_mutex);  // the last waiter has let go of it
}

void ZSemaphore::acquire(int n) {
    const ZMutexLocker lock(m_mutex);
    while (m_count < n) {
        if (m_stopFlag != 0) return;
        m_waitFlag = 1;
        m_cond.wait(m_mutex);
        m_waitFlag = 0;
    }
    m_count -= n;
}

bool ZSemaphore::tryAcquire(int n) {
    const ZMutexLocker lock(m_mutex);
    if (m_count < n) return false;
    m_count -= n;
    return true;
}

void ZSemaphore::release(int n) {
    const ZMutexLocker lock(m_mutex);
    m_count += n;
    m_cond.wakeAll();
}

void ZSleeps(int ms) {
    timespec remain{};
    remain.tv_sec = ms / 1000;
    remain.tv_nsec = static_cast<long>(ms % 1000) * 1000000;
    while (nanosleep(&remain, &remain) == -1 && errno == EINTR) {
        FD_LOG_ERROR("Sleeping is interupted, remain time is: %ld s + %ld ns\n",
                     static_cast<long>(remain.tv_sec), static_cast<long>(remain.tv_nsec));
    }
}

ZThread::ZThread(const char* name) : m_threadName(name == nullptr ? "unknown" : name) {}

ZThread::~ZThread() {
    if (m_joinable) pthread_detach(m_threadId);  // gives the ended thread's stack back
}

void ZThread::start() {
    if (m_joinable) pthread_detach(m_threadId);
    m_running = 1;
    m_exit_flag = 0;
    m_self = weak_from_this().lock();
    const int status = pthread_create(&m_threadId, nullptr, thread_proxy_func, this);
    m_joinable = status == 0;
    if (status != 0) {
        FD_LOG_ERROR("pthread_create failed(status=%d)", status);
        m_self.reset();
        m_threadId = {};
        m_running = 0;
        m_exit_flag = 1;
    }
}

void* ZThread::thread_proxy_func(void* arg) {
    if (arg == nullptr) return nullptr;
    auto* thread = static_cast<ZThread*>(arg);
    const std::shared_ptr<ZThread> self = std::move(thread->m_self);  // until run() has returned
    FD_LOG_INFO("thread func name: %s", thread->m_threadName.c_str());
    thread->run();
    return nullptr;
}

bool ZThread::stopAndWait(int waitSteps) {
    if (m_running == 0) return true;
    m_running = 0;
    for (int step = 1; m_exit_flag == 0; ++step) {
        FD_LOG_INFO(" wait Stop. waitStepTime: %d", step);
        if (step - 1 >= waitSteps) break;
        msleep(kStopStepMs);
    }
    const int exitFlag = m_exit_flag;
    FD_LOG_INFO(" wait Stop. m_exit_flag: %d", exitFlag);
    if (exitFlag != 0) wait();  // run() is on its last lines: after this nothing of it is left
    return exitFlag != 0;
}

bool ZThread::wait() {
    if (!m_joinable) return true;
    const int status = pthread_join(m_threadId, nullptr);
    m_joinable = status != 0;  // a thread that waited for itself can still be waited for
    if (status != 0) FD_LOG_ERROR("pthread_join failed(status=%d)", status);
    return status == 0;
}

bool ZThread::detach() {
    if (!m_joinable) return true;
    m_joinable = false;
    const int status = pthread_detach(m_threadId);
    if (status != 0) FD_LOG_ERROR("pthread_detach failed(status=%d)", status);
    return status == 0;
}

void ZThread::msleep(unsigned long ms) {
    waitOnce(static_cast<long>(ms / 1000), static_cast<long>(ms % 1000 * 1000));
}

void ZThread::usleep(unsigned long us) {
    waitOnce(static_cast<long>(us / 1000000), static_cast<long>(us % 1000000));
}

void ZThread::sleep(unsigned long s) {
    waitOnce(static_cast<long>(s), 0);
}

int ZThread::currentThreadId() {
    return -1;
}
