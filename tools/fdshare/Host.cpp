#include "fdshare/Host.h"

#include <exception>
#include <optional>

#include "ZFdClientMgr.h"
#include "fdshare/Log.h"

namespace host {

namespace {

// The plug-in with the calls that a host owes it.
class PlugIn {
public:
    explicit PlugIn(const std::shared_ptr<peer::Channel>& channel) : m_channel(channel) {
        m_manager.Init([channel](char* data, int size) { return write(*channel, data, size); },
                       [](int /*code*/, char* text, unsigned /*size*/) {
                           sayInfo(std::string("metric: ") + text);
                           return 0;
                       });
        m_manager.Start();
        m_manager.SendHandShake();
    }
    ~PlugIn() {
        m_channel->interrupt();  // frees a thread that waits for a reader
        m_manager.Stop();
        m_manager.Release();
    }
    PlugIn(const PlugIn&) = delete;
    PlugIn& operator=(const PlugIn&) = delete;

    void put(peer::Bytes& message) {
        m_manager.PutMsg(message.data(), static_cast<int>(message.size()));
    }

private:
    // The plug-in hears of no failure: the connection is over then, and nobody waits for the rest.
    static int write(peer::Channel& channel, const char* data, int size) {
        if (size <= 0) return 0;  // a write of nothing is no message
        try {
            channel.send({data, static_cast<std::size_t>(size)});
        } catch (const peer::ChannelError& error) {
            sayInfo(error.what());
            channel.interrupt();
        }
        return size;
    }

    std::shared_ptr<peer::Channel> m_channel;
    ZFdClientMgr m_manager;
};

}  // namespace

std::string serve(const std::shared_ptr<peer::Channel>& channel, const HostLimit& limit) {
    try {
        PlugIn plugIn(channel);
        while (std::optional<peer::Bytes> message = channel->receive()) {
            if (applyLimit(limit, *message)) {
                plugIn.put(*message);
            } else {
                say(channel->name() + ": a policy that cannot be read was dropped");
            }
        }
        return {};
    } catch (const peer::ChannelInterrupted&) {
        return {};
    } catch (const std::exception& error) {
        return error.what();
    }
}

}  // namespace host
