// The exported object: wiring and nothing else. The host's thread runs all of it but the switch of
// dialect, which the policy command calls on the processing thread.
#include "ZFdClientMgr.h"

#include <atomic>
#include <deque>
#include <new>
#include <utility>

#include "ZBoundsChecked.h"
#include "common/Comm/FdLog.h"
#include "common/Comm/WireNumbers.h"
#include "common/LinuxServer/FdLinuxDesktopClient.h"
#include "common/Map/FdCommand.h"
#include "common/Map/MapManager.h"
#include "common/Policy/FdClientPolicy.h"
#include "common/Thread/ControlThread.h"
#include "common/Thread/FdMsgProcThread.h"
#include "common/Thread/FdOperateMsgdeque.h"

namespace {

constexpr std::uint32_t kHandshakeVersion = 61;
constexpr char kHandshakeText[] = {'w', 'g', 'q'};
constexpr int kHandshakeSize = kHeaderSize + static_cast<int>(sizeof(kHandshakeText));

using LinuxClientRef = std::shared_ptr<FdLinuxDesktopClient>;

}  // namespace

// No lock and no state word: which phase this is follows from the pointers that are set. All
// memory is shared with the threads that use it, so a thread that did not stop in time may go on
// after Stop, Release and the destructor.
struct ZFdClientMgr::Wiring {
    void switchToLinuxDesktop(const ChannelWriteFn& write,
                              const std::shared_ptr<FdClientPolicy>& policy);

    std::shared_ptr<MapManager> m_mapManager;
    std::shared_ptr<ControlThread> m_controlThread;
    std::shared_ptr<FdMsgProcThread> m_msgProcThread;
    std::shared_ptr<FdOperateMsgdeque> m_msgQueue;
    ChannelWriteFn m_channelWrite;
    MetricReportFn m_metricReport;
    std::shared_ptr<FdClientPolicy> m_policy;

    // One reference of its own, made by the switch and deleted by Stop. Kept: published before the
    // client is configured, so messages may reach it early; it drops them.
    std::atomic<const LinuxClientRef*> m_linuxClient{nullptr};

    // The last of all that were set: the switch may be reading it.
    std::atomic<const ZListener*> m_listener{nullptr};
    std::deque<ZListener> m_listeners{ZListener{}};

    std::atomic<bool> m_isLinuxDesktop{false};
};

void ZFdClientMgr::Wiring::switchToLinuxDesktop(const ChannelWriteFn& write,
                                                const std::shared_ptr<FdClientPolicy>& policy) {
    m_isLinuxDesktop = true;
    if (m_linuxClient.load() != nullptr) return;

    const auto client = std::make_shared<FdLinuxDesktopClient>(*m_listener.load());
    auto published = std::make_unique<const LinuxClientRef>(client);
    const LinuxClientRef* none = nullptr;
    if (!m_linuxClient.compare_exchange_strong(none, published.get())) return;
    const LinuxClientRef* mine = published.release();  // Stop's, from here on

    // A worker that StopWork gave up on still has its callable, and with it the policy it reads.
    client->SetChannelWrite([write, policy](char* data, int size) { return write(data, size); });
    client->SetClientPolicy(policy.get());
    client->StartWork();
    if (m_linuxClient.load() != mine) client->StopWork();  // Stop was faster than the start
}

ZFdClientMgr::ZFdClientMgr() : m_wiring(std::make_shared<Wiring>()) {
    m_wiring->m_listener = &m_wiring->m_listeners.back();
    FD_LOG_DEBUG("ZFdClientMgr()");
}

ZFdClientMgr::~ZFdClientMgr() = default;

bool ZFdClientMgr::Init(ChannelWriteFn write, MetricReportFn metric) {
    const bool complete = write != nullptr && metric != nullptr;
    m_wiring->m_msgQueue = std::make_shared<FdOperateMsgdeque>();
    m_wiring->m_policy = std::make_shared<FdClientPolicy>();
    m_wiring->m_channelWrite = std::move(write);
    m_wiring->m_metricReport = std::move(metric);
    return complete;
}

void ZFdClientMgr::SetListener(const ZListener& listener) {
    m_wiring->m_listeners.push_back(listener);
    m_wiring->m_listener = &m_wiring->m_listeners.back();
}

