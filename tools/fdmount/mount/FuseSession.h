// One mount of the kernel's, and the threads that answer its calls.
#pragma once

#include <functional>
#include <string>
#include <thread>

#include "fdmount/mount/Mount.h"

struct fuse;

namespace fdmount {

class FuseSession {
public:
    // Mounts. `mount` outlives the session. Throws MountError.
    FuseSession(Mount& mount, const std::string& mountPoint);

    // Not before the loop has ended, unless it was abandoned.
    ~FuseSession();
    FuseSession(const FuseSession&) = delete;
    FuseSession& operator=(const FuseSession&) = delete;

    // Answers calls on threads of its own until the mount is taken off, and says so then.
    void start(std::function<void()> ended);
    void join();

    // Leaves the loop and its threads alone for good. The process is about to end.
    void abandon();

    // The kernel forgets what it knows of this name in the root. Waits for calls on the root that
    // are being answered: not for the thread that lets them be.
    void forgetName(const std::string& name);

private:
    struct fuse* m_fuse = nullptr;
    std::thread m_loop;
};

}  // namespace fdmount
