/*
 * SDKSince.h - which version of the system introduced a declaration
 *
 * Every declaration of these headers carries its version, so that a compiler with an older
 * deployment target refuses it. Nothing here is newer than 10.9.
 */

#ifndef ZELIEML_SDK_SINCE_H
#define ZELIEML_SDK_SINCE_H

#if defined(__clang__)
#define SDK_SINCE(version) __attribute__((availability(macosx, introduced = version)))
#else
#define SDK_SINCE(version)
#endif

#if defined(__cplusplus)
#define SDK_EXTERN extern "C"
#else
#define SDK_EXTERN extern
#endif

#endif
