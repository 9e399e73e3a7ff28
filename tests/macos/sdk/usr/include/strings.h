/* strings.h - texts without regard to case */

#ifndef ZELIEML_SDK_STRINGS_H
#define ZELIEML_SDK_STRINGS_H

#include <sys/types.h>

SINCE(10.0)
int strcasecmp(char const* one, char const* other);
END_SINCE

#endif
