// The files that every contestant works on: made once, warm, removed at the end.
#pragma once

#include <cstddef>
#include <filesystem>
#include <string>

class TestTree {
public:
    static constexpr std::size_t kFileSize = std::size_t{64} << 20;
    static constexpr int kEntries = 10000;

    TestTree();
    ~TestTree();
    TestTree(const TestTree&) = delete;
    TestTree& operator=(const TestTree&) = delete;

    std::string root() const { return m_root.string(); }
    std::string readFile() const { return (m_root / "read.bin").string(); }
    std::string writeFile() const { return (m_root / "write.bin").string(); }
    std::string folder() const { return (m_root / "entries").string(); }

private:
    std::filesystem::path m_root;
};

// Made at the first call.
TestTree& testTree();

// Offsets that walk through the file in steps of one block, over and over.
class BlockWalk {
public:
    explicit BlockWalk(std::size_t blockSize) : m_blockSize(blockSize) {}

    std::size_t next() {
        const std::size_t offset = m_next;
        m_next += m_blockSize;
        if (m_next + m_blockSize > TestTree::kFileSize) m_next = 0;
        return offset;
    }

private:
    std::size_t m_blockSize;
    std::size_t m_next = 0;
};
