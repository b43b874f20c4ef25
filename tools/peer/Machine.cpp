#include "peer/Machine.h"

#include <stdexcept>

#include "peer/linux/LinuxMachine.h"

namespace peer {

std::unique_ptr<Machine> Machine::connect(Channel& channel, Dialect dialect, Options options) {
    if (dialect != Dialect::kLinux) throw std::invalid_argument("no such dialect");
    auto machine = std::make_unique<linux::LinuxMachine>(channel, std::move(options));
    machine->open();
    return machine;
}

}  // namespace peer
