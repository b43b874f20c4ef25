// What the file service answers when there is no memory for the record of an open object. The
// linker sends this program's calls of calloc through here.
#include <fcntl.h>
#include <gtest/gtest.h>

#include <cstddef>

#include "linux/comm/Funcdef.h"
#include "support/HandlerFixture.h"

namespace {
thread_local bool failing = false;
}  // namespace

extern "C" {
void* __real_calloc(std::size_t count, std::size_t size);
void* __wrap_calloc(std::size_t count, std::size_t size);

void* __wrap_calloc(std::size_t count, std::size_t size) {
    return failing ? nullptr : __real_calloc(count, size);
}
}

namespace {

class OutOfMemoryTest : public HandlerFixture {
protected:
    // The reply to a create request that finds no memory for a record.
    std::vector<char> create(std::string_view path, std::uint32_t flags) {
        const Request request = createRequest(path, flags | SHFL_CF_ACT_FAIL_IF_NEW);
        failing = true;
        const std::vector<char> reply = call(ZrsfCreate, request);
        failing = false;
        return reply;
    }
};

TEST_F(OutOfMemoryTest, TheTableTakesNoRecord) {
    failing = true;
    const bool inserted = m_map.m_handleManage->InsertHandleByName(
        9, "/a-name-of-more-than-20-bytes", HANDLE_TYPE_DIR);
    failing = false;

    EXPECT_FALSE(inserted);
    EXPECT_EQ(record(9), nullptr);
    EXPECT_EQ(m_log.lines(),
              (std::vector<LogLine>{
                  {1, "malloc return NULL!!!   type: 1, _handle: 9, name: /a-name-of-more-than"}}));
}

TEST_F(OutOfMemoryTest, AFolderIsNotOpened) {
    const std::vector<char> reply = create("", SHFL_CF_DIRECTORY);

    EXPECT_EQ(statusOf(reply), -8);
    EXPECT_EQ(m_log.lines(), (std::vector<LogLine>{{1, "malloc error.  pzrsf == NULL"}}));
}

TEST_F(OutOfMemoryTest, AFileIsAnsweredAsOpenedAndClosedSinceNothingCanReachIt) {
    m_dir.file("f", "hello");

    const std::vector<char> reply = create("\\f", SHFL_CF_ACCESS_READ);

    EXPECT_EQ(statusOf(reply), 0);
    const _SHFLCREATEPARMS parms = createParmsOf(reply);
    EXPECT_EQ(parms.Result, SHFL_FILE_EXISTS);
    EXPECT_EQ(parms.Info.cbObject, 5);
    EXPECT_EQ(record(parms.Handle), nullptr);
    EXPECT_EQ(fcntl(static_cast<int>(parms.Handle), F_GETFD), -1);
}

}  // namespace
