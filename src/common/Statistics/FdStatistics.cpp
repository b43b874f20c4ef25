// The table of counters and its way into the log.
#include "common/Statistics/FdStatistics.h"

#include "common/Comm/FdLog.h"

namespace {

// The log takes no null for a text.
const char* textOf(const char* name) {
    return name == nullptr ? "(null)" : name;
}

unsigned hexOf(int cmdType) {
    return static_cast<unsigned>(cmdType);
}

// Wraps at the ends of the range.
void add(long long& counter, int amount) {
    counter = static_cast<long long>(static_cast<unsigned long long>(counter) +
                                     static_cast<unsigned long long>(amount));
}

}  // namespace

FdStatistics* FdStatistics::getInstance() {
    static FdStatistics instance;
    return &instance;
}

bool FdStatistics::setCmdName(int cmdType, const char* name) {
    const auto [row, isNew] = m_table.try_emplace(cmdType);
    if (isNew) {
        FD_LOG_INFO("add new cmd statistics.  cmdType: 0x%x, name: %s", hexOf(cmdType),
                    textOf(name));
    } else {
        FD_LOG_INFO("rename cmd statistics.  cmdType: 0x%x, oldName: %s, newName: %s",
                    hexOf(cmdType), textOf(row->second.name), textOf(name));
    }
    row->second.name = name;
    return true;
}

bool FdStatistics::addSendCmdCount(int cmdType, int cmdSize, int cmdCompressSize) {
    Statistics* row = find(cmdType, cmdSize, cmdCompressSize);
    if (row == nullptr) return true;
    for (long long* count : {&row->sendCount, &m_sendCount}) add(*count, 1);
    for (long long* size : {&row->sendSize, &m_sendSize}) add(*size, cmdSize);
    for (long long* size : {&row->sendCompressSize, &m_sendCompressSize}) {
        add(*size, cmdCompressSize);
    }
    return true;
}

bool FdStatistics::addReceiveCmdCount(int cmdType, int cmdSize, int cmdCompressSize) {
    Statistics* row = find(cmdType, cmdSize, cmdCompressSize);
    if (row == nullptr) return true;
    for (long long* count : {&row->recvCount, &m_recvCount}) add(*count, 1);
    for (long long* size : {&row->recvSize, &m_recvSize}) add(*size, cmdSize);
    for (long long* size : {&row->recvCompressSize, &m_recvCompressSize}) {
        add(*size, cmdCompressSize);
    }
    return true;
}

bool FdStatistics::printStatistics() {
    FD_LOG_INFO("%-8s %-15s %-10s %-10s %-10s %-10s %-10s %-10s", "Type", "Name", "R-Count",
                "R-Size", "R-ComSize", "S-Count", "S-Size", "S-ComSize");
    for (const auto& [cmdType, row] : m_table) {
        FD_LOG_INFO("%-8d %-15s %-10lld %-10lld %-10lld %-10lld %-10lld %-10lld", cmdType,
                    textOf(row.name), row.recvCount, row.recvSize, row.recvCompressSize,
                    row.sendCount, row.sendSize, row.sendCompressSize);
    }
    return true;
}

// The row of a command that is to be counted, or null with a line in the log.
Statistics* FdStatistics::find(int cmdType, int cmdSize, int cmdCompressSize) {
    const auto row = m_table.find(cmdType);
    if (row != m_table.end()) return &row->second;
    FD_LOG_INFO("not find cmd!!!  cmdType: 0x%x, cmdSize: %d, cmdComrpessSize: %d", hexOf(cmdType),
                cmdSize, cmdCompressSize);
    return nullptr;
}
