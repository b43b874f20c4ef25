// The front door of the Linux dialect.
#include "common/LinuxServer/FdLinuxDesktopClient.h"

#include <algorithm>
#include <cstdint>
#include <utility>

#include "ZBoundsChecked.h"
#include "common/Comm/FdLog.h"
#include "common/LinuxServer/workthread/FdContext.h"
#include "common/LinuxServer/workthread/FdMapInfo.h"
#include "common/LinuxServer/workthread/MapCtrlThread.h"
#include "common/LinuxServer/workthread/SendThread.h"

namespace {
constexpr int kReadyThreads = 10;
constexpr int kPayloadTries = 10;
constexpr unsigned long kPayloadPauseMs = 50;
constexpr unsigned long kNodePauseMs = 1000;

void logRecordSizes() {
    FD_LOG_INFO("sizeof(fd_msg_item)   :  %d", static_cast<int>(sizeof(fd_msg_item)));
    FD_LOG_INFO("sizeof(fd_stat)       :  %d", static_cast<int>(sizeof(fd_stat)));
    FD_LOG_INFO("sizeof(fd_statvfs)    :  %d", static_cast<int>(sizeof(fd_statvfs)));
    FD_LOG_INFO("sizeof(fd_statfs)     :  %d", static_cast<int>(sizeof(fd_statfs)));
    FD_LOG_INFO("sizeof(fd_file_info)  :  %d", static_cast<int>(sizeof(fd_file_info)));
}

void giveBack(FdContext& context, fd_cmd_item* item) {
    context.m_cmd_cache.put_node(item);
    FD_LOG_WARN("free a item");
}

// Memory for the payload, with some patience. False when there is none.
bool makeRoom(fd_cmd_item* item, int size) {
    if (size <= item->pdatasize) return true;
    for (int i = 0; i < kPayloadTries; ++i) {
        if (ensurePayload(item, size)) {
            // The text prints the size as a pointer.
            const std::intptr_t room = item->pdatasize;
            auto* const shown = reinterpret_cast<void*>(room);  // NOLINT(performance-no-int-to-ptr)
            FD_LOG_INFO("malloc pdata.   pdatasize: %p, extsize: %d", shown, size);
            return true;
        }
        FD_LOG_WARN("RecvThread malloc pdata failure.  size: %d", size);
        ZThread::msleep(kPayloadPauseMs);
    }
    FD_LOG_WARN("RecvThread malloc pdata failure.  size: %d", size);
    return false;
}
}  // namespace

FdLinuxDesktopClient::FdLinuxDesktopClient(const ZListener& listener) : m_listener(listener) {}

FdLinuxDesktopClient::~FdLinuxDesktopClient() = default;

void FdLinuxDesktopClient::SetChannelWrite(ChannelWriteFn channelWrite) {
    m_channel_write = std::move(channelWrite);
}

void FdLinuxDesktopClient::SetClientPolicy(FdClientPolicy* policy) {
    m_client_policy = policy;
}

bool FdLinuxDesktopClient::WaitStop() {
    return true;
}

std::shared_ptr<FdContext> FdLinuxDesktopClient::context() {
    const ZMutexLocker lock(m_contextMutex);
    return m_context;
}

bool FdLinuxDesktopClient::StartWork() {
    auto started = std::make_shared<FdContext>();
    started->initOprThread(kReadyThreads);
    started->initZListener(m_listener);
    started->m_channel_write = m_channel_write;
    started->m_client_policy = m_client_policy;
    FD_LOG_INFO("handle connect work ...");
    logRecordSizes();
    FD_LOG_INFO("read user configure. ");
    started->m_config.loadUserPolicy();
    const auto mapCtrl = std::make_shared<MapCtrlThread>(started.get());
    const auto sender = std::make_shared<SendThread>(started.get());
    started->setMapCtrlThread(mapCtrl);
    started->setSendThread(sender);
    mapCtrl->start();
    sender->start();
    FD_LOG_INFO("handle connect work ok");
    const ZMutexLocker lock(m_contextMutex);
    m_context = std::move(started);
    return true;
}

