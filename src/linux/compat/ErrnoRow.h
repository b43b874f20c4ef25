// One row of the way from a local errno to a status, for the errno numbers that not every platform
// has.
#pragma once

struct ErrnoRow {
    int err;
    int status;
};
