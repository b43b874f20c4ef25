// The operation handlers of the Linux dialect, one for each operation code. Each turns the request
// node into the reply node, in place: it reads its fields from the payload, works on the local file
// system and rewrites `res`, `extsize` and the payload. The result is that of the operation. They
// run on operator threads, in parallel and with no lock held. The map is never null.
#pragma once

struct fd_cmd_item;
class FdMapInfo;

int fd_access_c(FdMapInfo* map, fd_cmd_item* item);
int fd_chmod_c(FdMapInfo* map, fd_cmd_item* item);
int fd_chown_c(FdMapInfo* map, fd_cmd_item* item);
int fd_destroy_c(FdMapInfo* map, fd_cmd_item* item);
int fd_fallocate_c(FdMapInfo* map, fd_cmd_item* item);
int fd_flush_c(FdMapInfo* map, fd_cmd_item* item);
int fd_fsync_c(FdMapInfo* map, fd_cmd_item* item);
int fd_getattr_c(FdMapInfo* map, fd_cmd_item* item);
int fd_getxattr_c(FdMapInfo* map, fd_cmd_item* item);
int fd_init_c(FdMapInfo* map, fd_cmd_item* item);
int fd_link_c(FdMapInfo* map, fd_cmd_item* item);
int fd_listxattr_c(FdMapInfo* map, fd_cmd_item* item);
int fd_mkdir_c(FdMapInfo* map, fd_cmd_item* item);
int fd_mknod_c(FdMapInfo* map, fd_cmd_item* item);
int fd_open_c(FdMapInfo* map, fd_cmd_item* item);
int fd_opendir_c(FdMapInfo* map, fd_cmd_item* item);
int fd_read_c(FdMapInfo* map, fd_cmd_item* item);
int fd_readdir_c(FdMapInfo* map, fd_cmd_item* item);
int fd_readlink_c(FdMapInfo* map, fd_cmd_item* item);
int fd_release_c(FdMapInfo* map, fd_cmd_item* item);
int fd_releasedir_c(FdMapInfo* map, fd_cmd_item* item);
int fd_removexattr_c(FdMapInfo* map, fd_cmd_item* item);
int fd_rename_c(FdMapInfo* map, fd_cmd_item* item);
int fd_rmdir_c(FdMapInfo* map, fd_cmd_item* item);
int fd_setxattr_c(FdMapInfo* map, fd_cmd_item* item);
int fd_statfs_c(FdMapInfo* map, fd_cmd_item* item);
int fd_symlink_c(FdMapInfo* map, fd_cmd_item* item);
int fd_truncate_c(FdMapInfo* map, fd_cmd_item* item);
int fd_unlink_c(FdMapInfo* map, fd_cmd_item* item);
int fd_utimens_c(FdMapInfo* map, fd_cmd_item* item);
int fd_write_c(FdMapInfo* map, fd_cmd_item* item);
