#include "common/LinuxServer/workthread/FdContext.h"

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

#include "common/LinuxServer/workthread/MapCtrlThread.h"
#include "common/LinuxServer/workthread/OpreatorThread.h"
#include "support/LinuxContextFixture.h"

namespace {

class FdContextTest : public LinuxContextFixture {
protected:
    // A folder of its own for each map: no two have one path.
    FdMapInfoPtr addNamed(int mapid, const std::string& name) {
        return addMap(mapid, 0, m_dir.str(name));
    }
};

TEST_F(FdContextTest, GivesOneAsTheFirstMapId) {
    EXPECT_EQ(m_context->nextMapId(), 1);
    EXPECT_EQ(m_context->nextMapId(), 2);
}

TEST_F(FdContextTest, InitOprThreadStartsNothing) {
    EXPECT_TRUE(m_context->initOprThread(10));

    EXPECT_TRUE(m_log.has(3, "init opreator thread.  count: 10"));
    EXPECT_FALSE(m_log.has(3, "create opreator thread. "));
}

TEST_F(FdContextTest, LoadsTheLimits) {
    EXPECT_EQ(m_context->m_config.loadUserPolicy(), 0);

    EXPECT_EQ(m_context->m_config.getMaxMapThreadNum(), 30);
    EXPECT_EQ(m_context->m_config.getDefMapThreadNum(), 1);
    EXPECT_TRUE(m_log.has(3, "load user policy"));
    EXPECT_TRUE(m_log.has(3, "m_max_map_thread_num: 30"));
    EXPECT_TRUE(m_log.has(3, "m_def_map_thread_num: 1"));
}

TEST_F(FdContextTest, AddsAMapAndSaysSo) {
    const auto map = std::make_shared<FdMapInfo>(4, m_context.get());
    m_log.clear();

    EXPECT_TRUE(m_context->addMapInfo(map));

    const std::vector<LogLine> expected = {
        {3, "add map info. mapid: 4"},
        {3, "add map info success. mapid: 4, mapinfo: " + pointerText(map.get())},
        {3, "map count.  1"}};
    EXPECT_EQ(m_log.lines(), expected);
}

TEST_F(FdContextTest, RefusesAnIdThatIsListedAndLeavesTheListAsItWas) {
    const FdMapInfoPtr first = addNamed(4, "a");
    const auto second = std::make_shared<FdMapInfo>(4, m_context.get());
    m_log.clear();

    EXPECT_FALSE(m_context->addMapInfo(second));

    const std::vector<LogLine> expected = {
        {3, "add map info. mapid: 4"},
        {3, "add an exist map. mapid: 4, mapinfo: " + pointerText(second.get())},
        {3, "map count.  1"}};
    EXPECT_EQ(m_log.lines(), expected);
    EXPECT_EQ(m_context->findMapInfoById(4), first);
}

TEST_F(FdContextTest, FindLeavesTheMapAndGetTakesItOut) {
    const FdMapInfoPtr map = addNamed(4, "a");
    EXPECT_EQ(m_context->findMapInfoById(4), map);
    EXPECT_EQ(m_context->findMapInfoById(4), map);

    EXPECT_EQ(m_context->getMapInfoById(4), map);

    EXPECT_TRUE(m_log.has(3, "map exist.  mapid: 4, mapinfo: " + pointerText(map.get())));
    EXPECT_EQ(m_context->findMapInfoById(4), nullptr);
    EXPECT_EQ(m_context->getMapInfoById(4), nullptr);
    EXPECT_TRUE(m_log.has(3, "map not exist.  mapid: 4"));
}

TEST_F(FdContextTest, FindsByThePathExactlyAndSkipsAMapWithoutOne) {
    m_context->addMapInfo(std::make_shared<FdMapInfo>(1, m_context.get()));
    const FdMapInfoPtr map = addMap(2, 0, "/media/Stick");

    EXPECT_EQ(m_context->findMapInfoByMountPath("/media/Stick"), map);
    EXPECT_EQ(m_context->findMapInfoByMountPath("/media/stick"), nullptr);
    EXPECT_EQ(m_context->findMapInfoByMountPath("/media/Stick/"), nullptr);
    EXPECT_EQ(m_context->findMapInfoByMountPath("/media/Stic"), nullptr);
    EXPECT_EQ(m_context->findMapInfoByMountPath(""), nullptr);
}

TEST_F(FdContextTest, TakesOutByThePath) {
    const FdMapInfoPtr map = addMap(2, 0, "/media/Stick");

    EXPECT_EQ(m_context->getMapInfoByMountPath("/media/Stick"), map);
    EXPECT_EQ(m_context->getMapInfoByMountPath("/media/Stick"), nullptr);

    EXPECT_TRUE(m_log.has(3, "map exist.  path:/media/Stick , mapinfo: " + pointerText(map.get())));
    EXPECT_TRUE(m_log.has(3, "map not exist.  path: /media/Stick"));
}

TEST_F(FdContextTest, TakesOutMapsFromTheFront) {
    const FdMapInfoPtr first = addNamed(8, "a");
    const FdMapInfoPtr second = addNamed(2, "b");

    EXPECT_EQ(m_context->getMapInfo(), first);
    EXPECT_EQ(m_context->getMapInfo(), second);
    EXPECT_EQ(m_context->getMapInfo(), nullptr);

    EXPECT_TRUE(m_log.has(3, "get map info. mapid: 8, mapinfo: " + pointerText(first.get())));
    EXPECT_TRUE(m_log.has(3, "get map info. mapid: 0, mapinfo: (nil)"));
}

TEST_F(FdContextTest, MakesAThreadWhenNoneIsReadyAndUsesTheFirstReadyOne) {
    const auto first = m_context->getReadyThread();
    const auto second = m_context->getReadyThread();
    ASSERT_NE(first, second);
    EXPECT_EQ(m_log.count(3, "create opreator thread. "), 2);
    EXPECT_TRUE(m_log.has(3, "create opreator thread. orp: " + pointerText(first.get())));

    EXPECT_TRUE(m_context->addReadyThread(second.get()));
    EXPECT_TRUE(m_context->addReadyThread(first.get()));

    EXPECT_EQ(m_context->getReadyThread(), second);
    EXPECT_EQ(m_context->getReadyThread(), first);
    EXPECT_EQ(m_log.count(3, "create opreator thread. "), 2);
    m_context->addReadyThread(first.get());
    m_context->addReadyThread(second.get());
}

TEST_F(FdContextTest, The31stThreadIsMadeWithAWarning) {
    std::vector<std::shared_ptr<OpreatorThread>> threads;
    for (int i = 0; i < 30; ++i) threads.push_back(m_context->getReadyThread());
    EXPECT_FALSE(m_log.contains(2, "opreator number over limit."));

    threads.push_back(m_context->getReadyThread());

    EXPECT_NE(threads.back(), nullptr);
    EXPECT_TRUE(m_log.has(2, "opreator number over limit.  count: 31"));
    for (const auto& thread : threads) m_context->addReadyThread(thread.get());
}

TEST_F(FdContextTest, FreesIdleThreads) {
    const auto thread = m_context->getReadyThread();
    m_context->addReadyThread(thread.get());

    EXPECT_TRUE(m_context->freeAllOpreatorThread());

    EXPECT_TRUE(m_log.has(3, "free all opreator thread."));
    EXPECT_TRUE(m_log.has(3, "MapCtrlThread wait stop, msecond: 20000  ..."));
    EXPECT_EQ(thread->getThreadStatu(), 5);
    EXPECT_TRUE(m_context->freeAllOpreatorThread());  // the list is empty
}

TEST_F(FdContextTest, DoesNotWaitForABusyThread) {
    const auto busy = m_context->getReadyThread();
    const auto idle = m_context->getReadyThread();
    m_context->addReadyThread(idle.get());
    const auto start = std::chrono::steady_clock::now();

    EXPECT_FALSE(m_context->freeAllOpreatorThread());

    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(10));
    EXPECT_EQ(idle->getThreadStatu(), 5);
    EXPECT_LT(busy->getThreadStatu(), 5);  // it goes on
    m_context->addReadyThread(busy.get());
}

