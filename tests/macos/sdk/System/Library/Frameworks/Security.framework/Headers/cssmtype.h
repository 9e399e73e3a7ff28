/*
 * cssmtype.h - types and numbers of the key-handle interface
 *
 * Our own declarations, after the Open Group's standard C914 (CDSA and CSSM, version 2.3) with the
 * sizes of a 64-bit system: lengths and module handles are as wide as pointers.
 */

#ifndef ZELIEML_SDK_CSSMTYPE_H
#define ZELIEML_SDK_CSSMTYPE_H

#include <CoreFoundation/SDKSince.h>
#include <stddef.h>
#include <stdint.h>

typedef uint8_t  uint8;
typedef uint16_t uint16;
typedef int32_t  sint32;
typedef uint32_t uint32;
typedef uint64_t uint64;
typedef intptr_t CSSM_INTPTR;
typedef size_t   CSSM_SIZE;

typedef CSSM_INTPTR        CSSM_HANDLE, *CSSM_HANDLE_PTR;
typedef uint64             CSSM_LONG_HANDLE, *CSSM_LONG_HANDLE_PTR;
typedef CSSM_HANDLE        CSSM_MODULE_HANDLE, *CSSM_MODULE_HANDLE_PTR;
typedef CSSM_LONG_HANDLE   CSSM_CC_HANDLE, *CSSM_CC_HANDLE_PTR;
typedef CSSM_MODULE_HANDLE CSSM_CSP_HANDLE, *CSSM_CSP_HANDLE_PTR;

#define CSSM_INVALID_HANDLE 0

typedef sint32 CSSM_BOOL;
enum {
    CSSM_FALSE = 0,
    CSSM_TRUE  = 1
};

typedef sint32 CSSM_RETURN;
enum {
    CSSM_OK = 0
};

typedef struct cssm_guid {
    uint32 Data1;
    uint16 Data2;
    uint16 Data3;
    uint8  Data4[8];
} CSSM_GUID, *CSSM_GUID_PTR;

typedef struct cssm_version {
    uint32 Major;
    uint32 Minor;
} CSSM_VERSION, *CSSM_VERSION_PTR;

typedef struct cssm_data {
    CSSM_SIZE Length; /* bytes */
    uint8*    Data;
} CSSM_DATA, *CSSM_DATA_PTR;

typedef struct cssm_date {
    uint8 Year[4];
    uint8 Month[2];
    uint8 Day[2];
} CSSM_DATE, *CSSM_DATE_PTR;

/* ---- modules */

typedef uint32 CSSM_PRIVILEGE_SCOPE;
enum {
    CSSM_PRIVILEGE_SCOPE_NONE    = 0,
    CSSM_PRIVILEGE_SCOPE_PROCESS = 1,
    CSSM_PRIVILEGE_SCOPE_THREAD  = 2
};

typedef uint32 CSSM_KEY_HIERARCHY;
enum {
    CSSM_KEY_HIERARCHY_NONE   = 0,
    CSSM_KEY_HIERARCHY_INTEG  = 1,
    CSSM_KEY_HIERARCHY_EXPORT = 2
};

typedef sint32 CSSM_PVC_MODE;
enum {
    CSSM_PVC_NONE = 0,
    CSSM_PVC_APP  = 1,
    CSSM_PVC_SP   = 2
};

typedef uint32 CSSM_SERVICE_TYPE;
enum {
    CSSM_SERVICE_CSSM = 1,
    CSSM_SERVICE_CSP  = 2
};

typedef uint32 CSSM_ATTACH_FLAGS;
enum {
    CSSM_ATTACH_READ_ONLY = 1
};

typedef uint32 CSSM_MODULE_EVENT;

typedef CSSM_RETURN (*CSSM_API_ModuleEventHandler)(CSSM_GUID const* module, void* context,
                                                   uint32 subservice, CSSM_SERVICE_TYPE type,
                                                   CSSM_MODULE_EVENT event);

typedef struct cssm_func_name_addr CSSM_FUNC_NAME_ADDR;

