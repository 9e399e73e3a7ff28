/* sys/file.h - advisory locks on files */

#ifndef ZELIEML_SDK_SYS_FILE_H
#define ZELIEML_SDK_SYS_FILE_H

#include <fcntl.h>

#define LOCK_SH 1
#define LOCK_EX 2
#define LOCK_NB 4
#define LOCK_UN 8

SINCE(10.0)
int flock(int fd, int operation);
END_SINCE

#endif
