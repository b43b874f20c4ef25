// The limits of the Linux dialect.
#include "common/LinuxServer/fdconfig/fd_config.h"

#include "common/Comm/FdLog.h"

int FdConfig::loadUserPolicy() {
    FD_LOG_INFO("load user policy");
    m_max_map_thread_num = 30;
    m_def_map_thread_num = 1;
    FD_LOG_INFO("m_max_map_thread_num: %d", m_max_map_thread_num);
    FD_LOG_INFO("m_def_map_thread_num: %d", m_def_map_thread_num);
    return 0;
}
