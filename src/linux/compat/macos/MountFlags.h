// How fresh the mount table has to be: MNT_WAIT and MNT_NOWAIT as the system defines them.
#pragma once

#include <sys/mount.h>
