// SIGINT, SIGTERM and SIGHUP end a command in good order: what was begun is cleaned up. A second
// one ends the process at once.
#pragma once

#include <functional>

namespace fdmount {

// Once, before any other thread is started.
void handleStopSignals();

// What the first signal does, on a thread of its own. Nothing if empty. When this returns, the
// action that was set before is not running any more.
void onStopSignal(std::function<void()> action);

// The signal that came, or 0.
int stopSignal();

// Waits until `fd` can be read or written, as poll's `events` say. Throws Cancelled once a signal
// has come, also if that was before: a read that is begun then would not end by it.
void waitUnlessStopped(int fd, short events);

}  // namespace fdmount
