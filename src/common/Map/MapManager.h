// The centre of the Windows dialect: the registry of maps, the dispatcher of inbound messages and
// the way out to the channel. HandleCmd and all that hangs from it run on the processing thread;
// addMapInfo, deleteMapInfoByMapIndex, getMapNum and sendData on the control thread.
#pragma once

#include <array>
#include <functional>
#include <list>
#include <string>

#include "ZFdClientMgr.h"
#include "common/Comm/ZThread.h"
#include "common/Compress/FdCompress.h"
#include "common/Map/MapFolder.h"

class FdClientPolicy;
struct MapNameText;

// Reads the request from `buffer`, builds the reply in place and stores its size in `*resultSize`.
// A handler that leaves `*resultSize` at 0 sends no reply. `buffer` holds MAX_CMD_BUFFER bytes,
// zero behind the message; a handler writes nowhere but over the request and the reply that it
// reports, since only these are cleared for the next message.
using ZrsfHandler = std::function<void(char*& buffer, int size, int* resultSize, MapFolder* map)>;

class MapManager {
public:
    MapManager(FdClientPolicy* policy, const ZListener& listener);  // policy: not owned
    ~MapManager();
    MapManager(const MapManager&) = delete;
    MapManager& operator=(const MapManager&) = delete;

    void initNet(ChannelWriteFn write, MetricReportFn metric);

    // Called by the policy command when the remote side is a Linux desktop. Set before the threads.
    void setOnLinuxDesktop(std::function<void()> onLinuxDesktop);

    // Dispatches one inbound message of `size` bytes. `pbuffer` holds MAX_CMD_BUFFER bytes, zero
    // behind the message; the reply is built over it.
    void HandleCmd(char* pbuffer, int size);
    void HandleFSCmd(char* pbuffer, int size, int* resultSize);
    void HandleGetMapNum(char* pbuffer, int* resultSize);
    void HandleGetMapName(char* pbuffer, int* resultSize);
    void HandleGetMapFolder(char* pbuffer, int* resultSize);
    void HandleGetUnMapFolder(char* pbuffer, int* resultSize);
    void HandleMapRsp(char* pbuffer);
    void HandleUnMapRsp(char* pbuffer);
    void HandleEjectUsb(char* pbuffer);
    void HandleEjectCDRom(char* pbuffer);
    void HandlePolicy(char* pbuffer, int size);

    bool sendCompressData(char* pbuffer, int size, int seq);
    void SendResult(char* pbuffer, int size, int seq);

    // Sends a finished message.
    bool sendData(char* data, int size);

    // The registry. `pathSize` is the byte count of `path` with its terminator.
    MapFolderPtr addMapInfo(const char* path, int pathSize, int type);
    MapFolderPtr getMapInfoByID(int id);
    MapFolderPtr getMapInfoByClientPath(const char* path, int pathSize);
    MapFolderPtr getMapInfoByShareNameUtf8(const char* name, int size);
    MapFolderPtr getMapInfoByShareNameUtf16(const char* name, int size);
    MapFolderPtr deleteMapInfoByMapIndex(int id);
    int getMapNum();

    // Called by the drive monitor. Throws std::bad_function_call if the host gave none.
    void reportMetric(int code, const std::string& text);

    // How many bytes from the start of the work buffer the last HandleCmd may have left non-zero.
    int dirtyBytes() const { return m_dirtyBytes; }

protected:
    std::array<ZrsfHandler, 20> m_fsHandlers;  // by message code

private:
    // One message of any code; `*resultSize` as the handler left it.
    void dispatch(char* pbuffer, int size, int* resultSize);

    // One write under the send lock, with its result.
    int writeWhole(char* data, int size);

    // The steps of addMapInfo.
    bool nameMap(MapFolder& map, const char* path, int pathSize);
    bool makeUniqueName(MapNameText& name, const MapNameText& base);
    void listMap(const MapFolderPtr& map);

    // The first map that is wanted, or null. Searched under the lock.
    template <typename Predicate>
    MapFolderPtr findMap(Predicate isWanted);

    MapFolderPtr unlistMap(int id);
    int nextMapId();
    std::list<MapFolderPtr> listedMaps();  // a snapshot, to be walked without the lock
    std::list<MapFolderPtr> takeMaps();    // leaves the registry empty

    std::list<MapFolderPtr> m_mapList Z_GUARDED_BY(m_mapListMutex);  // oldest first
    int m_mapNum Z_GUARDED_BY(m_mapListMutex) = 0;  // id of the next map; only grows
    ZMutex m_sendMutex{false};  // held across the write callable: a message leaves whole
    ZMutex m_mapListMutex{false};
    FdCompress m_compress;
    ChannelWriteFn m_channelWrite;
    FdClientPolicy* m_policy;  // not owned
    ZListener m_listener;
    std::function<void()> m_onLinuxDesktop;
    MetricReportFn m_metricReport;
    int m_dirtyBytes = 0;  // processing thread only
};
