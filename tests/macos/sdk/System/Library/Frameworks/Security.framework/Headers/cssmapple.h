/*
 * cssmapple.h - what the system's own provider adds to the key-handle interface
 */

#ifndef ZELIEML_SDK_CSSMAPPLE_H
#define ZELIEML_SDK_CSSMAPPLE_H

#include <Security/cssmtype.h>

/* The provider of the system, in every process. */
SDK_EXTERN CSSM_GUID const gGuidAppleCSP;

enum {
    CSSM_ALGID_SHA256        = (int)(CSSM_ALGID_VENDOR_DEFINED + 14),
    CSSM_ALGID_SHA256WithRSA = (int)(CSSM_ALGID_VENDOR_DEFINED + 20)
};

#endif
