// One map of the Windows dialect: a local folder, disk or printer port that is offered to the
// remote desktop, with its names, its view of the policy and the table of what the server has open
// on it. Everything but m_vmName is written before the map is listed and never afterwards.
#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <string>

#include "ZFdClientMgr.h"

class FdClientPolicy;
class HandleManage;

// Value of m_mapType for a printer port.
constexpr int kPrinterMap = 0x1000;

// Room for a map name in UTF-16LE.
constexpr int MAX_PATH_BUFF = 2048;

class MapFolder {
public:
    MapFolder(FdClientPolicy* policy, const ZListener& listener);
    ~MapFolder();  // closes whatever the server left open
    MapFolder(const MapFolder&) = delete;
    MapFolder& operator=(const MapFolder&) = delete;

    // Calls the host's listener. Its result, or -1 without a listener.
    int PostUiHandleEvent(FDREDIR_UI_MSG msg, const void* data);

    std::string CreateUiEventData(std::string first, std::string second);

    int m_nMapIndex = 0;
    char m_clientFolder[1024] = {};
    std::uint16_t m_clientFolder_size = 0;  // with terminator, as the caller gave it
    char m_utf16_clientFolder[1040] = {};
    std::uint16_t m_utf16_clientFolder_size = 0;
    char m_utf16_mapName[MAX_PATH_BUFF] = {};
    std::uint16_t m_utf16_mapName_size = 0;
    char m_utf8_mapName[1024] = {};
    std::uint16_t m_utf8_mapName_size = 0;  // with terminator, but without it for a printer port
    int m_rootFlag = 0;                     // 1 for the root of the file system
    char m_utf8_computerName[1024] = {};
    std::uint16_t m_utf8_computerName_size = 0;
    char m_utf8_shareFileName[1024] = {};
    std::uint16_t m_utf8_shareFileName_size = 0;
    std::uint8_t m_bWritable = 0;
    std::atomic<std::int8_t> m_vmName{0};  // the remote drive letter, 0 until a map reply came
    int m_mapType = 0;
    HandleManage* m_handleManage;  // owned
    FdClientPolicy* m_policy;      // not owned
    ZListener m_listener;
    std::uint8_t m_no_ui_event = 0;  // non-zero stops UI events
};

// A map lives until its last user has let go of it: a request may still work on a map that has left
// the registry.
using MapFolderPtr = std::shared_ptr<MapFolder>;
