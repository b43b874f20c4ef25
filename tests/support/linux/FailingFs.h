// A file system that fails on demand: files in memory behind a real mount, so that what a test sees
// has gone through the kernel. Needs a mount namespace, see support/MountNamespace.h.
#pragma once

#include <sys/types.h>

#include <memory>
#include <string>

class FailingFs {
public:
    enum class Call { Lookup, Unlink, Rmdir, Rename, Truncate, Chmod, Utimens, Read, Write, Fsync };

    // Why this machine cannot mount one, or nothing. To be asked outside of the namespace.
    static std::string reasonToSkip();

    // Mounts it on a folder that it makes. Throws std::system_error.
    explicit FailingFs(const std::string& mountPoint);
    ~FailingFs();
    FailingFs(const FailingFs&) = delete;
    FailingFs& operator=(const FailingFs&) = delete;

    // What is there from the start. Names of the top folder.
    void addFile(const std::string& name);
    void addFolder(const std::string& name);

    // Every such call fails from now on, behind the first `after` that still work. 0 ends that.
    void fail(Call call, int error, int after = 0);

    // An object that refused to go is gone once it has been looked at so often.
    void vanishAfter(int looks);

    int looksAt(const std::string& name) const;  // since it refused to go
    off_t sizeOf(const std::string& name) const;
    mode_t modeOf(const std::string& name) const;

private:
    struct Core;
    std::unique_ptr<Core> m_core;
};
