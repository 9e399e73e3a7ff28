/*
 * cssmapi.h - functions of the key-handle interface
 *
 * Our own declarations, after the Open Group's standard C914. Buffers that a function allocates
 * (an output CSSM_DATA with null Data) come from the memory functions given to CSSM_ModuleAttach.
 * The interface is old: compilers are told so, as by the system's header.
 */

#ifndef ZELIEML_SDK_CSSMAPI_H
#define ZELIEML_SDK_CSSMAPI_H

#include <Security/cssmtype.h>

#if defined(__clang__)
#define SDK_CSSM __attribute__((availability(macosx, introduced = 10.0, deprecated = 10.7)))
#else
#define SDK_CSSM
#endif

/* ---- modules */

SDK_EXTERN CSSM_RETURN CSSM_Init(CSSM_VERSION const* version, CSSM_PRIVILEGE_SCOPE scope,
                                 CSSM_GUID const* caller, CSSM_KEY_HIERARCHY hierarchy,
                                 CSSM_PVC_MODE* policy, void const* reserved) SDK_CSSM;
SDK_EXTERN CSSM_RETURN CSSM_ModuleLoad(CSSM_GUID const* module, CSSM_KEY_HIERARCHY hierarchy,
                                       CSSM_API_ModuleEventHandler notify, void* context) SDK_CSSM;
SDK_EXTERN CSSM_RETURN CSSM_ModuleAttach(CSSM_GUID const* module, CSSM_VERSION const* version,
                                         CSSM_API_MEMORY_FUNCS const* memory, uint32 subservice,
                                         CSSM_SERVICE_TYPE type, CSSM_ATTACH_FLAGS flags,
                                         CSSM_KEY_HIERARCHY   hierarchy,
                                         CSSM_FUNC_NAME_ADDR* functions, uint32 function_count,
                                         void const*            reserved,
                                         CSSM_MODULE_HANDLE_PTR handle) SDK_CSSM;
SDK_EXTERN CSSM_RETURN CSSM_ModuleDetach(CSSM_MODULE_HANDLE module) SDK_CSSM;

/* ---- contexts */

SDK_EXTERN CSSM_RETURN CSSM_CSP_CreateSignatureContext(CSSM_CSP_HANDLE                csp,
                                                       CSSM_ALGORITHMS                algorithm,
                                                       CSSM_ACCESS_CREDENTIALS const* credentials,
                                                       CSSM_KEY const*                key,
                                                       CSSM_CC_HANDLE* context) SDK_CSSM;
SDK_EXTERN CSSM_RETURN CSSM_CSP_CreateSymmetricContext(
    CSSM_CSP_HANDLE csp, CSSM_ALGORITHMS algorithm, CSSM_ENCRYPT_MODE mode,
    CSSM_ACCESS_CREDENTIALS const* credentials, CSSM_KEY const* key, CSSM_DATA const* vector,
    CSSM_PADDING padding, void* reserved, CSSM_CC_HANDLE* context) SDK_CSSM;
SDK_EXTERN CSSM_RETURN CSSM_CSP_CreateDigestContext(CSSM_CSP_HANDLE csp, CSSM_ALGORITHMS algorithm,
                                                    CSSM_CC_HANDLE* context) SDK_CSSM;
SDK_EXTERN CSSM_RETURN CSSM_CSP_CreateDeriveKeyContext(
    CSSM_CSP_HANDLE csp, CSSM_ALGORITHMS algorithm, CSSM_KEY_TYPE derived_type, uint32 derived_bits,
    CSSM_ACCESS_CREDENTIALS const* credentials, CSSM_KEY const* base, uint32 iterations,
    CSSM_DATA const* salt, CSSM_CRYPTO_DATA const* seed, CSSM_CC_HANDLE* context) SDK_CSSM;
SDK_EXTERN CSSM_RETURN CSSM_CSP_CreateKeyGenContext(CSSM_CSP_HANDLE csp, CSSM_ALGORITHMS algorithm,
                                                    uint32 bits, CSSM_CRYPTO_DATA const* seed,
                                                    CSSM_DATA const* salt, CSSM_DATE const* start,
                                                    CSSM_DATE const* end,
                                                    CSSM_DATA const* parameters,
                                                    CSSM_CC_HANDLE*  context) SDK_CSSM;
SDK_EXTERN CSSM_RETURN CSSM_DeleteContext(CSSM_CC_HANDLE context) SDK_CSSM;

