// The operators stand in for those of the library in every program that uses the class.
#include "support/RefusedNew.h"

#include <new>

namespace {
thread_local bool isRefused = false;
}

RefusedNew::RefusedNew() {
    isRefused = true;
}

RefusedNew::~RefusedNew() {
    isRefused = false;
}

void* operator new(std::size_t size, const std::nothrow_t& /*tag*/) noexcept {
    if (isRefused) return nullptr;
    try {
        return ::operator new(size);
    } catch (const std::bad_alloc&) {
        return nullptr;
    }
}

void operator delete(void* memory, const std::nothrow_t& /*tag*/) noexcept {
    ::operator delete(memory);
}
