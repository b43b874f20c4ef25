// The counters of messages: for each command type how many went each way, how many bytes they had
// and how many of those were compressed. No road feeds it yet. The table has no lock.
#pragma once

#include <map>

struct Statistics {
    long long recvCount = 0;
    long long recvSize = 0;
    long long recvCompressSize = 0;
    long long sendCount = 0;
    long long sendSize = 0;
    long long sendCompressSize = 0;
    const char* name = nullptr;  // the caller's, and has to outlive the table
};

class FdStatistics {
public:
    // Made at first use, by whichever thread comes first, and destroyed when the process exits.
    static FdStatistics* getInstance();

    virtual ~FdStatistics() = default;
    FdStatistics(const FdStatistics&) = delete;
    FdStatistics& operator=(const FdStatistics&) = delete;

    // Adds a row, or renames one and keeps its counters. Only a command with a row is counted.
    bool setCmdName(int cmdType, const char* name);
    bool addSendCmdCount(int cmdType, int cmdSize, int cmdCompressSize);
    bool addReceiveCmdCount(int cmdType, int cmdSize, int cmdCompressSize);
    bool printStatistics();  // to the log

protected:
    FdStatistics() = default;

    // The totals of all commands.
    long long m_recvCount = 0;
    long long m_recvSize = 0;
    long long m_recvCompressSize = 0;
    long long m_sendCount = 0;
    long long m_sendSize = 0;
    long long m_sendCompressSize = 0;
    std::map<int, Statistics> m_table;  // by command type

private:
    Statistics* find(int cmdType, int cmdSize, int cmdCompressSize);
};
