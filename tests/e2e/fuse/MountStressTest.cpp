// Eight processes work in one tree on the mount for a while; then both sides hold the same.
#include <fcntl.h>
#include <sys/wait.h>

#include <chrono>
#include <cstdlib>
#include <iostream>
#include <random>
#include <system_error>

#include "e2e/fuse/MountedFixture.h"
#include "e2e/fuse/Tree.h"
#include "peer/FileDescriptor.h"

namespace {

constexpr int kProcesses = 8;
constexpr std::chrono::seconds kUsually{10};  // ZFD_STRESS_SECONDS asks for another time

std::chrono::seconds howLong() {
    const char* const wanted = std::getenv("ZFD_STRESS_SECONDS");
    return wanted != nullptr ? std::chrono::seconds(std::atoi(wanted)) : kUsually;
}

// One process: makes, writes, reads, renames and removes files of its own and of the others. What
// others took away is no failure; bytes that nobody wrote are.
class Worker {
public:
    Worker(std::string root, int number)
        : m_root(std::move(root)), m_random(static_cast<unsigned>(number) * 7919U + 1) {}

    // The exit code: 0, or the step that went wrong.
    int work(std::chrono::steady_clock::time_point end) {
        while (std::chrono::steady_clock::now() < end) {
            const int step = below(6);
            errno = 0;
            if ((this->*kSteps[step])()) continue;
            const std::string why = m_why.empty() ? std::generic_category().message(errno) : m_why;
            std::cerr << "step " << step + 1 << " on " << m_path << ": " << why << std::endl;
            return step + 1;
        }
        return 0;
    }

private:
    using Step = bool (Worker::*)();

    int below(int limit) { return std::uniform_int_distribution<>(0, limit - 1)(m_random); }
    std::string folder() { return m_root + "/d" + std::to_string(below(4)); }
    std::string anyName() {
        m_path = folder() + "/f" + std::to_string(below(20));
        return m_path;
    }

    // ESTALE is what libfuse says of a file that was removed between the kernel's lookup and its
    // next request; the kernel tries once more, and has bad luck again at times.
    static bool gone() { return errno == ENOENT || errno == ENODEV || errno == ESTALE; }

    // A file holds one letter as often as its size says.
    bool make() {
        const peer::FileDescriptor file(
            ::open(anyName().c_str(), O_WRONLY | O_CREAT | O_EXCL, 0644));
        if (!file) return errno == EEXIST || gone();
        const std::string bytes(static_cast<std::size_t>(1 + below(200'000)),
                                static_cast<char>('a' + below(26)));
        return ::write(file.get(), bytes.data(), bytes.size()) ==
                   static_cast<ssize_t>(bytes.size()) ||
               gone();
    }
    bool check() {
        const peer::FileDescriptor file(::open(anyName().c_str(), O_RDONLY));
        if (!file) return gone();
        std::string bytes(300'000, '\0');
        const ssize_t count = ::read(file.get(), bytes.data(), bytes.size());
        if (count < 0) return gone();
        bytes.resize(static_cast<std::size_t>(count));
        const std::size_t wrong =
            bytes.find_first_not_of(std::string("abcdefghijklmnopqrstuvwxyz") + '\0');
        if (wrong == std::string::npos) return true;
        m_why = "byte " + std::to_string(wrong) + " of " + std::to_string(count) + " is " +
                std::to_string(static_cast<unsigned char>(bytes[wrong]));
        return false;
    }
    bool move() { return ::rename(anyName().c_str(), anyName().c_str()) == 0 || gone(); }
    bool remove() { return ::unlink(anyName().c_str()) == 0 || gone(); }
    bool lookAround() {
        struct stat info {};
        return ::stat(anyName().c_str(), &info) == 0 || gone();
    }
    bool list() {
        std::error_code error;
        for (const auto& entry : std::filesystem::directory_iterator(folder(), error)) {
            std::error_code ignored;
            static_cast<void>(entry.file_size(ignored));
        }
        return !error;
    }

    static constexpr Step kSteps[] = {&Worker::make,   &Worker::check,      &Worker::move,
                                      &Worker::remove, &Worker::lookAround, &Worker::list};

    const std::string m_root;
    std::mt19937 m_random;
    std::string m_path;  // the last one
    std::string m_why;   // what went wrong, if no call failed
};

class MountStressTest : public MountedFixture, public ::testing::WithParamInterface<DialectWords> {
protected:
    MountStressTest() : MountedFixture(GetParam()) {}
};

TEST_P(MountStressTest, EightProcessesLeaveBothSidesTheSame) {
    share();
    startMount();
    const std::string root = m_there + "/tree";
    ASSERT_EQ(::mkdir(root.c_str(), 0755), 0);
    for (int i = 0; i < 4; ++i) {
        ASSERT_EQ(::mkdir((root + "/d" + std::to_string(i)).c_str(), 0755), 0);
    }

    const auto end = std::chrono::steady_clock::now() + howLong();
    std::vector<pid_t> workers;
    for (int i = 0; i < kProcesses; ++i) {
        const pid_t worker = ::fork();
        ASSERT_GE(worker, 0);
        if (worker == 0) ::_exit(Worker(root, i).work(end));
        workers.push_back(worker);
    }
    for (const pid_t worker : workers) {
        int status = 0;
        ASSERT_EQ(::waitpid(worker, &status, 0), worker);
        EXPECT_TRUE(WIFEXITED(status));
        EXPECT_EQ(WEXITSTATUS(status), 0);
    }

    const Tree onMount = treeOf(root);
    EXPECT_EQ(differences(onMount, treeOf(m_share + "/tree")), "");
    EXPECT_GT(onMount.size(), 4u);
    EXPECT_EQ(stopMount().exitCode, 0);
}

INSTANTIATE_TEST_SUITE_P(Dialects, MountStressTest, ::testing::Values(kLinux, kWindows),
                         [](const auto& test) { return test.param.name; });

}  // namespace
