/* netinet/tcp.h - options of TCP */

#ifndef ZELIEML_SDK_NETINET_TCP_H
#define ZELIEML_SDK_NETINET_TCP_H

#define TCP_NODELAY 0x01
#define TCP_NOPUSH  0x04

#endif
