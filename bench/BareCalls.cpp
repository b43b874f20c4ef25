#include "BareCalls.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>

#include <memory>
#include <stdexcept>

std::size_t listWithAttributes(const std::string& folder) {
    const std::unique_ptr<DIR, int (*)(DIR*)> stream(opendir(folder.c_str()), closedir);
    if (!stream) throw std::runtime_error("cannot list " + folder);
    std::size_t count = 0;
    while (const dirent* entry = readdir(stream.get())) {
        struct stat info {};
        if (fstatat(dirfd(stream.get()), entry->d_name, &info, AT_SYMLINK_NOFOLLOW) == 0) ++count;
    }
    return count;
}
