// The files of one drive that are open on the mount.
#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <unordered_map>
#include <vector>

#include "fdmount/mount/Writes.h"
#include "peer/FileSystem.h"

namespace fdmount {

// One open(2). All that are open under one path share their writes.
class OpenFile {
public:
    OpenFile(std::string path, std::shared_ptr<peer::File> file, std::shared_ptr<Writes> writes)
        : m_file(std::move(file)), m_writes(std::move(writes)), m_path(std::move(path)) {}

    const std::shared_ptr<peer::File>& file() const { return m_file; }
    Writes& writes() { return *m_writes; }
    std::string path() const;

    // It was made with permissions that only its end may give it, as nobody could write it with
    // them.
    void expectMode(std::uint32_t mode) { m_lateMode = mode; }
    std::uint32_t takeLateMode() { return m_lateMode.exchange(kNoMode); }
    static constexpr std::uint32_t kNoMode = ~0U;

    // It was made here and not closed since: what it is like need not be asked for.
    void markNew() { m_new = true; }
    bool takeNew() { return m_new.exchange(false); }

private:
    friend class OpenFiles;

    const std::shared_ptr<peer::File> m_file;
    const std::shared_ptr<Writes> m_writes;
    std::atomic<std::uint32_t> m_lateMode{kNoMode};
    std::atomic<bool> m_new{false};
    mutable std::mutex m_mutex;  // guards m_path
    std::string m_path;
};

class OpenFiles {
public:
    OpenFile* add(const std::string& path, std::unique_ptr<peer::File> file);
    void remove(OpenFile* file);

    bool hasNew(const std::string& path);

    // What a file that is open there has to become when it is closed.
    std::optional<std::uint32_t> lateMode(const std::string& path);

    // The file of which that was expected until now; null: none.
    std::shared_ptr<peer::File> takeLate(const std::string& path);

    // Wait until what was written there is on the other side.
    void settle(const std::string& path);
    void settleIn(const std::string& folder);  // in the folder itself
    void settleWithin(const std::string& path);
    void settleAll();

    // The open files follow, as they do on the drive.
    void moved(const std::string& from, const std::string& to);

private:
    using Group = std::unordered_map<OpenFile*, std::unique_ptr<OpenFile>>;

    template <typename Matches>
    void settleWhere(const Matches& matches);

    std::mutex m_mutex;                              // guards everything below
    std::unordered_map<std::string, Group> m_files;  // by path
};

}  // namespace fdmount
