// ext.cpp - the exported functions of zelieml_ext.h
//
// Each calls the unit that does the work, as an exported_call. The contracts are in the header.

#include "zelieml_ext.h"

char const* eml_version(void)
{
    return EML_VERSION;
}