TEST_F(FdContextTest, FreesAnIdleThreadBehind99BusyOnesAndNotBehind100) {
    for (const auto& [busyCount, status] : {std::pair{99, 5}, {100, 2}}) {
        std::vector<std::shared_ptr<OpreatorThread>> busy;
        for (int i = 0; i < busyCount; ++i) busy.push_back(m_context->getReadyThread());
        const auto idle = m_context->getReadyThread();
        EXPECT_EQ(idle->waitStatu(2, kStopMs), 2);
        m_context->addReadyThread(idle.get());

        EXPECT_FALSE(m_context->freeAllOpreatorThread());

        EXPECT_EQ(idle->getThreadStatu(), status) << busyCount;
        for (const auto& thread : busy) m_context->addReadyThread(thread.get());
        EXPECT_TRUE(m_context->freeAllOpreatorThread());
    }
}

TEST_F(FdContextTest, ABusyThreadEndsAfterItsRequestOnceTheConnectionIsGone) {
    const std::weak_ptr<OpreatorThread> busy = m_context->getReadyThread();
    const std::weak_ptr<FdContext> context = m_context;

    m_context->dismiss();
    m_context.reset();

    EXPECT_TRUE(waitUntil([&] { return busy.expired() && context.expired(); }));
}

TEST_F(FdContextTest, HasNoReadyThreadOnceTheConnectionIsGone) {
    m_context->dismiss();

    EXPECT_EQ(m_context->getReadyThread(), nullptr);
}

TEST_F(FdContextTest, DismissLetsGoOfTheWorkers) {
    m_context->setMapCtrlThread(std::make_shared<MapCtrlThread>(m_context.get()));
    m_context->setSendThread(std::make_shared<SendThread>(m_context.get()));
    ASSERT_NE(m_context->mapCtrlThread(), nullptr);
    ASSERT_NE(m_context->sendThread(), nullptr);

    m_context->dismiss();

    EXPECT_EQ(m_context->mapCtrlThread(), nullptr);
    EXPECT_EQ(m_context->sendThread(), nullptr);
    EXPECT_EQ(m_context.use_count(), 1);
}

TEST_F(FdContextTest, PostsAUiEventToTheListener) {
    static ZUiEvent last{};
    int word = 0;
    m_context->initZListener({&word, [](ZUiEvent event) {
                                  last = event;
                                  return 42;
                              }});

    EXPECT_EQ(m_context->postUiHandleEvent(FDREDIR_UI_MSG_NONE, "data"), 42);

    const void* context = last.context;
    EXPECT_EQ(context, &word);
    EXPECT_STREQ(static_cast<const char*>(const_cast<const void*>(last.data)), "data");
}

TEST_F(FdContextTest, PostsNothingWithoutACallback) {
    EXPECT_EQ(m_context->postUiHandleEvent(FDREDIR_UI_MSG_NONE, nullptr), -1);
}

TEST_F(FdContextTest, JoinsTheDataOfAUiEvent) {
    EXPECT_EQ(m_context->createUiEventData("a", "b"), "a|b");
    EXPECT_EQ(m_context->createUiEventData("a", ""), "a");
    EXPECT_EQ(m_context->createUiEventData("", "b"), "|b");
}

}  // namespace
