/*
 * header_ext.c - the public header zelieml_ext.h, twice, in every language that can include it
 *
 * Compiled as header.c is; never run.
 */

#include "zelieml_ext.h"

#include "zelieml.h"
#include "zelieml_ext.h"

#if EML_VERSION_MAJOR * 10000 + EML_VERSION_MINOR * 100 + EML_VERSION_PATCH < 10000
#error "the preprocessor can compare versions"
#endif

char const* use_the_second_header(void);

char const* use_the_second_header(void)
{
    return eml_version() != 0 ? EML_VERSION : KeyFrom;
}
