// The record of a map, on its own.
#include "common/Map/MapFolder.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <cstring>

#include "common/Comm/HandleManage.h"
#include "common/Policy/FdClientPolicy.h"
#include "support/LogCapture.h"

namespace {

constexpr auto kEvent = static_cast<FDREDIR_UI_MSG>(7);

ZUiEvent s_event{};

int keepEvent(ZUiEvent event) {
    s_event = event;
    return 42;
}

class MapFolderTest : public testing::Test {
protected:
    MapFolderTest() { s_event = {}; }

    FdClientPolicy m_policy;
    LogCapture m_log;
};

TEST_F(MapFolderTest, BeginsZeroedWithATableOfItsOwn) {
    const MapFolder map(&m_policy, ZListener{});

    EXPECT_EQ(map.m_nMapIndex, 0);
    EXPECT_STREQ(map.m_clientFolder, "");
    EXPECT_EQ(map.m_clientFolder_size, 0);
    EXPECT_EQ(map.m_utf16_mapName_size, 0);
    EXPECT_EQ(map.m_rootFlag, 0);
    EXPECT_EQ(map.m_bWritable, 0);
    EXPECT_EQ(map.m_vmName, 0);
    EXPECT_EQ(map.m_mapType, 0);
    EXPECT_EQ(map.m_no_ui_event, 0);
    EXPECT_NE(map.m_handleManage, nullptr);
    EXPECT_EQ(map.m_policy, &m_policy);
}

TEST_F(MapFolderTest, LogsItsNamesAndClosesWhatTheServerLeftOpen) {
    const int fd = open("/", O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    ASSERT_GE(fd, 0);
    {
        MapFolder map(&m_policy, ZListener{});
        std::strcpy(map.m_clientFolder, "/media/Data");  // NOLINT(clang-analyzer-security*)
        std::strcpy(map.m_utf8_mapName, "Mac-Data");     // NOLINT(clang-analyzer-security*)
        ASSERT_TRUE(map.m_handleManage->InsertHandleByName(fd, "/", HANDLE_TYPE_FILE));
    }

    EXPECT_TRUE(m_log.has(ZLOG_LEVEL_INFO, "ClientName:/media/Data, mapName:Mac-Data "));
    EXPECT_EQ(fcntl(fd, F_GETFD), -1);
}

TEST_F(MapFolderTest, PostsAnEventWithTheListenersContext) {
    int context = 0;
    const char data[] = "data";
    MapFolder map(&m_policy, ZListener{&context, keepEvent});

    EXPECT_EQ(map.PostUiHandleEvent(kEvent, data), 42);

    EXPECT_EQ(static_cast<int>(s_event.msg), 7);
    EXPECT_EQ(static_cast<void*>(s_event.context), &context);
    EXPECT_EQ(static_cast<const void*>(s_event.data), data);
    EXPECT_EQ(sizeof(ZUiEvent), 20U);
}

TEST_F(MapFolderTest, PostsNothingWithoutAListener) {
    MapFolder map(&m_policy, ZListener{});
    EXPECT_EQ(map.PostUiHandleEvent(kEvent, nullptr), -1);
    EXPECT_TRUE(m_log.lines().empty());
}

TEST_F(MapFolderTest, PostsNothingWhereEventsAreStopped) {
    MapFolder map(&m_policy, ZListener{nullptr, keepEvent});
    map.m_no_ui_event = 1;

    EXPECT_EQ(map.PostUiHandleEvent(kEvent, nullptr), -1);

    EXPECT_EQ(static_cast<int>(s_event.msg), 0);
    EXPECT_EQ(m_log.lines(), (std::vector<LogLine>{{ZLOG_LEVEL_INFO, "No Need send to android"}}));
}

TEST_F(MapFolderTest, JoinsTheTextsOfAnEventWithABar) {
    MapFolder map(&m_policy, ZListener{});
    EXPECT_EQ(map.CreateUiEventData("first", "second"), "first|second");
    EXPECT_EQ(map.CreateUiEventData("", "second"), "|second");
}

TEST_F(MapFolderTest, AddsNoBarForAnEmptySecondText) {
    MapFolder map(&m_policy, ZListener{});
    EXPECT_EQ(map.CreateUiEventData("first", ""), "first");
}

}  // namespace
