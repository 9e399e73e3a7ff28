/* unistd.h - the process and its descriptors */

#ifndef ZELIEML_SDK_UNISTD_H
#define ZELIEML_SDK_UNISTD_H

#include <sys/types.h>

#define STDIN_FILENO  0
#define STDOUT_FILENO 1
#define STDERR_FILENO 2
#define F_OK          0
#define X_OK          1
#define W_OK          2
#define R_OK          4

#define _SC_NPROCESSORS_ONLN 58

SINCE(10.0)
int     access(char const* path, int mode);
int     close(int fd) SDK_UNIX03(close);
int     fchown(int fd, uid_t owner, gid_t group);
int     fsync(int fd) SDK_UNIX03(fsync);
int     ftruncate(int fd, off_t size);
uid_t   geteuid(void);
int     gethostname(char* name, size_t size);
pid_t   getpid(void);
int     pipe(int ends[2]);
ssize_t pread(int fd, void* bytes, size_t size, off_t position) SDK_UNIX03(pread);
ssize_t read(int fd, void* bytes, size_t size) SDK_UNIX03(read);
long    sysconf(int name);
int     unlink(char const* path);
int     usleep(useconds_t us) SDK_UNIX03(usleep);
ssize_t write(int fd, void const* bytes, size_t size) SDK_UNIX03(write);
END_SINCE

#endif
