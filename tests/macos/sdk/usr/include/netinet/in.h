/* netinet/in.h - addresses of the Internet */

#ifndef ZELIEML_SDK_NETINET_IN_H
#define ZELIEML_SDK_NETINET_IN_H

#include <sys/socket.h>
#include <sys/types.h>

struct in_addr {
    in_addr_t s_addr;
};

struct in6_addr {
    uint8_t s6_addr[16];
};

struct sockaddr_in {
    uint8_t        sin_len;
    sa_family_t    sin_family;
    in_port_t      sin_port;
    struct in_addr sin_addr;
    char           sin_zero[8];
};

#define IPPROTO_TCP     6
#define INADDR_NONE     0xffffffffU
#define INADDR_LOOPBACK 0x7f000001U

#define htons(number) ((uint16_t)__builtin_bswap16(number))
#define ntohs(number) ((uint16_t)__builtin_bswap16(number))
#define htonl(number) ((uint32_t)__builtin_bswap32(number))
#define ntohl(number) ((uint32_t)__builtin_bswap32(number))

#endif
