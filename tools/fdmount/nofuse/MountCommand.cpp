// Where the library was not there when this program was built.
#include "fdmount/MountCommand.h"

#include "fdmount/Commands.h"

namespace fdmount {

int mountDrives(const Options& /*options*/) {
    warn("built without FUSE: the drives can be browsed, not mounted (see fdmount --help)");
    return kExitFailure;
}

}  // namespace fdmount
