// The filter of the root map: which of its paths the server may see. Setters run on the processing
// thread, the query on any.
#include <algorithm>
#include <memory>
#include <string_view>
#include <utility>

#include "common/Comm/FdLog.h"
#include "common/Policy/FdClientPolicy.h"

namespace {
constexpr const char* kSeparators = "/\\";

std::string_view withoutTrailingSeparators(std::string_view path) {
    return path.substr(0, path.find_last_not_of(kSeparators) + 1);  // npos + 1 is 0: nothing left
}

std::string_view withoutLeadingSeparators(std::string_view path) {
    path.remove_prefix(std::min(path.find_first_not_of(kSeparators), path.size()));
    return path;
}

// The entry as a path under the root map.
std::string prefixed(std::string_view rootPrefix, const std::string& entry) {
    const std::string stripped(withoutLeadingSeparators(entry));
    if (!stripped.empty()) {
        FD_LOG_INFO("[filterStr: %s] [filterstr2: %s]", entry.c_str(), stripped.c_str());
    }
    std::string result(rootPrefix);
    result.append("/").append(stripped);
    FD_LOG_INFO("[filterStr: %s]", result.c_str());
    return result;
}
}  // namespace

std::vector<std::string> FdClientPolicy::filterPathToVec(const std::string path, char delimiter) {
    FD_LOG_INFO("[path: %s] [delim: %c]", path.c_str(), delimiter);

    std::vector<std::string> entries;
    int count = 0;          // bytes since the last split
    std::size_t start = 0;  // of the current entry
    const auto append = [&](std::size_t end) {
        entries.push_back(path.substr(start, end - start));
        FD_LOG_INFO("[tmppath: %s] [delimlen: %d] [idx: %d]", entries.back().c_str(), count,
                    static_cast<int>(start));
    };

    for (std::size_t at = 0; at < path.size(); ++at) {
        if (path[at] != delimiter) {
            ++count;
        } else if (count > 0) {
            append(at);
            start = at + 1;
            count = 0;
        } else {
            // Kept: the start does not move, so this delimiter becomes part of the next entry.
            FD_LOG_WARN("[path: %s] [delimlen: %d] [idx: %d]", path.c_str(), count,
                        static_cast<int>(start));
        }
    }
    if (start != path.size()) append(path.size());
    return entries;
}

void FdClientPolicy::logRootDirFilterVec(const std::vector<std::string> entries) {
    FD_LOG_INFO(" ### logRootDirFilterVec() ### ");
    for (const std::string& entry : entries) FD_LOG_INFO("str: %s", entry.c_str());
}

bool FdClientPolicy::setLinuxDirFilterPath(const char* filterPath) {
    if (filterPath == nullptr) {
        FD_LOG_ERROR("filterPath == NULL");
        return false;
    }
    m_linuxDirFilterPath = filterPath;
    publishRootFilter(filterPathToVec(m_linuxDirFilterPath, m_delimiter));
    return true;
}

bool FdClientPolicy::setLinuxrootDir(const char* rootpath) {
    FD_LOG_INFO(" ### setLinuxrootDir() ### [rootpath: %s]",
                rootpath == nullptr ? "(null)" : rootpath);
    if (rootpath == nullptr) {
        FD_LOG_ERROR("rootpath == NULL");
        return false;
    }
    if (*rootpath == '\0') {
        FD_LOG_ERROR("len <= 0. [rootpath: %s]", rootpath);
        return false;
    }

    const std::string rootPrefix(withoutTrailingSeparators(rootpath));
    FD_LOG_INFO("root_prefix: %s", rootPrefix.c_str());
    RootFilter entries = *m_rootDirFilterVec;
    for (std::string& entry : entries) entry = prefixed(rootPrefix, entry);
    publishRootFilter(std::move(entries));
    return true;
}

void FdClientPolicy::publishRootFilter(RootFilter entries) {
    m_rootFilters.push_back(std::make_unique<const RootFilter>(std::move(entries)));
    m_rootDirFilterVec = m_rootFilters.back().get();
    logRootDirFilterVec(*m_rootFilters.back());
}

bool FdClientPolicy::isLinuxRootPathFilter(const char* path) const {
    if (path == nullptr || !isLinuxRootDirEnable()) return false;

    // The shorter of the two decides: ancestors of an entry stay visible, and all that begins like
    // one. Kept: no separator is looked for, so "/var/log" shows "/var/logs" as well.
    const std::string_view asked(path);
    const auto isVisibleBy = [asked](const std::string& entry) {
        const std::size_t length = std::min(entry.size(), asked.size());
        return asked.substr(0, length) == std::string_view(entry).substr(0, length);
    };
    return std::ranges::none_of(*m_rootDirFilterVec.load(), isVisibleBy);
}
