// No reply shows anything of an earlier message, however the work buffer is kept clean.
#include <algorithm>
#include <string>
#include <vector>

#include "RootMapFixture.h"

namespace {
constexpr std::size_t kLargeSize = 1 << 20;

class WorkBufferTest : public RootMapFixture {};

TEST_F(WorkBufferTest, AShortReadBehindALargeOneEndsInZeros) {
    const auto large = openFile(m_dir.file("large", std::string(kLargeSize, 'L')));
    const auto small = openFile(m_dir.file("small", std::string(600, 's')));

    EXPECT_EQ(exchange(readRequest(large, 0, kLargeSize)).size(), kLargeSize + 23);
    const auto reply = exchange(readRequest(small, 0, 600));

    ASSERT_EQ(reply.size(), 623U);
    EXPECT_EQ(std::string(reply.begin() + 20, reply.end()),
              std::string(600, 's') + std::string(3, '\0'));
}

TEST_F(WorkBufferTest, ARequestCutShortReadsZerosBehindLargeReads) {
    const auto large = openFile(m_dir.file("large", std::string(kLargeSize, 'L')));
    exchange(readRequest(large, 0, kLargeSize));
    exchange(readRequest(large, 0, 4096));

    auto request = readRequest(large, 0, 4096);
    request.resize(28);  // the length is missing, so it is 0, which is made 512
    EXPECT_EQ(exchange(request).size(), 512U + 23);
    auto create = createRequest("", 0);
    create.resize(12);  // without a path: the map's folder, with flags and parameters of zeros
    const auto reply = exchange(create);
    EXPECT_TRUE(std::all_of(reply.end() - 23, reply.end(), [](char byte) { return byte == 0; }));
}
}  // namespace
