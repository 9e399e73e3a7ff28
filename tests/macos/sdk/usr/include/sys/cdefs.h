/* sys/cdefs.h - how the declarations of this folder are written */

#ifndef ZELIEML_SDK_SYS_CDEFS_H
#define ZELIEML_SDK_SYS_CDEFS_H

#include <CoreFoundation/SDKSince.h>

#if defined(__cplusplus)
#define __BEGIN_DECLS extern "C" {
#define __END_DECLS   }
#else
#define __BEGIN_DECLS
#define __END_DECLS
#endif

/* SINCE(10.0) ... END_SINCE - the functions between them, and the version that introduced them */
#define SDK_PRAGMA(text) _Pragma(#text)
#define SINCE(version)                                                                             \
    __BEGIN_DECLS                                                                                  \
    SDK_PRAGMA(clang attribute push(__attribute__((availability(macosx, introduced = version))),   \
                                    apply_to = function))
#define END_SINCE                                                                                  \
    SDK_PRAGMA(clang attribute pop)                                                                \
    __END_DECLS

/*
 * The names under which the system's library has a function. It kept the old behaviour, and the old
 * sizes, of some under their plain names: SDK_UNIX03 is for those that became conforming (32-bit
 * programs only), SDK_INODE64 for those that know file numbers of 64 bits (not on arm64, which is
 * younger than both).
 */
#if defined(__i386__)
#define SDK_UNIX03(name) __asm__("_" #name "$UNIX2003")
#else
#define SDK_UNIX03(name)
#endif
#if defined(__arm64__)
#define SDK_INODE64(name)
#else
#define SDK_INODE64(name) __asm__("_" #name "$INODE64")
#endif

#endif
