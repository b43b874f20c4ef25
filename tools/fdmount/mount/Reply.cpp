#include "fdmount/mount/Reply.h"

namespace fdmount {

namespace {

struct Kept {
    std::string path;  // empty: nothing
    struct stat attributes;
};

Kept& kept() {
    thread_local Kept instance{};
    return instance;
}

}  // namespace

void Reply::keep(const char* path, const struct stat& attributes) {
    kept().path = path;
    kept().attributes = attributes;
}

std::optional<struct stat> Reply::take(const char* path) {
    if (kept().path != path) return std::nullopt;
    kept().path.clear();
    return kept().attributes;
}

void Reply::clear() {
    kept().path.clear();
}

}  // namespace fdmount
