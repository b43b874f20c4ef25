// Conversions between the local records and those of the wire.
#include "linux/LinuxServer/comm/opreator/fd_local.h"

#include <sys/stat.h>
#include <sys/statvfs.h>

#include <cstring>
#include <ctime>

int stat_fuse2fd(const struct stat* from, fd_stat* to) {
    fd_stat record{};
    record.st_dev = static_cast<std::int64_t>(from->st_dev);
    record.st_ino = from->st_ino;
    record.st_mode = from->st_mode & 0xFFFF;
    record.st_nlink = from->st_nlink & 0xFFFF;
    record.st_uid = from->st_uid;
    record.st_gid = from->st_gid;
    record.st_rdev = static_cast<std::int64_t>(from->st_rdev);
    record.st_size = from->st_size;
    record.st_blksize = from->st_blksize;
    record.st_blocks = from->st_blocks;
    record.st_atime_sec = from->st_atime;
    record.st_mtime_sec = from->st_mtime;
    record.st_ctime_sec = from->st_ctime;
    std::memcpy(to, &record, sizeof(record));
    return 0;
}

int stat_fd2fuse(const fd_stat* from, struct stat* to) {
    fd_stat record{};
    std::memcpy(&record, from, sizeof(record));
    *to = {};
    to->st_dev = static_cast<decltype(to->st_dev)>(record.st_dev);
    to->st_ino = static_cast<decltype(to->st_ino)>(record.st_ino);
    to->st_mode = static_cast<decltype(to->st_mode)>(record.st_mode);
    to->st_nlink = static_cast<decltype(to->st_nlink)>(record.st_nlink);
    to->st_uid = static_cast<decltype(to->st_uid)>(record.st_uid);
    to->st_gid = static_cast<decltype(to->st_gid)>(record.st_gid);
    to->st_rdev = static_cast<decltype(to->st_rdev)>(record.st_rdev);
    to->st_size = static_cast<decltype(to->st_size)>(record.st_size);
    to->st_blksize = static_cast<decltype(to->st_blksize)>(record.st_blksize);
    to->st_blocks = static_cast<decltype(to->st_blocks)>(record.st_blocks);
    to->st_atime = static_cast<time_t>(record.st_atime_sec);
    to->st_mtime = static_cast<time_t>(record.st_mtime_sec);
    to->st_ctime = static_cast<time_t>(record.st_ctime_sec);
    return 0;
}

// Kept: the wire's f_bsize is the local f_frsize.
int statvfs_fuse2fd(const struct statvfs* from, fd_statvfs* to) {
    fd_statvfs record{};
    record.f_bsize = from->f_frsize;
    record.f_frsize = from->f_frsize;
    record.f_blocks = from->f_blocks;
    record.f_bfree = from->f_bfree;
    record.f_bavail = from->f_bavail;
    record.f_files = from->f_files;
    record.f_ffree = from->f_ffree;
    record.f_favail = from->f_favail;
    record.f_fsid = from->f_fsid;
    record.f_flag = from->f_flag;
    record.f_namemax = from->f_namemax;
    std::memcpy(to, &record, sizeof(record));
    return 0;
}

int statvfs_fd2fuse(const fd_statvfs* from, struct statvfs* to) {
    fd_statvfs record{};
    std::memcpy(&record, from, sizeof(record));
    *to = {};
    to->f_bsize = static_cast<decltype(to->f_bsize)>(record.f_bsize);
    to->f_frsize = static_cast<decltype(to->f_frsize)>(record.f_frsize);
    to->f_blocks = static_cast<decltype(to->f_blocks)>(record.f_blocks);
    to->f_bfree = static_cast<decltype(to->f_bfree)>(record.f_bfree);
    to->f_bavail = static_cast<decltype(to->f_bavail)>(record.f_bavail);
    to->f_files = static_cast<decltype(to->f_files)>(record.f_files);
    to->f_ffree = static_cast<decltype(to->f_ffree)>(record.f_ffree);
    to->f_favail = static_cast<decltype(to->f_favail)>(record.f_favail);
    to->f_fsid = static_cast<decltype(to->f_fsid)>(record.f_fsid);
    to->f_flag = static_cast<decltype(to->f_flag)>(record.f_flag);
    to->f_namemax = static_cast<decltype(to->f_namemax)>(record.f_namemax);
    return 0;
}

int utimens_fd2fuse(const fd_timespec from[2], struct timespec to[2]) {
    for (int i = 0; i < 2; ++i) {
        to[i].tv_sec = static_cast<time_t>(from[i].tv_sec);
        to[i].tv_nsec = static_cast<long>(from[i].tv_nsec);
    }
    return 0;
}

int utimens_fuse2fd(const struct timespec from[2], fd_timespec to[2]) {
    for (int i = 0; i < 2; ++i) {
        to[i].tv_sec = from[i].tv_sec;
        to[i].tv_nsec = from[i].tv_nsec;
    }
    return 0;
}
