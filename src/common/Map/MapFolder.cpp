// The record of one map. The control thread makes it; the last user, on any thread, destroys it.
#include "common/Map/MapFolder.h"

#include "common/Comm/FdLog.h"
#include "common/Comm/HandleManage.h"

MapFolder::MapFolder(FdClientPolicy* policy, const ZListener& listener)
    : m_handleManage(new HandleManage), m_policy(policy), m_listener(listener) {}

MapFolder::~MapFolder() {
    FD_LOG_INFO("ClientName:%s, mapName:%s ", m_clientFolder, m_utf8_mapName);
    delete m_handleManage;
}

int MapFolder::PostUiHandleEvent(FDREDIR_UI_MSG msg, const void* data) {
    if (m_no_ui_event != 0) {
        FD_LOG_INFO("No Need send to android");
        return -1;
    }
    if (m_listener.callback == nullptr) return -1;
    return m_listener.callback(ZUiEvent{msg, m_listener.context, data});
}

std::string MapFolder::CreateUiEventData(std::string first, std::string second) {
    return second.empty() ? first : first + "|" + second;
}
