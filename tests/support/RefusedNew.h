// While it lives, `new (std::nothrow)` gives its thread nothing: so the want of memory can be shown
// for objects of any size.
#pragma once

class RefusedNew {
public:
    RefusedNew();
    ~RefusedNew();
    RefusedNew(const RefusedNew&) = delete;
    RefusedNew& operator=(const RefusedNew&) = delete;
};
