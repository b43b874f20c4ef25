// The processing thread of the Windows dialect: takes one message after the other from the inbound
// queue into its work buffer and has it handled there.
#pragma once

#include <cstdlib>
#include <memory>

#include "common/Comm/ZThread.h"

class FdOperateMsgdeque;
class MapManager;
struct FdOperateMsg;

// Made, wired, started, stopped and let go by ZFdClientMgr.
class FdMsgProcThread : public ZThread {
public:
    FdMsgProcThread();
    ~FdMsgProcThread() override;

    void setMapManager(MapManager* m);
    void setFdMsgQueue(FdOperateMsgdeque* q);

protected:
    void run() override;

private:
    struct Free {
        void operator()(char* memory) const { std::free(memory); }
    };

    // False for a message that the work buffer cannot hold.
    bool handleMessage(const FdOperateMsg& msg);
    void clearBehind(int size);

    MapManager* m_mapmanager;                   // not owned
    FdOperateMsgdeque* m_fd_operate_msg_queue;  // not owned
    std::unique_ptr<char[], Free> m_buffer;     // MAX_CMD_BUFFER bytes, made by run()
    int m_dirtyBytes = 0;                       // from here on the work buffer is all zero
};
