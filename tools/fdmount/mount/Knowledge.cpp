#include "fdmount/mount/Knowledge.h"

#include <algorithm>

namespace fdmount {

namespace {

// Beyond these the oldest knowledge is not worth its memory.
constexpr std::size_t kMostObjects = 50000;
constexpr std::size_t kMostFolders = 2000;
constexpr std::size_t kMostNames = 20000;  // in one folder

constexpr std::int64_t kBlock = 512;

// An entry of a listing costs about this part of a question of its own.
constexpr std::size_t kEntriesPerQuestion = 64;
constexpr std::size_t kLeastQuestions = 8;

std::string joined(const std::string& folder, const std::string& name) {
    return folder.empty() ? name : folder + "/" + name;
}

template <typename Map>
void eraseWithin(Map& map, const std::string& path) {
    std::erase_if(map, [&](const auto& item) { return isWithin(item.first, path); });
}

}  // namespace

peer::Time wholeSecondsNow() {
    using std::chrono::nanoseconds;
    const auto now = std::chrono::system_clock::now().time_since_epoch();
    return nanoseconds(std::chrono::duration_cast<std::chrono::seconds>(now)).count();
}

std::string_view folderOf(std::string_view path) {
    const std::size_t slash = path.rfind('/');
    return slash == std::string_view::npos ? std::string_view() : path.substr(0, slash);
}

std::string_view nameIn(std::string_view path) {
    const std::size_t slash = path.rfind('/');
    return slash == std::string_view::npos ? path : path.substr(slash + 1);
}

bool isWithin(std::string_view path, std::string_view folder) {
    return folder.empty() || (path.starts_with(folder) &&
                              (path.size() == folder.size() || path[folder.size()] == '/'));
}

Knowledge::Stamp Knowledge::stamp() const {
    const std::lock_guard lock(m_mutex);
    return m_changes;
}

void Knowledge::learn(Stamp asked, const std::string& path, const peer::Attributes& attributes) {
    const std::lock_guard lock(m_mutex);
    if (asked != m_changes) return;
    keepWithinBounds();
    m_objects[path] = {attributes, Clock::now()};
}

void Knowledge::learnFolder(Stamp asked, const std::string& path,
                            const std::vector<peer::DirEntry>& entries) {
    const std::lock_guard lock(m_mutex);
    m_demand[path] = {Clock::now(), 0, entries.size()};
    if (asked != m_changes || entries.size() > kMostNames) return;
    keepWithinBounds();
    const auto now = Clock::now();
    Folder folder{{}, now};
    for (const peer::DirEntry& entry : entries) {
        folder.names.insert(entry.name);
        m_objects[joined(path, entry.name)] = {entry.attributes, now};
    }
    m_folders[path] = std::move(folder);
}

void Knowledge::guess(const std::string& path, const peer::Attributes& attributes) {
    const std::lock_guard lock(m_mutex);
    keepWithinBounds();
    m_objects[path] = {attributes, Clock::now(), false};
}

std::optional<peer::Attributes> Knowledge::attributes(const std::string& path) const {
    const std::lock_guard lock(m_mutex);
    const auto object = m_objects.find(path);
    if (object == m_objects.end() || !object->second.exact || !isFresh(object->second.learned)) {
        return std::nullopt;
    }
    return object->second.attributes;
}

std::optional<peer::Attributes> Knowledge::roughAttributes(const std::string& path) const {
    const std::lock_guard lock(m_mutex);
    const auto object = m_objects.find(path);
    if (object == m_objects.end() || !isFresh(object->second.learned)) return std::nullopt;
    return object->second.attributes;
}

bool Knowledge::isAbsent(const std::string& path) const {
    if (path.empty()) return false;  // the drive itself, which is in no folder of its own
    const std::lock_guard lock(m_mutex);
    const auto folder = m_folders.find(std::string(folderOf(path)));
    return folder != m_folders.end() && isFresh(folder->second.learned) &&
           !folder->second.names.contains(std::string(nameIn(path)));
}

bool Knowledge::isFolderInDemand(const std::string& path) {
    const std::lock_guard lock(m_mutex);
    const auto object = m_objects.find(path);
    if (object != m_objects.end() && !object->second.exact) return false;
    keepWithinBounds();
    Demand& demand = m_demand[std::string(folderOf(path))];
    if (!isFresh(demand.since)) demand = {Clock::now(), 0, demand.entries};
    ++demand.questions;
    const std::size_t enough = std::max(kLeastQuestions, demand.entries / kEntriesPerQuestion);
    if (demand.questions < enough) return false;
    demand.questions = 0;  // one lists, the others go on asking
    return true;
}

void Knowledge::made(const std::string& path, bool emptyFolder) {
    const std::lock_guard lock(m_mutex);
    ++m_changes;
    forget(path);
    nameAppears(path);
    if (emptyFolder) m_folders[path] = {{}, Clock::now()};
}

void Knowledge::removed(const std::string& path) {
    const std::lock_guard lock(m_mutex);
    ++m_changes;
    forget(path);
    nameVanishes(path);
}

void Knowledge::moved(const std::string& from, const std::string& to) {
    const std::lock_guard lock(m_mutex);
    ++m_changes;
    forgetWithin(from);
    forgetWithin(to);
    nameVanishes(from);
    nameAppears(to);
}

void Knowledge::changed(const std::string& path) {
    const std::lock_guard lock(m_mutex);
    ++m_changes;
    blur(path);
}

void Knowledge::unsure(const std::string& path) {
    const std::lock_guard lock(m_mutex);
    ++m_changes;
    m_objects.erase(path);
}

void Knowledge::wrote(const std::string& path, std::int64_t end) {
    const std::lock_guard lock(m_mutex);
    if (peer::Attributes* known = touch(path)) {
        known->modified = known->changed;
        known->size = std::max(known->size, end);
        known->blocks = (known->size + kBlock - 1) / kBlock;
    }
}

void Knowledge::resized(const std::string& path, std::int64_t size) {
    const std::lock_guard lock(m_mutex);
    if (peer::Attributes* known = touch(path)) {
        known->modified = known->changed;
        known->size = size;
        known->blocks = (size + kBlock - 1) / kBlock;
    }
}

void Knowledge::gaveMode(const std::string& path, std::uint32_t mode) {
    const std::lock_guard lock(m_mutex);
    if (peer::Attributes* known = touch(path)) known->mode = (known->mode & ~07777U) | mode;
}

void Knowledge::keepWithinBounds() {
    if (m_objects.size() > kMostObjects) m_objects.clear();
    if (m_folders.size() > kMostFolders) m_folders.clear();
    if (m_demand.size() > kMostFolders) m_demand.clear();
}

void Knowledge::forget(const std::string& path) {
    m_objects.erase(path);
    m_folders.erase(path);
    m_demand.erase(path);
}

// Only folders have something within. To walk all that is known for each file that goes would cost
// more than it has saved.
void Knowledge::forgetWithin(const std::string& path) {
    const auto object = m_objects.find(path);
    const bool isFile = object != m_objects.end() && !object->second.attributes.isDirectory();
    if (isFile) return forget(path);
    eraseWithin(m_objects, path);
    eraseWithin(m_folders, path);
    eraseWithin(m_demand, path);
}

void Knowledge::blur(const std::string& path) {
    if (const auto object = m_objects.find(path); object != m_objects.end()) {
        object->second.exact = false;
    }
}

// What is told of it from here on is a guess, though a good one.
peer::Attributes* Knowledge::touch(const std::string& path) {
    ++m_changes;
    const auto object = m_objects.find(path);
    if (object == m_objects.end()) return nullptr;
    object->second.exact = false;
    object->second.attributes.changed = wholeSecondsNow();
    return &object->second.attributes;
}

void Knowledge::nameAppears(const std::string& path) {
    const std::string folder(folderOf(path));
    blur(folder);
    if (const auto known = m_folders.find(folder); known != m_folders.end()) {
        known->second.names.emplace(nameIn(path));
    }
}

void Knowledge::nameVanishes(const std::string& path) {
    const std::string folder(folderOf(path));
    blur(folder);
    if (const auto known = m_folders.find(folder); known != m_folders.end()) {
        known->second.names.erase(std::string(nameIn(path)));
    }
}

}  // namespace fdmount
