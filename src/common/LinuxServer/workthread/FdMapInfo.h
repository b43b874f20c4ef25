// One local folder that is offered to a remote Linux desktop: what the operation handlers need of
// it, and the state of its handshake. The texts are written before the record is listed and not
// changed later, but for the server's mount path, which no handler reads.
#pragma once

#include <atomic>
#include <cstdlib>
#include <memory>

#include "common/Comm/ZThread.h"
#include "common/LinuxServer/comm/fd_wire.h"

class FdContext;

enum FdMapStatu : int {
    kMapCreated = 1,
    kMapPlugged = 2,  // the server has not answered yet
    kMapMounted = 3,
    kMapFinished = 5,  // refused or unmapped
};

class FdMapInfo : public std::enable_shared_from_this<FdMapInfo> {
public:
    FdMapInfo(int mapid, FdContext* context);  // context: not owned
    virtual ~FdMapInfo();
    FdMapInfo(const FdMapInfo&) = delete;
    FdMapInfo& operator=(const FdMapInfo&) = delete;

    bool setCompName(const char* name);
    bool setServerMountPath(const char* path);
    bool setMountPath(const char* path);
    bool setMountFlag(int flag);
    bool setMountType(int type);
    bool setMountPolicy(int policy);

    // The texts are null until they are set; the folder name also for an empty path.
    const char* getCompName() const { return m_comp_name.get(); }
    const char* getMountFolderName() const { return m_mount_folder_name.get(); }
    const char* getMountPath() const { return m_mount_path.get(); }
    const char* getServerMountPath() const { return m_server_mount_path.get(); }
    int getMountFlag() const { return m_mount_flag; }
    int getMountType() const { return m_mount_type; }
    int getMountPolicy() const { return m_mount_policy; }
    int getMapId() const { return m_map_id; }
    int getStatu() const { return m_statu; }
    bool isRootFlag() const { return m_root_flag; }
    bool isReadOnly() const { return (m_mount_policy & kReadOnlyPolicy) != 0; }
    FdContext* context() const { return m_context; }

    // The server's answers. Both take the node over. Map control thread.
    bool handleMapCmd(fd_cmd_item* item);
    bool handleUnmapCmd(fd_cmd_item* item);

    bool handlePlugInfo(const MountInfo& info);
    bool handleUnplugInfo();

    // Hands the request to an operator thread. On the thread of PutMsg. False after 10 seconds
    // without one; the node is the caller's then.
    bool handleOpreatorCmdItem(fd_cmd_item* item);
    int decreaseRef();

    // Whether no request is under way. Looks `msecond` / 100 times without a pause.
    virtual bool waitStop(int msecond);

private:
    struct FreeText {
        void operator()(char* text) const { std::free(text); }
    };
    using Text = std::unique_ptr<char, FreeText>;

    bool m_root_flag = false;
    int m_mount_flag = 0;
    int m_mount_type = 0;
    int m_mount_policy = 0;
    Text m_mount_folder_name;
    Text m_mount_path;
    Text m_comp_name;
    Text m_server_mount_path;
    int m_map_id;
    FdContext* m_context;
    std::atomic<int> m_statu{kMapCreated};
    int m_ref_count Z_GUARDED_BY(m_mutex) = 0;  // requests that are not finished yet
    ZMutex m_mutex{false};
};
