// statfs(), which has its home in another header on each platform.
#pragma once

#include <sys/mount.h>
#include <sys/param.h>
