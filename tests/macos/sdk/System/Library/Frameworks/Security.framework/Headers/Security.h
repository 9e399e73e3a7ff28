/*
 * Security.h - the part of the Security framework that the library uses
 *
 * Our own declarations, after the public reference; see <CoreFoundation/CoreFoundation.h>.
 */

#ifndef ZELIEML_SDK_SECURITY_H
#define ZELIEML_SDK_SECURITY_H

#include <CoreFoundation/CoreFoundation.h>
#include <Security/cssmapi.h>
#include <Security/cssmapple.h>
#include <Security/cssmtype.h>

/* ---- results */

enum {
    errSecSuccess       = 0,
    errSecUnimplemented = -4,
    errSecParam         = -50,
    errSecAllocate      = -108
};

/* ---- keys */

typedef struct OpaqueSecKeyRef*    SecKeyRef;
typedef struct OpaqueSecAccessRef* SecAccessRef;

SDK_EXTERN CFTypeRef const kSecAttrKeyType           SDK_SINCE(10.6);
SDK_EXTERN CFTypeRef const kSecAttrKeyTypeRC4        SDK_SINCE(10.7);
SDK_EXTERN CFTypeRef const kSecAttrKeyClass          SDK_SINCE(10.6);
SDK_EXTERN CFTypeRef const kSecAttrKeyClassSymmetric SDK_SINCE(10.6);
SDK_EXTERN CFTypeRef const kSecAttrKeySizeInBits     SDK_SINCE(10.6);
SDK_EXTERN CFTypeRef const kSecAttrCanWrap           SDK_SINCE(10.6);
SDK_EXTERN CFTypeRef const kSecAttrPRF               SDK_SINCE(10.7);
SDK_EXTERN CFTypeRef const kSecAttrPRFHmacAlgSHA1    SDK_SINCE(10.7);
SDK_EXTERN CFTypeRef const kSecAttrSalt              SDK_SINCE(10.7);
SDK_EXTERN CFTypeRef const kSecAttrRounds            SDK_SINCE(10.7);

/* At least 8 bytes of salt and 1000 rounds; 0 rounds stand for a tenth of a second's worth. */
SDK_EXTERN SecKeyRef SecKeyDeriveFromPassword(CFStringRef password, CFDictionaryRef parameters,
                                              CFErrorRef* error) SDK_SINCE(10.7);
SDK_EXTERN SecKeyRef SecKeyCreateFromData(CFDictionaryRef parameters, CFDataRef data,
                                          CFErrorRef* error) SDK_SINCE(10.7);

/* ---- import and export */

typedef uint32_t SecExternalFormat;
enum {
    kSecFormatUnknown = 0,
    kSecFormatOpenSSL = 1,
    kSecFormatSSH     = 2,
    kSecFormatBSAFE   = 3,
    kSecFormatRawKey  = 4
};

typedef uint32_t SecItemImportExportFlags;
typedef uint32_t SecKeyImportExportFlags;

typedef struct {
    uint32_t                version;
    SecKeyImportExportFlags flags;
    CFTypeRef               passphrase;
    CFStringRef             alertTitle;
    CFStringRef             alertPrompt;
    SecAccessRef            accessRef;
    CFArrayRef              keyUsage;
    CFArrayRef              keyAttributes;
} SecItemImportExportKeyParameters;

SDK_EXTERN OSStatus SecItemExport(CFTypeRef item, SecExternalFormat format,
                                  SecItemImportExportFlags                flags,
                                  SecItemImportExportKeyParameters const* parameters,
                                  CFDataRef*                              exported) SDK_SINCE(10.7);

/* ---- transforms */

typedef CFTypeRef SecTransformRef;

SDK_EXTERN CFStringRef const kSecTransformInputAttributeName SDK_SINCE(10.7);

SDK_EXTERN Boolean   SecTransformSetAttribute(SecTransformRef transform, CFStringRef key,
                                              CFTypeRef value, CFErrorRef* error) SDK_SINCE(10.7);
SDK_EXTERN CFTypeRef SecTransformExecute(SecTransformRef transform, CFErrorRef* error)
    SDK_SINCE(10.7);

SDK_EXTERN CFStringRef const kSecPaddingNoneKey SDK_SINCE(10.7);
SDK_EXTERN CFStringRef const kSecModeNoneKey    SDK_SINCE(10.7);
SDK_EXTERN CFStringRef const kSecPaddingKey     SDK_SINCE(10.7);
SDK_EXTERN CFStringRef const kSecEncryptionMode SDK_SINCE(10.7);

SDK_EXTERN SecTransformRef SecEncryptTransformCreate(SecKeyRef key, CFErrorRef* error)
    SDK_SINCE(10.7);
SDK_EXTERN SecTransformRef SecDecryptTransformCreate(SecKeyRef key, CFErrorRef* error)
    SDK_SINCE(10.7);

SDK_EXTERN CFStringRef const kSecDigestMD5 SDK_SINCE(10.7);

/* length  0 for a digest that has only one */
SDK_EXTERN SecTransformRef SecDigestTransformCreate(CFTypeRef type, CFIndex length,
                                                    CFErrorRef* error) SDK_SINCE(10.7);

#endif
