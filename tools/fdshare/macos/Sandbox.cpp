// macOS has no confinement that a program may put on itself by a documented interface.
#include "fdshare/Sandbox.h"

namespace host {

Confined confine(const std::vector<Share>& /*shares*/, bool /*readOnly*/) {
    return {Confinement::kNone, "this system has no way to confine a process to folders"};
}

}  // namespace host
