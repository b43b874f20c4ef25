// The limits of the Linux dialect.
#pragma once

class FdConfig {
public:
    FdConfig() = default;
    virtual ~FdConfig() = default;

    int loadUserPolicy();  // always 0
    int getMaxMapThreadNum() const { return m_max_map_thread_num; }
    int getDefMapThreadNum() const { return m_def_map_thread_num; }

private:
    int m_max_map_thread_num = 30;  // operator threads above which a warning is logged
    int m_def_map_thread_num = 1;
};
