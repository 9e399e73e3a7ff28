/* limits.h - the ranges of numbers and the sizes of names */

#ifndef ZELIEML_SDK_LIMITS_H
#define ZELIEML_SDK_LIMITS_H

#if defined(__LP64__)
#define SSIZE_MAX 0x7fffffffffffffffL
#else
#define SSIZE_MAX 0x7fffffffL
#endif
#define NAME_MAX   255
#define PATH_MAX   1024
#define MB_LEN_MAX 6

#endif
