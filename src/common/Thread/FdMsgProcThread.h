// The processing thread of the Windows dialect: takes one message after the other from the inbound
// queue into its work buffer and has it handled there.
#pragma once

#include "common/Comm/ZThread.h"

class FdOperateMsgdeque;
class MapManager;

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
    MapManager* m_mapmanager;                   // not owned
    FdOperateMsgdeque* m_fd_operate_msg_queue;  // not owned
    char* m_buffer;                             // MAX_CMD_BUFFER bytes, made by run()
};
