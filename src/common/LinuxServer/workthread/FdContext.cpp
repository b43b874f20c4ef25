// The shared object of a Linux-dialect connection: workers, operator threads and UI events. Its
// list of maps stands in FdContextMaps.cpp.
#include "common/LinuxServer/workthread/FdContext.h"

#include <algorithm>
#include <utility>

#include "common/Comm/FdLog.h"
#include "common/LinuxServer/workthread/FdMapInfo.h"
#include "common/LinuxServer/workthread/MapCtrlThread.h"
#include "common/LinuxServer/workthread/OpreatorThread.h"
#include "common/LinuxServer/workthread/SendThread.h"

namespace {
constexpr int kReadyTries = 10;
constexpr int kMaxBusy = 100;
}  // namespace

FdContext::FdContext() {
    FD_LOG_INFO("create FdContext. statu: %d", m_statu);
}

FdContext::~FdContext() {
    FD_LOG_INFO("FdContext is gone. statu: %d", m_statu);
}

bool FdContext::initOprThread(int count) {
    FD_LOG_INFO("init opreator thread.  count: %d", count);
    return true;
}

std::shared_ptr<OpreatorThread> FdContext::getReadyThread() {
    {
        const ZMutexLocker lock(m_ready_thread_mutex);
        if (m_dismissed) return nullptr;
        if (!m_ready_thread_list.empty()) {
            OpreatorThread* thread = m_ready_thread_list.front();
            m_ready_thread_list.pop_front();
            return std::static_pointer_cast<OpreatorThread>(thread->shared_from_this());
        }
    }
    FD_LOG_INFO("create opreator thread. ");
    auto thread = std::make_shared<OpreatorThread>(this);
    thread->start();
    int count = 0;
    {
        const ZMutexLocker lock(m_all_thread_mutex);
        m_all_thread_list.push_back(thread);
        count = static_cast<int>(m_all_thread_list.size());
    }
    FD_LOG_INFO("create opreator thread. orp: %p", static_cast<void*>(thread.get()));
    if (count > m_config.getMaxMapThreadNum()) {
        FD_LOG_WARN("opreator number over limit.  count: %d", count);
    }
    return thread;
}

bool FdContext::addReadyThread(OpreatorThread* thread) {
    const ZMutexLocker lock(m_ready_thread_mutex);
    if (!m_dismissed) m_ready_thread_list.push_back(thread);
    return true;
}

bool FdContext::takeFromReadyList(const OpreatorThread* thread) {
    const ZMutexLocker lock(m_ready_thread_mutex);
    const auto found = std::ranges::find(m_ready_thread_list, thread);
    if (found == m_ready_thread_list.end()) return false;
    m_ready_thread_list.erase(found);
    return true;
}

bool FdContext::freeAllOpreatorThread() {
    FD_LOG_INFO("free all opreator thread.");
    for (int busy = 0; busy < kMaxBusy;) {
        std::shared_ptr<OpreatorThread> thread;
        {
            const ZMutexLocker lock(m_all_thread_mutex);
            if (m_all_thread_list.empty()) return true;
            thread = std::move(m_all_thread_list.front());
            m_all_thread_list.pop_front();
        }
        bool idle = false;
        for (int i = 0; i < kReadyTries && !idle; ++i) idle = takeFromReadyList(thread.get());
        if (idle) {
            thread->waitStop(FdThread::kStopMs);
            continue;
        }
        const ZMutexLocker lock(m_all_thread_mutex);
        m_all_thread_list.push_back(std::move(thread));
        ++busy;
    }
    return false;
}

void FdContext::dismiss() {
    {
        const ZMutexLocker lock(m_ready_thread_mutex);
        m_dismissed = true;
        m_ready_thread_list.clear();
    }
    std::deque<std::shared_ptr<OpreatorThread>> busy;
    {
        const ZMutexLocker lock(m_all_thread_mutex);
        busy = std::exchange(m_all_thread_list, {});
    }
    for (const auto& thread : busy) thread->endAfterRequest();
    setMapCtrlThread(nullptr);
    setSendThread(nullptr);
}

std::shared_ptr<SendThread> FdContext::sendThread() {
    const ZMutexLocker lock(m_worker_mutex);
    return m_send_thread;
}

std::shared_ptr<MapCtrlThread> FdContext::mapCtrlThread() {
    const ZMutexLocker lock(m_worker_mutex);
    return m_map_ctrl_thread;
}

// The thread that is replaced goes after the lock: its destructor logs.
void FdContext::setSendThread(std::shared_ptr<SendThread> thread) {
    const ZMutexLocker lock(m_worker_mutex);
    m_send_thread.swap(thread);
}

void FdContext::setMapCtrlThread(std::shared_ptr<MapCtrlThread> thread) {
    const ZMutexLocker lock(m_worker_mutex);
    m_map_ctrl_thread.swap(thread);
}

void FdContext::initZListener(const ZListener& listener) {
    m_listener = listener;
}

int FdContext::postUiHandleEvent(FDREDIR_UI_MSG msg, const void* data) {
    if (m_no_ui_event) {
        FD_LOG_INFO("No Need send to android");
        return -1;
    }
    if (m_listener.callback == nullptr) return -1;
    return m_listener.callback({msg, m_listener.context, data});
}

std::string FdContext::createUiEventData(const std::string& first, const std::string& second) {
    return second.empty() ? first : first + "|" + second;
}
