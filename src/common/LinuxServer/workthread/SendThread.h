// The only writer to the channel in the Linux dialect: frames leave whole and in the order in which
// their nodes were queued. Made, started, stopped and let go by FdLinuxDesktopClient.
#pragma once

#include <cstdlib>
#include <memory>

#include "common/LinuxServer/comm/fd_cmd_queue.h"
#include "common/LinuxServer/workthread/FdThread.h"

class SendThread : public FdThread {
public:
    explicit SendThread(FdContext* context);
    ~SendThread() override;

    // The thread owns the node from here on.
    bool addSendCmdItem(fd_cmd_item* item);

    // Queues a message without a payload.
    bool sendCmdItem(int mapid, int type, int subtype, int res);

    bool waitStop(int msecond) override;

protected:
    void run() override;

private:
    enum class Sent { kYes, kNo, kCopyFailed };

    Sent sendFrame(const fd_cmd_item& item);
    bool ensureFrame(std::size_t size);

    struct FreeBytes {
        void operator()(char* bytes) const { std::free(bytes); }
    };

    FdCmdQueue m_cmd_queue;
    std::unique_ptr<char, FreeBytes> m_frame;  // grows to the largest frame; this thread only
    std::size_t m_frameSize = 0;
};
