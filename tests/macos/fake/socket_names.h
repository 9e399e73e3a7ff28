// socket_names.h - what the sockets of macOS have and those of Linux have not

#ifndef ZELIEML_TESTS_MACOS_FAKE_SOCKET_NAMES_H
#define ZELIEML_TESTS_MACOS_FAKE_SOCKET_NAMES_H

#include <netinet/in.h>
#include <sys/socket.h>

#define SO_NOSIGPIPE 0x1022       // system.cpp knows it
#define sin_len      sin_zero[0]  // a byte that nobody looks at

#endif
