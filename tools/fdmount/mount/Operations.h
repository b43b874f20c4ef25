// The table of calls that the library makes. Its private data is a Mount.
#pragma once

#include "fdmount/mount/Fuse.h"

namespace fdmount {

const fuse_operations& operations();

}  // namespace fdmount
