#include "TestTree.h"

#include <cstdlib>
#include <fstream>
#include <stdexcept>
#include <system_error>
#include <vector>

namespace {
void writeBlocks(const std::filesystem::path& path, std::size_t size) {
    std::vector<char> block(std::size_t{1} << 20);
    for (std::size_t i = 0; i < block.size(); ++i) block[i] = static_cast<char>(i * 7);
    std::ofstream out(path, std::ios::binary);
    for (std::size_t done = 0; done < size; done += block.size()) {
        out.write(block.data(), static_cast<std::streamsize>(block.size()));
    }
    if (!out) throw std::runtime_error("cannot write " + path.string());
}
}  // namespace

TestTree::TestTree() {
    std::string name = (std::filesystem::temp_directory_path() / "zfd-bench-XXXXXX").string();
    if (mkdtemp(name.data()) == nullptr) throw std::runtime_error("no temporary folder: " + name);
    m_root = name;
    writeBlocks(readFile(), kFileSize);
    writeBlocks(writeFile(), kFileSize);
    std::filesystem::create_directory(folder());
    for (int i = 0; i < kEntries; ++i) {
        std::ofstream(folder() + "/document-" + std::to_string(10000 + i) + ".txt");
    }
}

TestTree::~TestTree() {
    std::error_code ignored;
    std::filesystem::remove_all(m_root, ignored);
}

TestTree& testTree() {
    static TestTree tree;
    return tree;
}
