// A drive over a folder of this machine, for tests of the mount: what is asked of it is counted,
// and can be made to fail.
#pragma once

#include <atomic>
#include <functional>
#include <map>
#include <mutex>
#include <set>
#include <string>

#include "peer/FileSystem.h"

class LocalFileSystem : public peer::FileSystem {
public:
    explicit LocalFileSystem(std::string root) : m_root(std::move(root)) {}

    // Called with the name of each operation before it is carried out; what it throws is the
    // answer.
    void onAsk(std::function<void(const std::string& operation)> hook);

    // How many operations of the name were asked for, or of any.
    int asked(const std::string& operation) const;
    int asked() const;
    void forgetAsked();

    void keepTimes(bool keeps) { m_keepsTimes = keeps; }

    peer::Attributes stat(std::string_view path) override;
    peer::Volume volume() override;
    void list(std::string_view path, const Take& take) override;
    std::unique_ptr<peer::File> open(std::string_view path, int flags) override;
    std::unique_ptr<peer::File> create(std::string_view path, int flags,
                                       std::uint32_t mode) override;
    void makeNode(std::string_view path, std::uint32_t mode, std::uint64_t device) override;
    void makeFolder(std::string_view path, std::uint32_t mode) override;
    void remove(std::string_view path) override;
    void removeFolder(std::string_view path) override;
    void rename(std::string_view from, std::string_view to) override;
    void link(std::string_view from, std::string_view to) override;
    void makeLink(const std::string& target, std::string_view path) override;
    std::string readLink(std::string_view path) override;
    void truncate(std::string_view path, std::int64_t size) override;
    std::optional<std::uint32_t> chmod(std::string_view path, std::uint32_t mode) override;
    void setTimes(std::string_view path, peer::Time accessed, peer::Time modified) override;
    bool keepsTimes() const override { return m_keepsTimes; }

private:
    friend class LocalFile;

    void ask(const std::string& operation);
    std::string local(std::string_view path) const;

    const std::string m_root;
    std::atomic<bool> m_keepsTimes{false};
    mutable std::mutex m_mutex;  // guards everything below
    std::map<std::string, int> m_asked;
    std::function<void(const std::string&)> m_hook;
    std::set<std::string*> m_open;  // the paths of open files, which follow renames
};
