// Under a sanitizer, memory that cannot be had is a null pointer, as it is without one: tests cover
// what follows. Called by the sanitizer before main.
extern "C" {
__attribute__((visibility("default"))) const char* __asan_default_options();
__attribute__((visibility("default"))) const char* __tsan_default_options();

const char* __asan_default_options() {
    return "allocator_may_return_null=1";
}

const char* __tsan_default_options() {
    return "allocator_may_return_null=1";
}
}
