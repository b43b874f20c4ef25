// fdmount: plays the remote desktop at the other end of a channel, and browses the drives that it
// is offered.
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <exception>

#include "fdmount/Client.h"
#include "fdmount/Commands.h"
#include "fdmount/MountCommand.h"
#include "fdmount/Options.h"
#include "fdmount/Signals.h"
#include "peer/Text.h"

namespace fdmount {

namespace {

int run(Client& client) {
    switch (client.options().command) {
        case Command::kMount:
            break;  // is no command over one client: see main
        case Command::kDrives:
            return showDrives(client);
        case Command::kList:
            return listFolder(client);
        case Command::kStat:
            return showObject(client);
        case Command::kGet:
            return getFile(client);
        case Command::kPut:
            return putFile(client);
        case Command::kRemove:
            return removeObjects(client);
    }
    return kExitUsage;
}

int runAll(const Options& options) {
    try {
        Client client(options);
        const int exitCode = run(client);
        if (std::fflush(stdout) != 0) throw CommandError("standard output cannot be written");
        return exitCode;
    } catch (const std::exception& error) {
        if (stopSignal() == 0) warn(error.what());
    }
    if (stopSignal() == 0) return kExitFailure;
    warn("interrupted");
    return 128 + stopSignal();
}

}  // namespace

void warn(const std::string& text) {
    const std::string line = "fdmount: " + text + "\n";
    std::fflush(stdout);
    std::fputs(line.c_str(), stderr);
}

}  // namespace fdmount

int main(int argc, char** argv) {
    for (const int stream : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO}) peer::holdPlaceOf(stream);
    try {
        int exitCode = 0;
        const auto options = fdmount::parseOptions(argc, argv, exitCode);
        if (!options) return exitCode;
        peer::ignoreBrokenPipes();
        const bool mounts = options->command == fdmount::Command::kMount;
        if (!mounts) fdmount::handleStopSignals();
        exitCode = mounts ? fdmount::mountDrives(*options) : fdmount::runAll(*options);

        // The thread that waits for signals lives until here and no longer.
        std::fflush(nullptr);
        std::_Exit(exitCode);
    } catch (const std::exception& error) {
        fdmount::warn(error.what());
        return fdmount::kExitFailure;
    }
}
