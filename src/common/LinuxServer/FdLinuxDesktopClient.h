// The front door of the Linux dialect: takes every inbound message from the switch of dialect on
// and hands it to the map control thread or to an operator thread. Made, wired, started, stopped
// and let go by the client manager; PutMsg runs on the host's channel thread.
#pragma once

#include <atomic>
#include <functional>

#include "ZFdClientMgr.h"

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
    std::atomic<FdContext*> m_context{nullptr};  // owned; set once StartWork has finished
    ChannelWriteFn m_channel_write;
    FdClientPolicy* m_client_policy = nullptr;
    ZListener m_listener;
};
