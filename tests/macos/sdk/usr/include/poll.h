/* poll.h - waiting for descriptors */

#ifndef ZELIEML_SDK_POLL_H
#define ZELIEML_SDK_POLL_H

#include <sys/types.h>

#define POLLIN   0x0001
#define POLLPRI  0x0002
#define POLLOUT  0x0004
#define POLLERR  0x0008
#define POLLHUP  0x0010
#define POLLNVAL 0x0020

struct pollfd {
    int   fd;
    short events;
    short revents;
};
typedef unsigned int nfds_t;

SINCE(10.3)
int poll(struct pollfd* entries, nfds_t count, int ms) SDK_UNIX03(poll);
END_SINCE

#endif
