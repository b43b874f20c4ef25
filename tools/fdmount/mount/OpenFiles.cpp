#include "fdmount/mount/OpenFiles.h"

#include <algorithm>
#include <utility>

#include "fdmount/mount/Knowledge.h"

namespace fdmount {

std::string OpenFile::path() const {
    const std::lock_guard lock(m_mutex);
    return m_path;
}

OpenFile* OpenFiles::add(const std::string& path, std::unique_ptr<peer::File> file) {
    const std::lock_guard lock(m_mutex);
    Group& group = m_files[path];
    auto writes = group.empty() ? std::make_shared<Writes>() : group.begin()->second->m_writes;
    auto opened = std::make_unique<OpenFile>(path, std::move(file), std::move(writes));
    OpenFile* const key = opened.get();
    group.emplace(key, std::move(opened));
    return key;
}

void OpenFiles::remove(OpenFile* file) {
    std::unique_ptr<OpenFile> removed;  // closed outside the lock
    const std::lock_guard lock(m_mutex);
    const auto group = m_files.find(file->path());
    if (group == m_files.end()) return;
    const auto found = group->second.find(file);
    if (found == group->second.end()) return;
    removed = std::move(found->second);
    group->second.erase(found);
    if (group->second.empty()) m_files.erase(group);
}

bool OpenFiles::hasNew(const std::string& path) {
    const std::lock_guard lock(m_mutex);
    const auto group = m_files.find(path);
    return group != m_files.end() &&
           std::any_of(group->second.begin(), group->second.end(),
                       [](const auto& item) { return item.first->m_new.load(); });
}

std::optional<std::uint32_t> OpenFiles::lateMode(const std::string& path) {
    const std::lock_guard lock(m_mutex);
    const auto group = m_files.find(path);
    if (group == m_files.end()) return std::nullopt;
    for (const auto& [file, owner] : group->second) {
        if (file->m_lateMode != OpenFile::kNoMode) return file->m_lateMode;
    }
    return std::nullopt;
}

std::shared_ptr<peer::File> OpenFiles::takeLate(const std::string& path) {
    const std::lock_guard lock(m_mutex);
    const auto group = m_files.find(path);
    if (group == m_files.end()) return nullptr;
    for (const auto& [file, owner] : group->second) {
        if (file->takeLateMode() != OpenFile::kNoMode) return file->file();
    }
    return nullptr;
}

template <typename Matches>
void OpenFiles::settleWhere(const Matches& matches) {
    std::vector<std::shared_ptr<Writes>> found;
    {
        const std::lock_guard lock(m_mutex);
        for (const auto& [path, group] : m_files) {
            for (const auto& [file, owner] : group) {
                if (file->writes().areUnderWay() && matches(path)) found.push_back(file->m_writes);
            }
        }
    }
    for (const auto& writes : found) writes->settle();
}

void OpenFiles::settle(const std::string& path) {
    settleWhere([&](const std::string& file) { return file == path; });
}

void OpenFiles::settleIn(const std::string& folder) {
    settleWhere([&](const std::string& path) { return folderOf(path) == folder; });
}

void OpenFiles::settleWithin(const std::string& path) {
    settleWhere([&](const std::string& file) { return isWithin(file, path); });
}

void OpenFiles::settleAll() {
    settleWhere([](const std::string&) { return true; });
}

void OpenFiles::moved(const std::string& from, const std::string& to) {
    const std::lock_guard lock(m_mutex);
    std::vector<std::pair<std::string, Group>> moving;
    for (auto group = m_files.begin(); group != m_files.end();) {
        if (isWithin(group->first, from)) {
            moving.emplace_back(to + group->first.substr(from.size()), std::move(group->second));
            group = m_files.erase(group);
        } else {
            ++group;
        }
    }
    for (auto& [path, group] : moving) {
        for (const auto& [file, owner] : group) {
            const std::lock_guard fileLock(file->m_mutex);
            file->m_path = path;
        }
        m_files[path].merge(group);
    }
}

}  // namespace fdmount
