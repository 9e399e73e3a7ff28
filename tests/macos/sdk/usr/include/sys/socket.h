/* sys/socket.h - sockets */

#ifndef ZELIEML_SDK_SYS_SOCKET_H
#define ZELIEML_SDK_SYS_SOCKET_H

#include <sys/types.h>
#include <sys/uio.h>

struct sockaddr {
    uint8_t     sa_len;
    sa_family_t sa_family;
    char        sa_data[14];
};

struct msghdr {
    void*         msg_name;
    socklen_t     msg_namelen;
    struct iovec* msg_iov;
    int           msg_iovlen;
    void*         msg_control;
    socklen_t     msg_controllen;
    int           msg_flags;
};

#define AF_UNSPEC    0
#define AF_UNIX      1
#define AF_INET      2
#define AF_INET6     30
#define SOCK_STREAM  1
#define SOL_SOCKET   0xffff
#define SO_REUSEADDR 0x0004
#define SO_ERROR     0x1007
#define SO_NOSIGPIPE 0x1022 /* 10.2 */
#define MSG_PEEK     0x2
#define MSG_DONTWAIT 0x80
#define SHUT_RD      0
#define SHUT_WR      1
#define SHUT_RDWR    2

SINCE(10.0)
int     connect(int fd, struct sockaddr const* peer, socklen_t size) SDK_UNIX03(connect);
int     getpeername(int fd, struct sockaddr* peer, socklen_t* size) SDK_UNIX03(getpeername);
int     getsockopt(int fd, int level, int name, void* value, socklen_t* size);
ssize_t recv(int fd, void* bytes, size_t size, int flags) SDK_UNIX03(recv);
ssize_t send(int fd, void const* bytes, size_t size, int flags) SDK_UNIX03(send);
ssize_t sendmsg(int fd, struct msghdr const* message, int flags) SDK_UNIX03(sendmsg);
int     setsockopt(int fd, int level, int name, void const* value, socklen_t size);
int     shutdown(int fd, int how);
int     socket(int family, int type, int protocol);
int     socketpair(int family, int type, int protocol, int pair[2]);
END_SINCE

#endif
