// Runs the file handlers as the dispatcher does: on a work buffer that holds the request and zeros,
// with a map over a temporary folder. For the unit tests alone: the library hides the handlers.
#pragma once

#include <fcntl.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <string>
#include <string_view>
#include <vector>

#include "ZFdClientMgr.h"
#include "common/Comm/HandleManage.h"
#include "common/Map/FdCommand.h"
#include "common/Map/MapFolder.h"
#include "common/Policy/FdClientPolicy.h"
#include "support/FileRequests.h"
#include "support/LogCapture.h"
#include "support/TempDir.h"

class HandlerFixture : public ::testing::Test {
protected:
    using Handler = void (*)(char*& buffer, int size, int* resultSize, MapFolder* map);

    HandlerFixture() : m_map(&m_policy, ZListener{}), m_buffer(MAX_CMD_BUFFER) {
        serve(m_dir.str());
        m_map.m_bWritable = 1;
        m_log.clear();  // what the policy and the map say of themselves
    }

    // From here on the map shows that folder instead of the temporary one.
    void serve(const std::string& folder) {
        folder.copy(m_map.m_clientFolder, sizeof m_map.m_clientFolder - 1);
        m_map.m_clientFolder[folder.size()] = '\0';
        m_map.m_clientFolder_size = static_cast<std::uint16_t>(folder.size() + 1);
    }

    // Puts a descriptor into the map's table, which owns it from here.
    std::int64_t insert(int fd, std::string_view path, HANDLE_TYPE type = HANDLE_TYPE_FILE) {
        EXPECT_GE(fd, 0) << path;
        EXPECT_TRUE(m_map.m_handleManage->InsertHandleByName(fd, std::string(path).c_str(), type));
        return fd;
    }

    // Each opens what `name` names in the map's folder and gives its handle value.
    std::int64_t openFile(std::string_view name, int flags = O_RDWR | O_CREAT) {
        const std::string path = m_dir.str(name);
        return insert(open(path.c_str(), flags | O_CLOEXEC, 0644), path);
    }
    std::int64_t openFolder(std::string_view name = {}) {
        const std::string path = m_dir.str(name);
        return insert(open(path.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC), path,
                      HANDLE_TYPE_DIR);
    }

    _ZRSFHANDLE* record(std::int64_t handle) { return m_map.m_handleManage->GetHandleData(handle); }

    // How a log line tells of an open file.
    std::string where(std::string_view name, std::int64_t handle) const {
        return "path: " + m_dir.str(name) + ", hFile: " + std::to_string(handle);
    }

    // The reply as it would go out, or nothing if there is none. Fails the test if the handler has
    // changed a byte behind its reply: the next request would find it.
    std::vector<char> call(Handler handler, const Request& request) {
        std::memset(m_buffer.data(), 0, m_buffer.size());
        std::ranges::copy(request, m_buffer.begin());

        char* buffer = m_buffer.data();
        int resultSize = 0;
        handler(buffer, static_cast<int>(request.size()), &resultSize, &m_map);

        EXPECT_EQ(buffer, m_buffer.data());
        const auto replySize = std::size_t{kHeaderSize} + static_cast<std::size_t>(resultSize);
        EXPECT_LE(replySize, m_buffer.size());
        EXPECT_TRUE(isUntouchedFrom(replySize, request)) << "behind the reply";
        if (resultSize == 0) return {};
        return {m_buffer.begin(), m_buffer.begin() + kHeaderSize + resultSize};
    }

    static void expectFailure(const std::vector<char>& reply, int status) {
        EXPECT_EQ(reply.size(), 12U + 11);
        EXPECT_EQ(statusOf(reply), status);
        EXPECT_EQ(cbBufferOf(reply), 0U);
    }

    LogCapture m_log;
    TempDir m_dir;
    FdClientPolicy m_policy;
    MapFolder m_map;
    std::vector<char> m_buffer;

private:
    // Compares as memcmp does: the buffer is large and there are many calls.
    bool isUntouchedFrom(std::size_t at, const Request& request) const {
        const char* bytes = m_buffer.data();
        if (at < request.size() &&
            std::memcmp(bytes + at, request.data() + at, request.size() - at) != 0) {
            return false;
        }
        const std::size_t zerosAt = std::max(at, request.size());
        if (zerosAt == m_buffer.size()) return true;
        return bytes[zerosAt] == 0 && std::memcmp(bytes + zerosAt, bytes + zerosAt + 1,
                                                  m_buffer.size() - zerosAt - 1) == 0;
    }
};