bool ZFdClientMgr::Start() {
    Wiring& wiring = *m_wiring;
    // Started before Init, the service idles on a policy of its own.
    const auto policy =
        wiring.m_policy != nullptr ? wiring.m_policy : std::make_shared<FdClientPolicy>();

    wiring.m_mapManager = std::make_shared<MapManager>(policy.get(), *wiring.m_listener.load());
    wiring.m_mapManager->initNet(wiring.m_channelWrite, wiring.m_metricReport);
    wiring.m_mapManager->setOnLinuxDesktop(
        [weakWiring = std::weak_ptr(m_wiring), write = wiring.m_channelWrite, policy] {
            if (const auto alive = weakWiring.lock()) {
                alive->switchToLinuxDesktop(write, policy);
            }
        });

    wiring.m_controlThread = std::make_shared<ControlThread>(policy.get());
    wiring.m_controlThread->keepAlive(policy);
    wiring.m_controlThread->keepAlive(wiring.m_mapManager);
    wiring.m_controlThread->setMapManager(wiring.m_mapManager.get());
    wiring.m_controlThread->start();

    wiring.m_msgProcThread = std::make_shared<FdMsgProcThread>();
    wiring.m_msgProcThread->keepAlive(policy);
    wiring.m_msgProcThread->keepAlive(wiring.m_mapManager);
    wiring.m_msgProcThread->keepAlive(wiring.m_msgQueue);
    wiring.m_msgProcThread->setMapManager(wiring.m_mapManager.get());
    wiring.m_msgProcThread->setFdMsgQueue(wiring.m_msgQueue.get());
    wiring.m_msgProcThread->start();
    return true;
}

bool ZFdClientMgr::SendHandShake() {
    char buffer[kHandshakeSize] = {};
    storeLe<std::uint16_t>(buffer + kTypeAt, FD_CMD_HANDSHAKE);
    storeLe<std::uint32_t>(buffer + kParamAt, kHandshakeVersion);
    storeLe<std::uint32_t>(buffer + kSizeAt, sizeof(kHandshakeText));
    if (const int err = memcpy_s(buffer + kHeaderSize, sizeof(kHandshakeText), kHandshakeText,
                                 sizeof(kHandshakeText));
        err != 0) {
        FD_LOG_ERROR("memcpy_s failed, err = %d", err);
        return false;
    }

    m_wiring->m_channelWrite(buffer, kHandshakeSize);
    FD_LOG_INFO("connect to server success[0x500e0000]");  // Kept: whatever the write returned
    return true;
}

bool ZFdClientMgr::PutMsg(char* data, int dataSize) {
    if (const LinuxClientRef* client = m_wiring->m_linuxClient.load(); client != nullptr) {
        (*client)->PutMsg(data, dataSize);
        return true;
    }
    if (data == nullptr || dataSize == 0) {
        FD_LOG_ERROR("data == NULL || dataSize == 0");
        return false;
    }

    if (dataSize < 0) throw std::bad_array_new_length();  // as an allocation of that size would
    const auto size = static_cast<std::size_t>(dataSize);
    FdOperateMsgPtr msg(new FdOperateMsg{});
    msg->data = new char[size];
    if (const int err = memcpy_s(msg->data, size, data, size); err != 0) {
        FD_LOG_ERROR("memcpy_s failed, err = %d", err);
        return false;
    }
    msg->dataSize = dataSize;

    if (m_wiring->m_msgQueue == nullptr) {
        FD_LOG_ERROR("m_msgQueue == NULL");
        return false;
    }
    m_wiring->m_msgQueue->push_back_recv_msg(msg.release());
    return true;
}

bool ZFdClientMgr::Stop() {
    Wiring& wiring = *m_wiring;
    if (wiring.m_controlThread != nullptr) {
        if (!wiring.m_controlThread->stopAndWait(ZThread::kStopSteps))
            FD_LOG_ERROR("ControlThread stop error");
        wiring.m_controlThread.reset();
    }
    if (wiring.m_msgProcThread != nullptr) {
        if (!wiring.m_msgProcThread->stopAndWait(ZThread::kStopSteps))
            FD_LOG_ERROR("FdMsgProcThread stop error");
        wiring.m_msgProcThread.reset();
    }
    wiring.m_mapManager.reset();
    if (const std::unique_ptr<const LinuxClientRef> client(wiring.m_linuxClient.exchange(nullptr));
        client != nullptr) {
        (*client)->StopWork();
    }
    return true;
}

void ZFdClientMgr::Release() {
    m_wiring->m_msgQueue.reset();
    m_wiring->m_policy.reset();
}
