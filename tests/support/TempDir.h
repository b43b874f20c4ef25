// A folder of its own for a test, removed with all that is in it.
#pragma once

#include <filesystem>
#include <string>
#include <string_view>

class TempDir {
public:
    TempDir();
    ~TempDir();
    TempDir(const TempDir&) = delete;
    TempDir& operator=(const TempDir&) = delete;

    const std::filesystem::path& path() const { return m_path; }
    std::string str(std::string_view name = {}) const;

    // Makes a file and gives its path.
    std::string file(std::string_view name, std::string_view content = {}) const;
    std::string folder(std::string_view name) const;

private:
    std::filesystem::path m_path;
};

std::string readFile(const std::string& path);
