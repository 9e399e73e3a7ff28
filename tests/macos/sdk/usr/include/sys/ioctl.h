/* sys/ioctl.h - what else a descriptor does */

#ifndef ZELIEML_SDK_SYS_IOCTL_H
#define ZELIEML_SDK_SYS_IOCTL_H

#include <sys/types.h>

/* _IOW('f', 126, int) */
#define FIONBIO (0x80000000UL | (sizeof(int) << 16) | ('f' << 8) | 126)

SINCE(10.0)
int ioctl(int fd, unsigned long request, ...);
END_SINCE

#endif
