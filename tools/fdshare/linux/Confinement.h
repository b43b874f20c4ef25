// The two ways in which Linux lets a process confine itself.
#pragma once

#include <string>
#include <vector>

#include "fdshare/Sandbox.h"

namespace host {

// Each returns an empty text, or what failed. After a failure the process is as it was before.
std::string enterNamespace(const std::vector<Share>& shares, bool readOnly);
std::string enforcePathRules(const std::vector<Share>& shares, bool readOnly);

}  // namespace host
