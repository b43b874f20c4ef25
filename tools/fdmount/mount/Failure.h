// What a call on the mount is refused with, where no other side was asked.
#pragma once

namespace fdmount {

struct Refusal {
    int error;  // an errno
};

}  // namespace fdmount
