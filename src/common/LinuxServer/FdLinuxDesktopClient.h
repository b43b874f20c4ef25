// The front door of the Linux dialect: takes every inbound message from the switch of dialect on
// and hands it to the map control thread or to an operator thread. Made, wired, started, stopped
// and let go by the client manager; PutMsg runs on the host's channel thread.
#pragma once

#include <memory>

#include "ZFdClientMgr.h"
#include "common/Comm/ZThread.h"
#include "common/LinuxServer/comm/fd_wire.h"

class FdClientPolicy;
class FdContext;

class FdLinuxDesktopClient {
public:
    explicit FdLinuxDesktopClient(const ZListener& listener);
    ~FdLinuxDesktopClient();  // StopWork has run before
    FdLinuxDesktopClient(const FdLinuxDesktopClient&) = delete;
    FdLinuxDesktopClient& operator=(const FdLinuxDesktopClient&) = delete;

    bool StartWork();
    bool StopWork();  // waits at most 20 seconds for each worker
    bool WaitStop();

    // Takes a copy of one frame. False if it was not taken, also while StartWork has not finished.
    bool PutMsg(const char* data, int size);

    void SetChannelWrite(ChannelWriteFn channelWrite);
    void SetClientPolicy(FdClientPolicy* policy);  // not owned

private:
    std::shared_ptr<FdContext> context();
    bool takePayload(fd_cmd_item* item, const char* data, int size);
    bool handOn(FdContext& context, fd_cmd_item* item);

    ZMutex m_contextMutex{false};  // the pointer is published when StartWork has finished
    std::shared_ptr<FdContext> m_context Z_GUARDED_BY(m_contextMutex);
    ChannelWriteFn m_channel_write;
    FdClientPolicy* m_client_policy = nullptr;
    ZListener m_listener;
};