typedef void* (*CSSM_MALLOC)(CSSM_SIZE size, void* ref);
typedef void (*CSSM_FREE)(void* block, void* ref);
typedef void* (*CSSM_REALLOC)(void* block, CSSM_SIZE size, void* ref);
typedef void* (*CSSM_CALLOC)(uint32 count, CSSM_SIZE size, void* ref);

typedef struct cssm_memory_funcs {
    CSSM_MALLOC  malloc_func;
    CSSM_FREE    free_func;
    CSSM_REALLOC realloc_func;
    CSSM_CALLOC  calloc_func;
    void*        AllocRef;
} CSSM_MEMORY_FUNCS, *CSSM_MEMORY_FUNCS_PTR;
typedef CSSM_MEMORY_FUNCS CSSM_API_MEMORY_FUNCS, *CSSM_API_MEMORY_FUNCS_PTR;

/* ---- algorithms */

typedef uint32 CSSM_ALGORITHMS;
enum {
    CSSM_ALGID_NONE         = 0,
    CSSM_ALGID_DH           = 2,
    CSSM_ALGID_MD5          = 7,
    CSSM_ALGID_SHA1         = 8,
    CSSM_ALGID_RC4          = 25,
    CSSM_ALGID_RSA          = 42,
    CSSM_ALGID_MD5WithRSA   = 44,
    CSSM_ALGID_SHA1WithRSA  = 51,
    CSSM_ALGID_PKCS5_PBKDF2 = 103
};
#define CSSM_ALGID_VENDOR_DEFINED 0x80000000U

typedef uint32 CSSM_ENCRYPT_MODE;
enum {
    CSSM_ALGMODE_NONE      = 0,
    CSSM_ALGMODE_CBCPadIV8 = 6
};

typedef uint32 CSSM_PADDING;
enum {
    CSSM_PADDING_NONE  = 0,
    CSSM_PADDING_PKCS7 = 7,
    CSSM_PADDING_PKCS1 = 10
};

/* ---- keys */

typedef uint32 CSSM_HEADERVERSION;
enum {
    CSSM_KEYHEADER_VERSION = 2
};

typedef uint32 CSSM_KEYBLOB_TYPE;
enum {
    CSSM_KEYBLOB_RAW       = 0,
    CSSM_KEYBLOB_REFERENCE = 2,
    CSSM_KEYBLOB_WRAPPED   = 3
};

typedef uint32 CSSM_KEYBLOB_FORMAT;
enum {
    CSSM_KEYBLOB_RAW_FORMAT_NONE         = 0,
    CSSM_KEYBLOB_RAW_FORMAT_PKCS1        = 1,
    CSSM_KEYBLOB_RAW_FORMAT_PKCS3        = 2,
    CSSM_KEYBLOB_RAW_FORMAT_PKCS8        = 10,
    CSSM_KEYBLOB_RAW_FORMAT_OCTET_STRING = 12
};

typedef uint32 CSSM_KEYCLASS;
enum {
    CSSM_KEYCLASS_PUBLIC_KEY  = 0,
    CSSM_KEYCLASS_PRIVATE_KEY = 1,
    CSSM_KEYCLASS_SESSION_KEY = 2
};

typedef uint32 CSSM_KEYATTR_FLAGS;
enum {
    CSSM_KEYATTR_RETURN_DEFAULT = 0x00000000,
    CSSM_KEYATTR_RETURN_DATA    = 0x10000000,
    CSSM_KEYATTR_RETURN_REF     = 0x20000000,
    CSSM_KEYATTR_RETURN_NONE    = 0x40000000,
    CSSM_KEYATTR_PERMANENT      = 0x00000001,
    CSSM_KEYATTR_PRIVATE        = 0x00000002,
    CSSM_KEYATTR_MODIFIABLE     = 0x00000004,
    CSSM_KEYATTR_SENSITIVE      = 0x00000008,
    CSSM_KEYATTR_EXTRACTABLE    = 0x00000020
};

typedef uint32 CSSM_KEYUSE;
#define CSSM_KEYUSE_ANY 0x80000000U
enum {
    CSSM_KEYUSE_ENCRYPT = 0x00000001,
    CSSM_KEYUSE_DECRYPT = 0x00000002,
    CSSM_KEYUSE_SIGN    = 0x00000004,
    CSSM_KEYUSE_VERIFY  = 0x00000008,
    CSSM_KEYUSE_DERIVE  = 0x00000100
};