/* ---- signatures */

SDK_EXTERN CSSM_RETURN CSSM_SignDataInit(CSSM_CC_HANDLE context) SDK_CSSM;
SDK_EXTERN CSSM_RETURN CSSM_SignDataUpdate(CSSM_CC_HANDLE context, CSSM_DATA const* pieces,
                                           uint32 piece_count) SDK_CSSM;
SDK_EXTERN CSSM_RETURN CSSM_SignDataFinal(CSSM_CC_HANDLE context, CSSM_DATA_PTR signature) SDK_CSSM;
SDK_EXTERN CSSM_RETURN CSSM_VerifyDataInit(CSSM_CC_HANDLE context) SDK_CSSM;
SDK_EXTERN CSSM_RETURN CSSM_VerifyDataUpdate(CSSM_CC_HANDLE context, CSSM_DATA const* pieces,
                                             uint32 piece_count) SDK_CSSM;
SDK_EXTERN CSSM_RETURN CSSM_VerifyDataFinal(CSSM_CC_HANDLE   context,
                                            CSSM_DATA const* signature) SDK_CSSM;

/* ---- digests */

SDK_EXTERN CSSM_RETURN CSSM_DigestDataInit(CSSM_CC_HANDLE context) SDK_CSSM;
SDK_EXTERN CSSM_RETURN CSSM_DigestDataUpdate(CSSM_CC_HANDLE context, CSSM_DATA const* pieces,
                                             uint32 piece_count) SDK_CSSM;
SDK_EXTERN CSSM_RETURN CSSM_DigestDataFinal(CSSM_CC_HANDLE context, CSSM_DATA_PTR digest) SDK_CSSM;

/* ---- encryption: what does not fit the output is allocated in the remainder */

SDK_EXTERN CSSM_RETURN CSSM_EncryptDataInit(CSSM_CC_HANDLE context) SDK_CSSM;
SDK_EXTERN CSSM_RETURN CSSM_EncryptDataUpdate(CSSM_CC_HANDLE context, CSSM_DATA const* clear,
                                              uint32 clear_count, CSSM_DATA_PTR cipher,
                                              uint32 cipher_count, CSSM_SIZE* produced) SDK_CSSM;
SDK_EXTERN CSSM_RETURN CSSM_EncryptDataFinal(CSSM_CC_HANDLE context,
                                             CSSM_DATA_PTR  remainder) SDK_CSSM;
SDK_EXTERN CSSM_RETURN CSSM_DecryptDataInit(CSSM_CC_HANDLE context) SDK_CSSM;
SDK_EXTERN CSSM_RETURN CSSM_DecryptDataUpdate(CSSM_CC_HANDLE context, CSSM_DATA const* cipher,
                                              uint32 cipher_count, CSSM_DATA_PTR clear,
                                              uint32 clear_count, CSSM_SIZE* produced) SDK_CSSM;
SDK_EXTERN CSSM_RETURN CSSM_DecryptDataFinal(CSSM_CC_HANDLE context,
                                             CSSM_DATA_PTR  remainder) SDK_CSSM;

/* ---- keys */

SDK_EXTERN CSSM_RETURN CSSM_GenerateKeyPair(CSSM_CC_HANDLE context, uint32 public_usage,
                                            uint32 public_attributes, CSSM_DATA const* public_label,
                                            CSSM_KEY_PTR public_key, uint32 private_usage,
                                            uint32                               private_attributes,
                                            CSSM_DATA const*                     private_label,
                                            CSSM_RESOURCE_CONTROL_CONTEXT const* credentials,
                                            CSSM_KEY_PTR private_key) SDK_CSSM;
SDK_EXTERN CSSM_RETURN CSSM_DeriveKey(CSSM_CC_HANDLE context, CSSM_DATA_PTR parameter, uint32 usage,
                                      uint32 attributes, CSSM_DATA const* label,
                                      CSSM_RESOURCE_CONTROL_CONTEXT const* credentials,
                                      CSSM_KEY_PTR                         key) SDK_CSSM;
SDK_EXTERN CSSM_RETURN CSSM_FreeKey(CSSM_CSP_HANDLE csp, CSSM_ACCESS_CREDENTIALS const* credentials,
                                    CSSM_KEY_PTR key, CSSM_BOOL remove) SDK_CSSM;

#endif
