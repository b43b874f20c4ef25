#include "peer/Machine.h"

#include "peer/linux/LinuxMachine.h"
#include "peer/windows/WindowsMachine.h"

namespace peer {

namespace {

template <typename Kind>
std::unique_ptr<Machine> connected(Channel& channel, Machine::Options options) {
    auto machine = std::make_unique<Kind>(channel, std::move(options));
    machine->open();
    return machine;
}

}  // namespace

std::unique_ptr<Machine> Machine::connect(Channel& channel, Dialect dialect, Options options) {
    return dialect == Dialect::kLinux
               ? connected<linux::LinuxMachine>(channel, std::move(options))
               : connected<windows::WindowsMachine>(channel, std::move(options));
}

}  // namespace peer
