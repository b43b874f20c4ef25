// The machine at the other end of a channel, whose drives are offered, whichever dialect it is
// spoken to in. Every operation may be called from any thread.
#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "peer/Channel.h"
#include "peer/FileSystem.h"
#include "peer/windows/Policy.h"

namespace peer {

enum class Dialect { kLinux, kWindows };

// A drive as it was announced.
struct Offer {
    enum class Kind { kUnknown, kDisk, kRemovable, kOptical, kNetwork, kRoot, kPrinter };

    std::uint32_t id = 0;  // never used twice within a session
    std::string name;      // not unique
    Kind kind = Kind::kUnknown;
    std::string computer, folder;  // where it lies on the other side; empty: not told
    std::shared_ptr<FileSystem> files;
};

class Machine {
public:
    // A message leaves or has come. Called with a lock held: it must not call back.
    using TraceSink = std::function<void(const std::string& line)>;

    // The drives changed, or the session has ended. Called on a thread of the machine's own.
    using Listener = std::function<void()>;

    struct Options {
        windows::Policy policy;                    // the dialect's bit is set by connect()
        std::chrono::milliseconds timeout{30000};  // for one answer
        TraceSink trace;                           // may be empty
    };

    virtual ~Machine() = default;

    // The drives that can be used now. A drive that is gone answers SessionError or RemoteError.
    virtual std::vector<Offer> drives() = 0;

    // True once `found` holds for the drives. False if it did not when all drives of the other side
    // were known, or after `limit`.
    virtual bool waitForDrives(const std::function<bool(const std::vector<Offer>&)>& found,
                               std::chrono::milliseconds limit) = 0;

    virtual void listen(Listener listener) = 0;

    // Why the session has ended, in words; empty while it goes on.
    virtual std::string ending() const = 0;

    // Every wait, now and later, throws Cancelled, until resume().
    virtual void cancel() = 0;
    virtual void resume() = 0;

    // Waits for the handshake and answers it with the policy. The channel outlives the machine.
    static std::unique_ptr<Machine> connect(Channel& channel, Dialect dialect, Options options);
};

}  // namespace peer
