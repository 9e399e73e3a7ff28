/*
 * zelieml_ext.h - what the interface of zelieml.h cannot say
 *
 * A program that includes only zelieml.h needs nothing from here, and nothing here changes what it
 * gets.
 *
 * - [versions]: which library is this?
 *
 * The rules of zelieml.h hold here too.
 */

#ifndef ZELIEML_EXT_H
#define ZELIEML_EXT_H

#include "zelieml.h"

#ifdef __cplusplus
extern "C" {
#endif

/* ------------------------------------------------------------------ versions */

/*
 * The version of this header: MAJOR changes when a program that was built before may not run any
 * more, MINOR when something is added, PATCH when something is mended.
 */
#define EML_VERSION_MAJOR 1
#define EML_VERSION_MINOR 0
#define EML_VERSION_PATCH 0
#define EML_VERSION       "1.0.0"

/*
 * eml_version - the version of the library that the program runs with
 *
 * It may be newer than the header that the program was built with.
 *
 * Returns a string such as "1.0.0", which is the library's: it stays valid while it is loaded.
 * Any thread, also in a signal handler.
 */
ZELIEML_API const char *eml_version(void);

#ifdef __cplusplus
}
#endif

#endif
