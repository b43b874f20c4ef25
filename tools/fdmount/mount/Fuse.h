// The library, in the version of its interface that everything here is written for.
#pragma once

#define FUSE_USE_VERSION 312
#include <fuse.h>
#include <fuse_lowlevel.h>