bool FdLinuxDesktopClient::StopWork() {
    std::shared_ptr<FdContext> stopped;
    {
        const ZMutexLocker lock(m_contextMutex);
        stopped = std::exchange(m_context, nullptr);
    }
    if (stopped == nullptr) {
        FD_LOG_WARN("disconnect, but client never connect.");
        return false;
    }
    if (auto mapCtrl = stopped->mapCtrlThread();
        mapCtrl != nullptr && mapCtrl->waitStop(FdThread::kStopMs)) {
        FD_LOG_INFO("map ctrl thread stop success");
        stopped->setMapCtrlThread(nullptr);
    } else {
        FD_LOG_WARN("map ctrl thread stop failure");
    }
    if (auto sender = stopped->sendThread();
        sender != nullptr && sender->waitStop(FdThread::kStopMs)) {
        FD_LOG_INFO("send thread stop success");
        stopped->setSendThread(nullptr);
    } else {
        FD_LOG_WARN("send thread stop failure");
    }
    FD_LOG_INFO("destory FdContext!");
    stopped->dismiss();
    return true;
}

bool FdLinuxDesktopClient::PutMsg(const char* data, int size) {
    if (size < kFrameHeadSize) {
        FD_LOG_ERROR("buffer size is not match.");
        return false;
    }
    const auto working = context();
    if (working == nullptr || data == nullptr) return false;
    fd_cmd_item* item = nullptr;
    if (!working->m_cmd_cache.get_node(&item)) {
        ZThread::msleep(kNodePauseMs);
        FD_LOG_WARN("malloc item node failure. ");
        return false;
    }
    const int err =
        memcpy_s(&item->head, sizeof(item->head), data + kFramePrefixSize, kMsgHeadSize);
    if (err != 0) {
        FD_LOG_ERROR("memcpy_s failed, err = %d", err);
        giveBack(*working, item);
        return false;
    }
    FD_LOG_DEBUG(
        "recv cmd item head success. mapid: %d, type: %d, subtype: %d, extsize: %d, idx: %ld",
        static_cast<int>(item->head.mapid), static_cast<int>(item->head.type),
        static_cast<int>(item->head.subtype), static_cast<int>(item->head.extsize),
        static_cast<long>(item->head.idx));
    if (!makeRoom(item, item->head.extsize)) {
        working->m_cmd_cache.put_node(item);
        return false;
    }
    if (!takePayload(item, data + kFrameHeadSize, size - kFrameHeadSize)) {
        giveBack(*working, item);
        return false;
    }
    FD_LOG_DEBUG("recv msg data success. item: %p, pdata: %p", static_cast<void*>(item),
                 static_cast<void*>(item->pdata));
    if (!handOn(*working, item)) giveBack(*working, item);
    return true;
}

// What the head promises beyond the frame stays zero.
bool FdLinuxDesktopClient::takePayload(fd_cmd_item* item, const char* data, int size) {
    const int used = std::min(std::int32_t{item->head.extsize}, size);
    if (used < 1) return true;
    const int err = memcpy_s(item->pdata, static_cast<std::size_t>(item->pdatasize), data,
                             static_cast<std::size_t>(used));
    markPayload(item, used);
    if (err != 0) FD_LOG_ERROR("memcpy_s failed, err = %d", err);
    return err == 0;
}

// True when somebody else owns the node now.
bool FdLinuxDesktopClient::handOn(FdContext& context, fd_cmd_item* item) {
    const int mapid = item->head.mapid;
    if (item->head.type == FD_TYPE_OPREATOR) {
        const FdMapInfoPtr map = context.findMapInfoById(mapid);
        if (map == nullptr) {
            FD_LOG_ERROR("put item node to opreator thread failure. mapid: %d", mapid);
            return false;
        }
        if (!map->handleOpreatorCmdItem(item)) context.m_cmd_cache.put_node(item);
        FD_LOG_DEBUG("put item node to opreator thread success");
        return true;
    }
    const auto mapCtrl = context.mapCtrlThread();
    if (item->head.type == FD_TYPE_MAP_CTRL && mapCtrl != nullptr) {
        mapCtrl->addMapCtrlCmd(item);
        FD_LOG_DEBUG("recv a map ctrl cmd ok");
        return true;
    }
    FD_LOG_DEBUG("unknow cmd type");
    return false;
}
