// What has been learned of a drive's objects within the last moments. The kernel keeps attributes
// for longer; this is for the questions that come twice within one call, for the names that a
// folder has not, and for what a listing told of objects that are asked for one by one right after.
//
// An answer is learned only if nothing was changed from here since it was asked for.
#pragma once

#include <chrono>
#include <cstdint>
#include <mutex>
#include <optional>
#include <string>
#include <unordered_map>
#include <unordered_set>
#include <vector>

#include "peer/FileSystem.h"

namespace fdmount {

// The clock of most drives: whole seconds.
peer::Time wholeSecondsNow();

std::string_view folderOf(std::string_view path);
std::string_view nameIn(std::string_view path);
bool isWithin(std::string_view path, std::string_view folder);  // or is it

class Knowledge {
public:
    using Clock = std::chrono::steady_clock;
    using Stamp = std::uint64_t;

    // `fresh`: how long something is taken as true.
    explicit Knowledge(Clock::duration fresh) : m_fresh(fresh) {}

    // Taken before a question is sent.
    Stamp stamp() const;

    void learn(Stamp asked, const std::string& path, const peer::Attributes& attributes);
    void learnFolder(Stamp asked, const std::string& path,
                     const std::vector<peer::DirEntry>& entries);

    // What was not asked for: good enough for roughAttributes().
    void guess(const std::string& path, const peer::Attributes& attributes);

    std::optional<peer::Attributes> attributes(const std::string& path) const;

    // The same, also if they were changed since in ways that cannot be told, such as their times.
    std::optional<peer::Attributes> roughAttributes(const std::string& path) const;

    // Whether the folder is known in full, and has no such name.
    bool isAbsent(const std::string& path) const;

    // Counts a question that nothing here answered, unless it is about something that was changed
    // from here. True if so many came for one folder that listing it is cheaper.
    bool isFolderInDemand(const std::string& path);

    void made(const std::string& path, bool emptyFolder);
    void removed(const std::string& path);
    void moved(const std::string& from, const std::string& to);
    void changed(const std::string& path);
    void unsure(const std::string& path);  // nothing is known of it any more
    void wrote(const std::string& path, std::int64_t end);
    void resized(const std::string& path, std::int64_t size);
    void gaveMode(const std::string& path, std::uint32_t mode);  // permissions and the like

private:
    struct Object {
        peer::Attributes attributes;
        Clock::time_point learned;
        bool exact = true;
    };
    struct Folder {
        std::unordered_set<std::string> names;
        Clock::time_point learned;
    };
    struct Demand {
        Clock::time_point since;
        std::size_t questions = 0;
        std::size_t entries = 0;  // when it was listed last
    };

    bool isFresh(Clock::time_point learned) const { return Clock::now() - learned < m_fresh; }
    void keepWithinBounds();
    void forget(const std::string& path);
    void forgetWithin(const std::string& path);
    void blur(const std::string& path);
    peer::Attributes* touch(const std::string& path);  // null: nothing is known
    void nameAppears(const std::string& path);
    void nameVanishes(const std::string& path);

    const Clock::duration m_fresh;
    mutable std::mutex m_mutex;  // guards everything below
    Stamp m_changes = 0;
    std::unordered_map<std::string, Object> m_objects;
    std::unordered_map<std::string, Folder> m_folders;
    std::unordered_map<std::string, Demand> m_demand;
};

}  // namespace fdmount
