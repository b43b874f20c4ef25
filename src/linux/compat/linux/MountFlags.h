// How fresh the mount table has to be. The kernel's table on Linux holds nothing that could be
// stale and waits for no file system, so both flags give the same.
#pragma once

constexpr int MNT_WAIT = 1;
constexpr int MNT_NOWAIT = 2;
