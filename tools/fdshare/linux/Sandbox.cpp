#include "fdshare/linux/Confinement.h"

namespace host {

Confined confine(const std::vector<Share>& shares, bool readOnly) {
    const std::string noNamespace = enterNamespace(shares, readOnly);
    if (noNamespace.empty()) return {Confinement::kNamespace, {}};

    const std::string noRules = enforcePathRules(shares, readOnly);
    if (noRules.empty()) return {Confinement::kPathRules, noNamespace};
    return {Confinement::kNone, noNamespace + "; " + noRules};
}

}  // namespace host
