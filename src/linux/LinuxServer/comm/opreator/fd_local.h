// The local side of the Linux dialect's operations: one function for each, on finished local paths.
// They know nothing of nodes or frames, keep no state between calls and run on any thread. The map
// is not used. Each gives 0 or a count, or a negative number: minus errno unless it says otherwise.
#pragma once

#include <cstdint>
#include <limits>

#include "common/LinuxServer/comm/fd_wire.h"

class FdMapInfo;
struct stat;
struct statvfs;

// What one read or write moves at most: as much as a result can tell.
constexpr std::int64_t kMostBytes = std::numeric_limits<std::int32_t>::max() - kFrameHeadSize;

int fd_access_f(FdMapInfo* map, const char* path, std::int64_t mask);
int fd_chmod_f(FdMapInfo* map, const char* path, std::int64_t mode);
int fd_chown_f(FdMapInfo* map, const char* path, std::int64_t uid, std::int64_t gid);
int fd_destroy_f(FdMapInfo* map, const char* path);
int fd_fallocate_f(FdMapInfo* map, const char* path, std::int64_t mode, std::int64_t offset,
                   std::int64_t length, fd_file_info* info);
int fd_flush_f(FdMapInfo* map, const char* path, fd_file_info* info);
int fd_fsync_f(FdMapInfo* map, const char* path, std::int64_t isdatasync, fd_file_info* info);
int fd_getattr_f(FdMapInfo* map, const char* path, fd_stat* out);  // of a link itself
int fd_getxattr_f(FdMapInfo* map, const char* path, const char* name, char* buffer,
                  std::int64_t size);
int fd_init_f(FdMapInfo* map, const char* path, const char* block);
int fd_link_f(FdMapInfo* map, const char* from, const char* to);
int fd_listxattr_f(FdMapInfo* map, const char* path, char* buffer, std::int64_t size);
int fd_mkdir_f(FdMapInfo* map, const char* path, std::int64_t mode);
int fd_mknod_f(FdMapInfo* map, const char* path, std::int64_t mode, std::int64_t rdev);
int fd_open_f(FdMapInfo* map, const char* path, fd_file_info* info);
int fd_opendir_f(FdMapInfo* map, const char* path, fd_file_info* info);  // fills the handle
int fd_read_f(FdMapInfo* map, const char* path, char* buffer, std::int64_t size,
              std::int64_t offset, fd_file_info* info);

// Fills the directory block; `buffer` has room for `bufsize` bytes and 24 more. Its length.
int fd_readdir_f(FdMapInfo* map, const char* path, char* buffer, std::int64_t bufsize,
                 std::int64_t read_offset, fd_file_info* info);

// The length with the terminator, or minus errno plus 1.
int fd_readlink_f(FdMapInfo* map, const char* path, char* buffer, std::int64_t size);
int fd_release_f(FdMapInfo* map, const char* path, fd_file_info* info);
int fd_releasedir_f(FdMapInfo* map, const char* path, fd_file_info* info);
int fd_removexattr_f(FdMapInfo* map, const char* path, const char* name);
int fd_rename_f(FdMapInfo* map, const char* from, const char* to);
int fd_rmdir_f(FdMapInfo* map, const char* path);
int fd_setxattr_f(FdMapInfo* map, const char* path, const char* name, const char* value,
                  std::int64_t size, std::int64_t flags);
int fd_statfs_f(FdMapInfo* map, const char* path, fd_statvfs* out);
int fd_symlink_f(FdMapInfo* map, const char* from, const char* to);
int fd_truncate_f(FdMapInfo* map, const char* path, std::int64_t size);
int fd_unlink_f(FdMapInfo* map, const char* path);
int fd_utimens_f(FdMapInfo* map, const char* path, const fd_timespec times[2]);
int fd_write_f(FdMapInfo* map, const char* path, const char* data, std::int64_t size,
               std::int64_t offset, fd_file_info* info);

// Conversions between local records and wire records, which need not be aligned. All give 0.
int stat_fuse2fd(const struct stat* from, fd_stat* to);
int stat_fd2fuse(const fd_stat* from, struct stat* to);
int statvfs_fuse2fd(const struct statvfs* from, fd_statvfs* to);
int statvfs_fd2fuse(const fd_statvfs* from, struct statvfs* to);
int utimens_fd2fuse(const fd_timespec from[2], struct timespec to[2]);
int utimens_fuse2fd(const struct timespec from[2], fd_timespec to[2]);
