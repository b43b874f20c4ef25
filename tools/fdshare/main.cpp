// fdshare: loads the plug-in and offers this machine's drives, or chosen folders, over a channel.
#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <exception>
#include <memory>
#include <thread>

#include "fdshare/Host.h"
#include "fdshare/Log.h"
#include "fdshare/Options.h"
#include "fdshare/Shares.h"
#include "peer/Endpoint.h"

namespace {

// Written once, before the handlers are set.
const peer::WakePipe* g_stop = nullptr;

void onStopSignal(int /*signal*/) {
    g_stop->wake();
}

void handleSignals(const peer::WakePipe& stop) {
    g_stop = &stop;
    struct sigaction action {};
    action.sa_handler = onStopSignal;
    action.sa_flags = static_cast<int>(SA_RESETHAND);  // the second one ends the process at once
    ::sigaction(SIGINT, &action, nullptr);
    ::sigaction(SIGTERM, &action, nullptr);
    if (::signal(SIGHUP, SIG_IGN) != SIG_IGN) ::sigaction(SIGHUP, &action, nullptr);  // not nohup
    peer::ignoreBrokenPipes();
}

// Interrupts the channel that is served when a signal comes.
class Stopper {
public:
    Stopper(const peer::WakePipe& stop, std::shared_ptr<peer::Channel> channel)
        : m_thread([this, &stop, channel = std::move(channel)] {
              if (waitForEither(stop)) channel->interrupt();
          }) {}
    ~Stopper() {
        m_done.wake();
        m_thread.join();
    }
    Stopper(const Stopper&) = delete;
    Stopper& operator=(const Stopper&) = delete;

private:
    // True for `stop`.
    bool waitForEither(const peer::WakePipe& stop) const {
        pollfd both[2] = {{stop.readEnd(), POLLIN, 0}, {m_done.readEnd(), POLLIN, 0}};
        while (::poll(both, 2, -1) < 0 && errno == EINTR) {
        }
        return both[0].revents != 0;
    }

    peer::WakePipe m_done;
    std::thread m_thread;
};

bool isAwake(const peer::WakePipe& stop) {
    pollfd one{stop.readEnd(), POLLIN, 0};
    return ::poll(&one, 1, 0) > 0;
}

// True if the connection ended as it should.
bool serveOne(const std::shared_ptr<peer::Channel>& channel, const host::HostLimit& limit,
              const peer::WakePipe& stop) {
    host::sayInfo(channel->name() + ": connected");
    std::string why;
    {
        const Stopper stopper(stop, channel);
        why = host::serve(channel, limit);
    }
    if (!why.empty()) host::say(why);
    host::sayInfo(channel->name() + ": disconnected");
    return why.empty();
}

bool allows(int fd, int accessMode) {
    const int mode = ::fcntl(fd, F_GETFL) & O_ACCMODE;
    return mode == accessMode || mode == O_RDWR;
}

// The channel gets the descriptors for itself, so that nothing else can end up in it.
std::shared_ptr<peer::Channel> takeStandardStreams() {
    peer::FileDescriptor in(::fcntl(STDIN_FILENO, F_DUPFD_CLOEXEC, 3));
    peer::FileDescriptor out(::fcntl(STDOUT_FILENO, F_DUPFD_CLOEXEC, 3));
    if (!in || !out || !allows(in.get(), O_RDONLY) || !allows(out.get(), O_WRONLY)) {
        throw peer::ChannelError("standard input or output is closed");
    }
    const peer::FileDescriptor nothing(::open("/dev/null", O_RDWR | O_CLOEXEC));
    ::dup2(nothing.get(), STDIN_FILENO);
    ::dup2(STDERR_FILENO, STDOUT_FILENO);
    return std::make_shared<peer::Channel>(std::move(in), std::move(out),
                                           "standard input and output");
}

int serveStandardStreams(const Options& options, const peer::WakePipe& stop) {
    const std::shared_ptr<peer::Channel> channel = takeStandardStreams();
    const host::HostLimit limit = host::prepareShares(options);
    return serveOne(channel, limit, stop) ? 0 : kExitFailure;
}

// To whoever has started this process with port 0.
void tellPort(const std::string& endpoint) {
    std::printf("%s\n", endpoint.c_str());
    std::fflush(stdout);
}

int serveSocket(const Options& options, const peer::WakePipe& stop) {
    peer::Listener listener(options.listen);
    const host::HostLimit limit = host::prepareShares(options);
    if (listener.name() != options.listen) tellPort(listener.name());
    host::sayInfo(listener.name() + ": listening");
    while (!isAwake(stop)) {
        std::shared_ptr<peer::Channel> channel = listener.accept(stop);
        if (channel) serveOne(channel, limit, stop);
    }
    return 0;
}

}  // namespace

int main(int argc, char** argv) {
    for (const int stream : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO}) peer::holdPlaceOf(stream);
    try {
        int exitCode = 0;
        const std::optional<Options> options = parseOptions(argc, argv, exitCode);
        if (!options) return exitCode;
        const peer::WakePipe stop;
        handleSignals(stop);
        host::setUpLog(options->verbosity);
        return options->stdio ? serveStandardStreams(*options, stop) : serveSocket(*options, stop);
    } catch (const std::exception& error) {
        host::say(error.what());
        return kExitFailure;
    }
}
