// A machine that is spoken to in the Linux dialect.
#pragma once

#include <memory>
#include <mutex>
#include <vector>

#include "peer/Machine.h"
#include "peer/linux/Session.h"

namespace peer::linux {

class LinuxMachine : public Machine {
public:
    LinuxMachine(Channel& channel, Options options);
    ~LinuxMachine() override;
    LinuxMachine(const LinuxMachine&) = delete;
    LinuxMachine& operator=(const LinuxMachine&) = delete;

    // Waits for the handshake and answers it. Once, before everything else.
    void open() { m_session->open(); }

    std::vector<Offer> drives() override;
    bool waitForDrives(const std::function<bool(const std::vector<Offer>&)>& found,
                       std::chrono::milliseconds limit) override;
    void listen(Listener listener) override { m_session->listen(std::move(listener)); }
    std::string ending() const override { return m_session->ending(); }
    void cancel() override { m_session->cancel(); }
    void resume() override { m_session->resume(); }

private:
    struct Known {
        DrivePtr drive;
        Offer offer;
    };

    std::vector<Offer> offersOf(const std::vector<DrivePtr>& drives);

    const std::shared_ptr<Session> m_session;  // which files that are still open share
    std::mutex m_knownMutex;                   // guards m_known
    std::vector<Known> m_known;
};

}  // namespace peer::linux
