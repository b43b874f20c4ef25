#include "support/TempDir.h"

#include <cstdlib>
#include <fstream>
#include <sstream>
#include <stdexcept>
#include <system_error>
#include <utility>

TempDir::TempDir() {
    std::string name = (std::filesystem::temp_directory_path() / "zfd-test-XXXXXX").string();
    if (mkdtemp(name.data()) == nullptr) throw std::runtime_error("no temporary folder: " + name);
    m_path = name;
}

TempDir::~TempDir() {
    std::error_code ignored;
    std::filesystem::remove_all(m_path, ignored);
}

std::string TempDir::str(std::string_view name) const {
    return name.empty() ? m_path.string() : (m_path / name).string();
}

std::string TempDir::file(std::string_view name, std::string_view content) const {
    const std::string path = str(name);
    std::ofstream(path, std::ios::binary) << content;
    return path;
}

std::string TempDir::folder(std::string_view name) const {
    const std::string path = str(name);
    std::filesystem::create_directories(path);
    return path;
}

std::string readFile(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    std::ostringstream content;
    content << in.rdbuf();
    return std::move(content).str();
}
