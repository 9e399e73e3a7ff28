/* sys/stat.h - what the system knows of a file */

#ifndef ZELIEML_SDK_SYS_STAT_H
#define ZELIEML_SDK_SYS_STAT_H

#include <sys/types.h>
#include <time.h>

struct stat {
    dev_t           st_dev;
    mode_t          st_mode;
    nlink_t         st_nlink;
    ino_t           st_ino;
    uid_t           st_uid;
    gid_t           st_gid;
    dev_t           st_rdev;
    struct timespec st_atimespec;
    struct timespec st_mtimespec;
    struct timespec st_ctimespec;
    struct timespec st_birthtimespec;
    off_t           st_size;
    blkcnt_t        st_blocks;
    blksize_t       st_blksize;
    uint32_t        st_flags;
    uint32_t        st_gen;
    int32_t         st_lspare;
    int64_t         st_qspare[2];
};

#define st_mtime st_mtimespec.tv_sec

#define S_IFMT     0170000
#define S_IFDIR    0040000
#define S_IFREG    0100000
#define S_IFLNK    0120000
#define S_IRWXU    0000700
#define S_IRUSR    0000400
#define S_IRGRP    0000040
#define S_IROTH    0000004
#define S_IWUSR    0000200
#define S_IRWXO    0000007
#define S_ISDIR(m) (((m)&S_IFMT) == S_IFDIR)
#define S_ISLNK(m) (((m)&S_IFMT) == S_IFLNK)
#define S_ISREG(m) (((m)&S_IFMT) == S_IFREG)

/* The file numbers of 64 bits are those of 10.5 and later. */
SINCE(10.5)
int fstat(int fd, struct stat* out) SDK_INODE64(fstat);
int lstat(char const* path, struct stat* out) SDK_INODE64(lstat);
int stat(char const* path, struct stat* out) SDK_INODE64(stat);
END_SINCE
SINCE(10.0)
int    chmod(char const* path, mode_t mode) SDK_UNIX03(chmod);
int    fchmod(int fd, mode_t mode) SDK_UNIX03(fchmod);
int    mkdir(char const* path, mode_t mode);
mode_t umask(mode_t mask);
END_SINCE

#endif
