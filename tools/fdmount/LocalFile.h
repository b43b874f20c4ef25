// Local files of a copy.
#pragma once

#include <cstdint>
#include <string>

#include "peer/Bytes.h"
#include "peer/FileDescriptor.h"

namespace fdmount {

// Where a copy from a drive goes: a file that takes its final name only when it is whole, or
// standard output. Whatever ends the copy before, no trace of it stays.
class Target {
public:
    // `name` is "-", the name of the file, or a folder for a file that is called `fileName`. Throws
    // CommandError for what cannot be replaced by a file.
    Target(const std::string& name, const std::string& fileName, std::uint32_t permissions);
    ~Target();
    Target(const Target&) = delete;
    Target& operator=(const Target&) = delete;

    void write(peer::View bytes);
    void finish();

private:
    [[noreturn]] void fail(int error) const;

    std::string m_name;
    std::string m_temporary;  // empty for standard output and behind finish()
    peer::FileDescriptor m_file;
    std::size_t m_chunk = std::size_t{1} << 20;  // of one write: what a pipe takes without a wait
};

// What is copied to a drive: a regular file, or standard input.
class Source {
public:
    explicit Source(const std::string& name);

    // Fewer than `count` bytes only at the end.
    peer::Bytes read(std::size_t count);

    std::int64_t size() const { return m_size; }  // -1: not known
    std::uint32_t permissions() const { return m_permissions; }
    std::string fileName() const;  // empty for standard input

private:
    std::string m_name;
    peer::FileDescriptor m_file;
    std::int64_t m_size = -1;
    bool m_isStream = false;
    std::uint32_t m_permissions = 0666;
};

}  // namespace fdmount