typedef struct cssm_keyheader {
    CSSM_HEADERVERSION  HeaderVersion;
    CSSM_GUID           CspId;
    CSSM_KEYBLOB_TYPE   BlobType;
    CSSM_KEYBLOB_FORMAT Format;
    CSSM_ALGORITHMS     AlgorithmId;
    CSSM_KEYCLASS       KeyClass;
    uint32              LogicalKeySizeInBits;
    CSSM_KEYATTR_FLAGS  KeyAttr;
    CSSM_KEYUSE         KeyUsage;
    CSSM_DATE           StartDate;
    CSSM_DATE           EndDate;
    CSSM_ALGORITHMS     WrapAlgorithmId;
    CSSM_ENCRYPT_MODE   WrapMode;
    uint32              Reserved;
} CSSM_KEYHEADER, *CSSM_KEYHEADER_PTR;

typedef struct cssm_key {
    CSSM_KEYHEADER KeyHeader;
    CSSM_DATA      KeyData;
} CSSM_KEY, *CSSM_KEY_PTR;

typedef CSSM_ALGORITHMS CSSM_KEY_TYPE;

/* Only ever passed on, as null or zero-filled. */
typedef struct cssm_list_element CSSM_LIST_ELEMENT, *CSSM_LIST_ELEMENT_PTR;

typedef struct cssm_list {
    uint32                ListType;
    CSSM_LIST_ELEMENT_PTR Head;
    CSSM_LIST_ELEMENT_PTR Tail;
} CSSM_LIST, *CSSM_LIST_PTR;

typedef struct cssm_base_certs {
    CSSM_HANDLE TPHandle;
    CSSM_HANDLE CLHandle;
    struct {
        uint32 CertType;
        uint32 CertEncoding;
        uint32 NumCerts;
        void*  GroupList;
        uint32 CertGroupType;
        void*  Reserved;
    } Certs;
} CSSM_BASE_CERTS, *CSSM_BASE_CERTS_PTR;

typedef struct cssm_samplegroup {
    uint32      NumberOfSamples;
    void const* Samples;
} CSSM_SAMPLEGROUP, *CSSM_SAMPLEGROUP_PTR;

typedef CSSM_RETURN (*CSSM_CHALLENGE_CALLBACK)(CSSM_LIST const*  challenge,
                                               CSSM_SAMPLEGROUP* response, void* context,
                                               CSSM_MEMORY_FUNCS const* memory);

typedef struct cssm_access_credentials {
    char                    EntryTag[68];
    CSSM_BASE_CERTS         BaseCerts;
    CSSM_SAMPLEGROUP        Samples;
    CSSM_CHALLENGE_CALLBACK Callback;
    void*                   CallerCtx;
} CSSM_ACCESS_CREDENTIALS, *CSSM_ACCESS_CREDENTIALS_PTR;

typedef struct cssm_resource_control_context CSSM_RESOURCE_CONTROL_CONTEXT;

typedef CSSM_RETURN (*CSSM_CALLBACK)(CSSM_DATA_PTR data, void* context);

typedef struct cssm_crypto_data {
    CSSM_DATA     Param;
    CSSM_CALLBACK Callback;
    void*         CallerCtx;
} CSSM_CRYPTO_DATA, *CSSM_CRYPTO_DATA_PTR;

/* ---- PKCS 5, what CSSM_DeriveKey takes in its parameter */

typedef uint32 CSSM_PKCS5_PBKDF2_PRF;
enum {
    CSSM_PKCS5_PBKDF2_PRF_HMAC_SHA1 = 0
};

typedef struct cssm_pkcs5_pbkdf2_params {
    CSSM_DATA             Passphrase;
    CSSM_PKCS5_PBKDF2_PRF PseudoRandomFunction;
} CSSM_PKCS5_PBKDF2_PARAMS, *CSSM_PKCS5_PBKDF2_PARAMS_PTR;

#endif
