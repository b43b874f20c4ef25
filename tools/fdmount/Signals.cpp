#include "fdmount/Signals.h"

#include <poll.h>
#include <signal.h>

#include <atomic>
#include <cerrno>
#include <mutex>
#include <thread>
#include <utility>

#include "peer/Errors.h"
#include "peer/WakePipe.h"

namespace fdmount {

namespace {

std::atomic<int> g_signal{0};
std::atomic<const peer::WakePipe*> g_pipe{nullptr};
std::mutex g_mutex;  // guards g_action, and is held while it runs
std::function<void()> g_action;

void onSignal(int number) {
    g_signal = number;
    if (const peer::WakePipe* pipe = g_pipe; pipe != nullptr) pipe->wake();
}

void watch(const peer::WakePipe& pipe) {
    pollfd one{pipe.readEnd(), POLLIN, 0};
    while (::poll(&one, 1, -1) < 0 && errno == EINTR) {
    }
    const std::lock_guard lock(g_mutex);
    if (g_action) g_action();
}

}  // namespace

void handleStopSignals() {
    static const peer::WakePipe pipe;
    g_pipe = &pipe;
    struct sigaction action {};
    action.sa_handler = onSignal;
    action.sa_flags = static_cast<int>(SA_RESETHAND);
    ::sigaction(SIGINT, &action, nullptr);
    ::sigaction(SIGTERM, &action, nullptr);
    if (::signal(SIGHUP, SIG_IGN) != SIG_IGN) ::sigaction(SIGHUP, &action, nullptr);  // not nohup
    std::thread([] { watch(pipe); }).detach();
}

void onStopSignal(std::function<void()> action) {
    const std::lock_guard lock(g_mutex);
    g_action = std::move(action);
    if (g_signal != 0 && g_action) g_action();
}

void waitUnlessStopped(int fd, short events) {
    const peer::WakePipe* pipe = g_pipe;
    pollfd both[2] = {{fd, events, 0}, {pipe != nullptr ? pipe->readEnd() : -1, POLLIN, 0}};
    while (::poll(both, 2, -1) < 0 && errno == EINTR) {
    }
    if (both[1].revents != 0) throw peer::Cancelled();
}

int stopSignal() {
    return g_signal;
}

}  // namespace fdmount
