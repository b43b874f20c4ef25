#include "fdmount/MountCommand.h"

#include <syslog.h>
#include <unistd.h>

#include <exception>
#include <stdexcept>

#include "fdmount/Client.h"
#include "fdmount/Commands.h"
#include "fdmount/Signals.h"
#include "fdmount/fuse/Background.h"
#include "fdmount/mount/LiveMount.h"
#include "fdmount/mount/MountPoint.h"

namespace fdmount {

namespace {

using End = LiveMount::End;

// The exit code of a mount that has ended. A lost connection is told to the system's log too, since
// nobody may be watching.
int reportEnd(End end, const peer::Machine& machine, const std::string& mountPoint) {
    if (end != End::kLost || stopSignal() != 0) return 0;
    const std::string text = mountPoint + " was taken off: " + machine.ending();
    warn(text);
    ::openlog("fdmount", LOG_PID, LOG_DAEMON);
    ::syslog(LOG_ERR, "%s", text.c_str());
    return kExitFailure;
}

// Leaves the process where somebody still works in the mount: its threads go with it, and the
// kernel tells whoever calls that there is no connection.
void endIfBusy(const LiveMount& mount, int exitCode) {
    if (mount.isBusy()) ::_exit(exitCode);
}

int serve(const Options& options, const MountOptions& mountOptions, const std::string& mountPoint,
          Background& background) {
    Client client(options);
    client.allDrives();
    LiveMount mount(client.machine(), mountOptions, mountPoint);
    onStopSignal([&] { mount.stop(); });
    const End end = mount.run([&] { background.reportSuccess(); });
    onStopSignal({});
    const int exitCode = reportEnd(end, client.machine(), mountPoint);
    endIfBusy(mount, exitCode);
    return exitCode;
}

int mountAll(const Options& options) {
    const MountOptions mountOptions = parseMountOptions(options.mountOptions);
    const std::string mountPoint = checkMountPoint(options.mountPoint, mountOptions.overFullFolder);
    Background background;
    if (!options.foreground) {
        if (const auto exitCode = background.enter()) return *exitCode;
    }
    handleStopSignals();
    return serve(options, mountOptions, mountPoint, background);
}

}  // namespace

int mountDrives(const Options& options) {
    try {
        return mountAll(options);
    } catch (const std::invalid_argument& error) {
        warn(std::string(error.what()) + " (see fdmount --help)");
        return kExitUsage;
    } catch (const std::exception& error) {
        if (stopSignal() != 0) return 128 + stopSignal();
        warn(error.what());
        return kExitFailure;
    }
}

}  // namespace fdmount
