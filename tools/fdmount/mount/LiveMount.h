// The drives of a machine, mounted: follows what is offered, and ends when the mount is taken off,
// when it is told to, or when the machine is lost.
#pragma once

#include <condition_variable>
#include <functional>
#include <mutex>
#include <string>

#include "fdmount/mount/FuseSession.h"
#include "fdmount/mount/Mount.h"
#include "peer/Machine.h"

namespace fdmount {

class LiveMount {
public:
    enum class End {
        kUnmounted,  // by somebody else
        kStopped,    // by stop()
        kLost        // the machine's session has ended
    };

    // Mounts what is offered now. The machine outlives the mount. Throws MountError.
    LiveMount(peer::Machine& machine, const MountOptions& options, const std::string& mountPoint);
    ~LiveMount();
    LiveMount(const LiveMount&) = delete;
    LiveMount& operator=(const LiveMount&) = delete;

    // Answers calls until the end. The mount is off then. Once. Calls `started` when it begins to,
    // and looks at the mount no more, which may be taken off from then on.
    End run(const std::function<void()>& started = {});

    // From any thread, also before run().
    void stop();

    // Somebody works in it still, after the end of run(): only the end of the process ends that.
    bool isBusy() const { return m_busy; }

private:
    struct News {
        bool drives = false, ended = false, stopped = false;
    };

    News waitForNews();
    void tell(bool News::*what);
    void updateDrives();
    void takeOff(End end);

    peer::Machine& m_machine;
    const std::string m_mountPoint;
    Mount m_mount;
    FuseSession m_session;
    bool m_busy = false;

    std::mutex m_mutex;  // guards m_news
    std::condition_variable m_changed;
    News m_news;
};

}  // namespace fdmount
