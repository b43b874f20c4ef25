// The base of the workers of the Linux dialect.
#include "common/LinuxServer/workthread/FdThread.h"

#include "common/Comm/FdLog.h"
#include "common/LinuxServer/comm/fd_cmd_queue.h"
#include "common/LinuxServer/workthread/FdContext.h"

namespace {
constexpr int kPollStepMs = 100;
}

FdThread::FdThread(FdContext* context, const char* name)
    : ZThread("FdThread"), m_thread_name(name), m_context(context) {
    if (context != nullptr) keepAlive(context->weak_from_this().lock());
}

void FdThread::askToStop() {
    m_stopAsked = true;
    m_run_flag = false;
}

bool FdThread::waitStop(int msecond) {
    FD_LOG_INFO("wait stop, msecond: %d  ...", msecond);
    askToStop();
    const bool exited = pollExit(msecond);
    FD_LOG_INFO("wait stop end,  m_exit_flag: %d, msecond: %d", exited ? 1 : 0, msecond);
    return exited;
}

bool FdThread::pollExit(int& msecond) {
    while (msecond > 0 && !m_exit_flag) {
        msecond -= kPollStepMs;
        const ZMutexLocker lock(m_exitMutex);
        if (!m_exit_flag) m_exited.wait(m_exitMutex, kPollStepMs);
    }
    if (!m_exit_flag) return false;
    wait();  // run() is on its last lines: after this nothing of it is left
    return true;
}

bool FdThread::stopReader(FdCmdQueue& queue, int msecond) {
    // Kept: both texts name another class.
    FD_LOG_INFO("MapCtrlThread wait stop, msecond: %d  ...", msecond);
    askToStop();
    queue.endWaits();
    queue.wake_all();
    const bool exited = pollExit(msecond);
    FD_LOG_INFO("MapCtrlThread wait stop end,  m_exit_flag: %d, msecond: %d", exited ? 1 : 0,
                msecond);
    return exited;
}

int FdThread::waitStatu(int statu, int msecond) {
    FD_LOG_INFO("wait thread statu. statu: %d  ...", statu);
    while (msecond > 0 && m_statu < statu) {
        msecond -= kPollStepMs;
        msleep(kPollStepMs);
    }
    FD_LOG_INFO("wait thread statu,  statu: %d, msecond: %d", m_statu.load(), msecond);
    return m_statu;
}

int FdThread::getThreadStatu() {
    return m_statu;
}

bool FdThread::initRes() {
    FD_LOG_INFO("init res. thread: %s", m_thread_name);
    return true;
}

bool FdThread::freeRes() {
    FD_LOG_INFO("free res. thread: %s", m_thread_name);
    return true;
}

void FdThread::beginRun() {
    m_statu = kStatuStarting;
    m_run_flag = true;
    if (m_stopAsked) m_run_flag = false;  // looked at last: a stop may come at any point of this
    m_exit_flag = false;
    m_statu = kStatuReady;
}

void FdThread::endRun() {
    m_run_flag = false;
    m_statu = kStatuFinished;
    const ZMutexLocker lock(m_exitMutex);
    m_exit_flag = true;
    m_exited.wakeAll();
}
