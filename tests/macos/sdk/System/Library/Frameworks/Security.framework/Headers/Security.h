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

/* ---- certificates and trust */

typedef struct OpaqueSecCertificateRef* SecCertificateRef;
typedef struct OpaqueSecPolicyRef*      SecPolicyRef;
typedef struct OpaqueSecTrustRef*       SecTrustRef;

typedef uint32_t SecTrustResultType;
enum {
    kSecTrustResultInvalid                 = 0,
    kSecTrustResultProceed                 = 1, /* the user says so */
    kSecTrustResultDeny                    = 3,
    kSecTrustResultUnspecified             = 4, /* trusted, and the user says nothing */
    kSecTrustResultRecoverableTrustFailure = 5,
    kSecTrustResultFatalTrustFailure       = 6,
    kSecTrustResultOtherError              = 7
};

/* Null for what is no certificate. */
SDK_EXTERN SecCertificateRef SecCertificateCreateWithData(CFAllocatorRef allocator, CFDataRef data)
    SDK_SINCE(10.6);
SDK_EXTERN CFDataRef SecCertificateCopyData(SecCertificateRef certificate) SDK_SINCE(10.6);

SDK_EXTERN SecPolicyRef SecPolicyCreateBasicX509(void) SDK_SINCE(10.6);
/* hostname  null for any */
SDK_EXTERN SecPolicyRef SecPolicyCreateSSL(Boolean server, CFStringRef hostname) SDK_SINCE(10.6);

/* policies  one, or an array */
SDK_EXTERN OSStatus SecTrustSetPolicies(SecTrustRef trust, CFTypeRef policies) SDK_SINCE(10.3);
SDK_EXTERN OSStatus SecTrustSetAnchorCertificates(SecTrustRef trust, CFArrayRef anchors)
    SDK_SINCE(10.3);
SDK_EXTERN OSStatus SecTrustSetAnchorCertificatesOnly(SecTrustRef trust, Boolean only)
    SDK_SINCE(10.6);
SDK_EXTERN OSStatus SecTrustSetNetworkFetchAllowed(SecTrustRef trust, Boolean allowed)
    SDK_SINCE(10.9);
SDK_EXTERN OSStatus SecTrustEvaluate(SecTrustRef trust, SecTrustResultType* result) SDK_SINCE(10.3);
SDK_EXTERN CFIndex  SecTrustGetCertificateCount(SecTrustRef trust) SDK_SINCE(10.7);
SDK_EXTERN SecCertificateRef SecTrustGetCertificateAtIndex(SecTrustRef trust, CFIndex index)
    SDK_SINCE(10.7);

/* A dictionary for each certificate, the server's first; null before an evaluation. */
SDK_EXTERN CFArrayRef SecTrustCopyProperties(SecTrustRef trust) SDK_SINCE(10.7);
SDK_EXTERN CFStringRef const kSecPropertyTypeError SDK_SINCE(10.7);

/* reserved  null */
SDK_EXTERN CFStringRef SecCopyErrorMessageString(OSStatus status, void* reserved) SDK_SINCE(10.3);

/* ---- Secure Transport */

enum {
    errSSLProtocol            = -9800,
    errSSLNegotiation         = -9801,
    errSSLFatalAlert          = -9802,
    errSSLWouldBlock          = -9803,
    errSSLClosedGraceful      = -9805,
    errSSLClosedAbort         = -9806,
    errSSLInternal            = -9810,
    errSSLClosedNoNotify      = -9816,
    errSSLPeerUnexpectedMsg   = -9819,
    errSSLPeerHandshakeFail   = -9824,
    errSSLPeerProtocolVersion = -9836,
    errSSLPeerNoRenegotiation = -9840,
    errSSLServerAuthCompleted = -9841,
    errSSLConnectionRefused   = -9844,
    errSSLRecordOverflow      = -9847
};

typedef struct SSLContext* SSLContextRef;
typedef void const*        SSLConnectionRef;

typedef enum {
    kSSLServerSide,
    kSSLClientSide
} SSLProtocolSide;

typedef enum {
    kSSLStreamType,
    kSSLDatagramType
} SSLConnectionType;

typedef enum {
    kSSLIdle,
    kSSLHandshake,
    kSSLConnected,
    kSSLClosed,
    kSSLAborted
} SSLSessionState;

typedef enum {
    kSSLSessionOptionBreakOnServerAuth,
    kSSLSessionOptionBreakOnCertRequested
} SSLSessionOption;

typedef enum {
    kSSLProtocolUnknown = 0,
    kSSLProtocol3       = 2,
    kTLSProtocol1       = 4,
    kTLSProtocol11      = 7,
    kTLSProtocol12      = 8
} SSLProtocol;

/* size  what is wanted, then what was done; less than that with errSSLWouldBlock */
typedef OSStatus (*SSLReadFunc)(SSLConnectionRef connection, void* data, size_t* size);
typedef OSStatus (*SSLWriteFunc)(SSLConnectionRef connection, void const* data, size_t* size);

SDK_EXTERN SSLContextRef SSLCreateContext(CFAllocatorRef allocator, SSLProtocolSide side,
                                          SSLConnectionType type) SDK_SINCE(10.8);
SDK_EXTERN OSStatus      SSLSetIOFuncs(SSLContextRef context, SSLReadFunc read, SSLWriteFunc write)
    SDK_SINCE(10.2);
SDK_EXTERN OSStatus SSLSetConnection(SSLContextRef context, SSLConnectionRef connection)
    SDK_SINCE(10.2);
SDK_EXTERN OSStatus SSLSetPeerDomainName(SSLContextRef context, char const* name, size_t size)
    SDK_SINCE(10.2);
SDK_EXTERN OSStatus SSLSetProtocolVersionMin(SSLContextRef context, SSLProtocol oldest)
    SDK_SINCE(10.8);
SDK_EXTERN OSStatus SSLSetSessionOption(SSLContextRef context, SSLSessionOption option,
                                        Boolean value) SDK_SINCE(10.6);
SDK_EXTERN OSStatus SSLGetSessionState(SSLContextRef context, SSLSessionState* state)
    SDK_SINCE(10.2);
SDK_EXTERN OSStatus SSLHandshake(SSLContextRef context) SDK_SINCE(10.2);
SDK_EXTERN OSStatus SSLCopyPeerTrust(SSLContextRef context, SecTrustRef* trust) SDK_SINCE(10.6);
SDK_EXTERN OSStatus SSLRead(SSLContextRef context, void* data, size_t size, size_t* done)
    SDK_SINCE(10.2);
/* With errSSLWouldBlock, what was done waits in the context: no data, and a size of 0, send it. */
SDK_EXTERN OSStatus SSLWrite(SSLContextRef context, void const* data, size_t size, size_t* done)
    SDK_SINCE(10.2);
SDK_EXTERN OSStatus SSLClose(SSLContextRef context) SDK_SINCE(10.2);

#endif
