/* sys/types.h - the types of the system */

#ifndef ZELIEML_SDK_SYS_TYPES_H
#define ZELIEML_SDK_SYS_TYPES_H

#include <stddef.h>
#include <stdint.h>
#include <sys/cdefs.h>

typedef unsigned char  u_char;
typedef unsigned short u_short;
typedef unsigned int   u_int;
typedef unsigned long  u_long;
typedef unsigned int   __uint32_t;
typedef int            __darwin_ct_rune_t;
typedef __SIZE_TYPE__  __darwin_size_t;
typedef long           ssize_t;
typedef int64_t        off_t;
typedef int64_t        blkcnt_t;
typedef int32_t        blksize_t;
typedef int32_t        dev_t;
typedef uint32_t       gid_t;
typedef uint32_t       uid_t;
typedef uint32_t       id_t;
typedef uint64_t       ino_t;
typedef uint16_t       mode_t;
typedef uint16_t       nlink_t;
typedef int32_t        pid_t;
typedef int32_t        suseconds_t;
typedef uint32_t       useconds_t;
typedef long           time_t;
typedef unsigned long  clock_t;
typedef uint8_t        sa_family_t;
typedef uint32_t       socklen_t;
typedef uint32_t       in_addr_t;
typedef uint16_t       in_port_t;

#endif
