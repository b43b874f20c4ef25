#include "common/LinuxServer/comm/fd_cmd_cache.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <limits>
#include <memory>
#include <string>

#include "support/LogCapture.h"
#include "support/RefusedNew.h"
#include "support/ScarceMemory.h"

namespace {

constexpr int kNodeSize = 65536;
constexpr int kPathSize = 4096;

bool isZero(const char* bytes, int size) {
    return std::all_of(bytes, bytes + size, [](char byte) { return byte == 0; });
}

class FdCmdCacheTest : public testing::Test {
protected:
    fd_cmd_item* get() {
        fd_cmd_item* item = nullptr;
        EXPECT_TRUE(m_cache->get_node(&item));
        return item;
    }
    fd_buf_node getPath() {
        fd_buf_node node{};
        EXPECT_TRUE(m_cache->get_path_buf(&node));
        return node;
    }

    LogCapture m_log;
    std::unique_ptr<FdCmdCache> m_cache = std::make_unique<FdCmdCache>();
};

TEST_F(FdCmdCacheTest, MakesANodeWithAClearPayloadOf64KiB) {
    fd_cmd_item* item = get();

    EXPECT_EQ(item->head.head_size, 64U);
    EXPECT_EQ(item->head.mapid, 0);
    EXPECT_EQ(item->head.extsize, 0);
    EXPECT_EQ(item->pdatasize, kNodeSize);
    EXPECT_TRUE(isZero(item->pdata, kNodeSize));
    EXPECT_TRUE(m_log.has(3, "cmd cache create node. item: " + pointerText(item) +
                                 ", pdata: " + pointerText(item->pdata) + ", pdatasize: 65536"));
    m_cache->put_node(item);
}

TEST_F(FdCmdCacheTest, ClearsHeadAndPayloadOfANodeThatComesBack) {
    fd_cmd_item* item = get();
    std::memset(&item->head, 0x7f, sizeof(item->head));
    std::memset(item->pdata, 0x7f, kNodeSize);
    markPayload(item, kNodeSize);

    EXPECT_TRUE(m_cache->put_node(item));

    EXPECT_TRUE(isZero(item->pdata, kNodeSize));
    ASSERT_EQ(get(), item);
    EXPECT_EQ(item->head.head_size, 64U);
    EXPECT_EQ(std::int64_t{item->head.res}, 0);
    EXPECT_EQ(std::int64_t{item->head.idx}, 0);
    EXPECT_EQ(item->head.reserved, 0U);
    EXPECT_EQ(item->head.extsize, 0);
    m_cache->put_node(item);
}

TEST_F(FdCmdCacheTest, HandsNodesOutInTheOrderInWhichTheyCameBack) {
    fd_cmd_item* first = get();
    fd_cmd_item* second = get();
    fd_cmd_item* third = get();
    for (fd_cmd_item* item : {second, third, first}) m_cache->put_node(item);

    EXPECT_EQ(get(), second);
    EXPECT_EQ(get(), third);
    EXPECT_EQ(get(), first);

    for (fd_cmd_item* item : {first, second, third}) m_cache->put_node(item);
}

TEST_F(FdCmdCacheTest, MakesNoNodeWhileThePoolHasOne) {
    m_cache->put_node(get());
    m_log.clear();

    m_cache->put_node(get());

    EXPECT_TRUE(m_log.lines().empty());
}

TEST_F(FdCmdCacheTest, KeepsAPayloadThatWasMadeLarger) {
    fd_cmd_item* item = get();
    EXPECT_TRUE(ensurePayload(item, kNodeSize));
    EXPECT_EQ(item->pdatasize, kNodeSize);
    EXPECT_TRUE(ensurePayload(item, kNodeSize + 1));
    EXPECT_EQ(item->pdatasize, kNodeSize + 1);
    std::memset(item->pdata, 1, kNodeSize + 1);
    markPayload(item, kNodeSize + 1);
    m_cache->put_node(item);

    ASSERT_EQ(get(), item);
    EXPECT_EQ(item->pdatasize, kNodeSize + 1);
    EXPECT_TRUE(isZero(item->pdata, kNodeSize + 1));
    m_cache->put_node(item);
}

TEST_F(FdCmdCacheTest, MakesNodesWithoutAPayloadForASizeThatIsNotPositive) {
    for (const int size : {0, -1}) {
        m_cache->set_node_size(size);
        fd_cmd_item* item = get();

        EXPECT_EQ(item->pdata, nullptr) << size;
        EXPECT_EQ(item->pdatasize, 0) << size;
        EXPECT_TRUE(ensurePayload(item, 1));
        EXPECT_EQ(item->pdatasize, 1);
        EXPECT_TRUE(m_log.has(3, "set node size. size: " + std::to_string(size)));
        m_cache->put_node(item);
        get();  // not for the next size
        m_cache->put_node(item);
        m_cache = std::make_unique<FdCmdCache>();
    }
}

TEST_F(FdCmdCacheTest, ANodeWhosePayloadCannotBeHadIsGoodAllTheSame) {
    m_cache->set_node_size(1 << 30);
    fd_cmd_item* item = nullptr;
    {
        const ScarceMemory limit;
        item = get();
    }
    if (item->pdata != nullptr) GTEST_SKIP() << "this system does not bound a program's memory";

    EXPECT_EQ(item->pdatasize, 0);
    EXPECT_EQ(item->head.head_size, 64U);
    EXPECT_TRUE(m_log.has(3, "cmd cache create node. item: " + pointerText(item) +
                                 ", pdata: " + pointerText(nullptr) + ", pdatasize: 0"));
    m_cache->put_node(item);
}

TEST_F(FdCmdCacheTest, GivesNothingWithoutMemoryForANode) {
    fd_cmd_item* item = nullptr;
    {
        const RefusedNew refused;
        EXPECT_FALSE(m_cache->get_node(&item));
    }
    EXPECT_EQ(item, nullptr);
    EXPECT_TRUE(m_log.has(2, "cmd cache create node failure"));

    m_cache.reset();
    EXPECT_TRUE(m_log.has(3, "m_cmd_put_count: 0, m_cmd_get_count: 0"));
}

TEST_F(FdCmdCacheTest, MakesNodesOfTheSizeThatIsSet) {
    m_cache->set_node_size(100);

    fd_cmd_item* item = get();

    EXPECT_EQ(item->pdatasize, 100);
    EXPECT_TRUE(m_log.has(3, "set node size. size: 100"));
    m_cache->put_node(item);
}

TEST_F(FdCmdCacheTest, MakesAClearPathBufferOf4KiB) {
    const fd_buf_node node = getPath();

    EXPECT_EQ(node.size, kPathSize);
    EXPECT_TRUE(isZero(node.data, kPathSize));
    EXPECT_TRUE(m_log.has(
        3, "cmd cache create path buf node.  pdata: " + pointerText(node.data) + ", size: 4096"));
    m_cache->put_path_buf(node);
}

TEST_F(FdCmdCacheTest, HandsPathBuffersOutClearAndInTheirOrder) {
    const fd_buf_node first = getPath();
    const fd_buf_node second = getPath();
    std::memset(first.data, 'x', kPathSize);
    EXPECT_TRUE(m_cache->put_path_buf(second));
    EXPECT_TRUE(m_cache->put_path_buf(first));

    EXPECT_EQ(getPath().data, second.data);
    const fd_buf_node again = getPath();
    EXPECT_EQ(again.data, first.data);
    EXPECT_TRUE(isZero(again.data, kPathSize));

    m_cache->put_path_buf(first);
    m_cache->put_path_buf(second);
}

TEST_F(FdCmdCacheTest, HasNoPathBufferOfASizeThatIsNotPositive) {
    m_cache->set_path_size(0);
    fd_buf_node node{};

    EXPECT_FALSE(m_cache->get_path_buf(&node));

    EXPECT_EQ(node.data, nullptr);
    EXPECT_TRUE(m_log.has(3, "set path size. size: 0"));
    EXPECT_TRUE(m_log.has(2, "cmd cache create path buf node failure"));
}

TEST_F(FdCmdCacheTest, TellsItsCountersAndPoolsAtTheEnd) {
    fd_cmd_item* first = get();
    fd_cmd_item* second = get();
    m_cache->put_node(second);
    m_cache->put_node(first);
    m_cache->put_node(get());
    const fd_buf_node path = getPath();
    m_cache->put_path_buf(path);
    m_log.clear();

    m_cache.reset();

    const std::vector<LogLine> expected = {{3, "m_cmd_put_count: 3, m_cmd_get_count: 3"},
                                           {3, "m_buf_put_count: 1, m_buf_get_count: 1"},
                                           {3, "cmd queue length. 2"},
                                           {3, "buf queue length. 1"}};
    EXPECT_EQ(m_log.lines(), expected);
}

// The two counters of the path buffers count the opposite of what their names say.
TEST_F(FdCmdCacheTest, CountsPathBuffersUnderEachOthersNames) {
    m_cache->put_path_buf({nullptr, 0});
    m_cache->put_path_buf({nullptr, 0});
    getPath();
    m_log.clear();

    m_cache.reset();

    EXPECT_TRUE(m_log.has(3, "m_buf_put_count: 1, m_buf_get_count: 2"));
    EXPECT_TRUE(m_log.has(3, "buf queue length. 1"));
}

TEST_F(FdCmdCacheTest, ClearsOnlyWhatWasMarkedAndAllOfThat) {
    fd_cmd_item* item = get();
    item->pdata[9] = 'x';
    markPayload(item, 10);
    markPayload(item, 3);  // never less than before

    m_cache->put_node(item);

    EXPECT_TRUE(isZero(item->pdata, kNodeSize));
}

}  // namespace
