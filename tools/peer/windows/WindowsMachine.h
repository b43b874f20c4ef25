// A machine that is spoken to in the Windows dialect.
#pragma once

#include <condition_variable>
#include <memory>
#include <mutex>
#include <thread>
#include <vector>

#include "peer/Machine.h"
#include "peer/windows/Session.h"

namespace peer::windows {

class WindowsMachine : public Machine {
public:
    WindowsMachine(Channel& channel, Options options);
    ~WindowsMachine() override;
    WindowsMachine(const WindowsMachine&) = delete;
    WindowsMachine& operator=(const WindowsMachine&) = delete;

    // Waits for the handshake and answers it. Once, before everything else.
    void open() { m_session->open(); }

    std::vector<Offer> drives() override;
    bool waitForDrives(const std::function<bool(const std::vector<Offer>&)>& found,
                       std::chrono::milliseconds limit) override;
    void listen(Listener listener) override;
    std::string ending() const override { return m_session->ending(); }
    void cancel() override { m_session->cancel(); }
    void resume() override { m_session->resume(); }

private:
    std::vector<Offer> offersOf(const std::vector<Drive>& drives);
    void tellLoop();

    std::mutex m_newsMutex;  // guards the two below
    std::condition_variable m_newsCame;
    bool m_news = false;
    bool m_stops = false;

    std::mutex m_listenerMutex;  // held while it runs; guards m_listener
    Listener m_listener;

    std::mutex m_offersMutex;  // guards m_offers
    std::vector<Offer> m_offers;

    const std::shared_ptr<Session> m_session;  // which files that are still open share
    std::thread m_teller;
};

}  // namespace peer::windows
