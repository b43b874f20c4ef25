// Carries out one request at a time: finds the map, calls the handler of the operation's code,
// passes the node on as the reply and puts itself back on the context's ready list. Made on demand
// by FdContext, which owns it.
#pragma once

#include <array>
#include <memory>

#include "common/LinuxServer/comm/fd_cmd_queue.h"
#include "common/LinuxServer/workthread/FdThread.h"

class FdMapInfo;

class OpreatorThread : public FdThread {
public:
    explicit OpreatorThread(FdContext* context);
    ~OpreatorThread() override;

    bool setMapInfo(FdMapInfo* map);

    // The map that counts the next request: it may be off the list when the thread gets to that.
    void setCountingMap(std::weak_ptr<FdMapInfo> map);

    // The queue owns the node from here on.
    bool addOpreatorCmd(fd_cmd_item* item);

    bool waitStop(int msecond) override;

    // Has run() end after the request that it is at, without waiting for that.
    void endAfterRequest();

protected:
    void run() override;

private:
    using Handler = int (*)(FdMapInfo* map, fd_cmd_item* item);

    void handleItem(fd_cmd_item* item);
    void callHandler(FdMapInfo* map, fd_cmd_item* item);
    void passOn(fd_cmd_item* item);

    FdMapInfo* m_map_info = nullptr;         // of the last request; only compared with null
    std::weak_ptr<FdMapInfo> m_countingMap;  // set before the node is queued, while this is idle
    FdCmdQueue m_cmd_queue;
    std::array<Handler, 45> m_handlers{};  // by operation code
};
