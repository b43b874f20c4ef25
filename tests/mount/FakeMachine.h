// A machine whose drives a test offers, withdraws and loses.
#pragma once

#include <mutex>
#include <string>
#include <utility>
#include <vector>

#include "peer/Machine.h"

class FakeMachine : public peer::Machine {
public:
    std::uint32_t offer(const std::string& name, std::shared_ptr<peer::FileSystem> files) {
        std::unique_lock lock(m_mutex);
        peer::Offer offer;
        offer.id = m_next++;
        offer.name = name;
        offer.kind = peer::Offer::Kind::kDisk;
        offer.files = std::move(files);
        m_offers.push_back(std::move(offer));
        const std::uint32_t id = m_offers.back().id;
        callListener(lock);
        return id;
    }

    void withdraw(std::uint32_t id) {
        std::unique_lock lock(m_mutex);
        std::erase_if(m_offers, [&](const peer::Offer& offer) { return offer.id == id; });
        callListener(lock);
    }

    void lose(const std::string& why) {
        std::unique_lock lock(m_mutex);
        m_ending = why;
        callListener(lock);
    }

    std::vector<peer::Offer> drives() override {
        const std::lock_guard lock(m_mutex);
        return m_offers;
    }
    bool waitForDrives(const std::function<bool(const std::vector<peer::Offer>&)>& found,
                       std::chrono::milliseconds /*limit*/) override {
        return found(drives());
    }
    void listen(Listener listener) override {
        const std::lock_guard lock(m_mutex);
        m_listener = std::move(listener);
    }
    std::string ending() const override {
        const std::lock_guard lock(m_mutex);
        return m_ending;
    }
    void cancel() override {}
    void resume() override {}

private:
    void callListener(std::unique_lock<std::mutex>& lock) {
        const Listener listener = m_listener;
        lock.unlock();
        if (listener) listener();
    }

    mutable std::mutex m_mutex;  // guards everything below
    std::uint32_t m_next = 1;
    std::vector<peer::Offer> m_offers;
    Listener m_listener;
    std::string m_ending;
};
