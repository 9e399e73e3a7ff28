// libCdsaCrypt.h - the platform's cryptography under the names that the crypto unit uses
//
// Each function calls one of the platform's (platform/key_handle.h, and platform/crypto.h for
// cdsaDigest2 and cdsaDeriveKey2), where arguments, limits and ownership are described, and returns
// 0 or the platform's error code.
//
// Sessions, keys and the buffers that a session hands out are allocated with the four app
// functions, that is, on the library's heap: free a csp_buffer with appFree(buffer.data, nullptr).
//
// The functions for key pairs, at the end, are in libCdsaKeyPair.cpp, an archive member of their
// own: programs that do not use them need not link libhogweed.

#ifndef ZELIEML_LIBCRYPTW_LIBCDSACRYPT_H
#define ZELIEML_LIBCRYPTW_LIBCDSACRYPT_H

#include <cstddef>
#include <cstdint>
#include <memory>

#include "platform/crypto.h"
#include "platform/key_handle.h"

namespace zelieml
{

// ---- memory for the provider

// appMalloc, appFree, appRealloc, appCalloc - malloc and its companions for a session
//
// ref  not used
//
// Return null when there is no memory or count * size overflows. appCalloc clears the bytes.
void* appMalloc(std::size_t size, void* ref);
void  appFree(void* buffer, void* ref);
void* appRealloc(void* buffer, std::size_t size, void* ref);
void* appCalloc(std::uint32_t count, std::size_t size, void* ref);

// ---- sessions

// cssmStartup - start the provider; may be called again, on any thread
int cssmStartup();

// cdsaCspAttach - start the provider if necessary and begin a session
int cdsaCspAttach(csp_session*& session);

// cdsaCspDetach - end a session, whose keys and contexts must have been freed
int cdsaCspDetach(csp_session* session);

struct csp_session_deleter {
    void operator()(csp_session* session) const { cdsaCspDetach(session); }
};
using csp_session_holder = std::unique_ptr<csp_session, csp_session_deleter>;

// ---- keys

// Rounds of the key derivations.
constexpr unsigned derive_rounds = 1000;

// cdsaDeriveKey - a key from a pass phrase and a salt, in derive_rounds rounds
int cdsaDeriveKey(csp_session* session, csp_data pass_phrase, csp_data salt,
                  cssm_algorithm algorithm, unsigned key_bits, csp_key*& key);

// cdsaFreeKey - free a key of any kind
int cdsaFreeKey(csp_key* key);

struct csp_key_deleter {
    void operator()(csp_key* key) const { cdsaFreeKey(key); }
};
using csp_key_holder = std::unique_ptr<csp_key, csp_key_deleter>;

// ---- encryption

// genCryptHandle - make a context for encrypting and decrypting with a key
int genCryptHandle(csp_session* session, csp_key const* key, csp_context*& context);

// freeCryptHandle - free a context of any kind
int freeCryptHandle(csp_context* context);

struct csp_context_deleter {
    void operator()(csp_context* context) const { freeCryptHandle(context); }
};
using csp_context_holder = std::unique_ptr<csp_context, csp_context_deleter>;

// cdsaEncrypt, cdsaDecrypt - all data at once
int cdsaEncrypt(csp_context* context, csp_data clear, csp_buffer& cipher);
int cdsaDecrypt(csp_context* context, csp_data cipher, csp_buffer& clear);

// cdsaStagedEncDecrInit, cdsaStagedEncrypt, cdsaStagedDecrypt - data in pieces
int cdsaStagedEncDecrInit(csp_context* context, crypt_direction direction);
int cdsaStagedEncrypt(csp_context* context, csp_data piece, bool last, unsigned char* out,
                      std::size_t capacity, std::size_t& produced);
int cdsaStagedDecrypt(csp_context* context, csp_data piece, bool last, unsigned char* out,
                      std::size_t capacity, std::size_t& produced);

// ---- digests

// cdsaDigest - all data at once
int cdsaDigest(csp_session* session, cssm_algorithm algorithm, csp_data data, csp_buffer& digest);

// cdsaStagedDigestInit, cdsaStagedDigest - data in pieces; digest is null until the last piece
int cdsaStagedDigestInit(csp_session* session, cssm_algorithm algorithm, csp_context*& context);
int cdsaStagedDigest(csp_context* context, csp_data piece, csp_buffer* digest);

// ---- without a session

// cdsaDigest2 - the MD5 digest
int cdsaDigest2(csp_data data, unsigned char (&digest)[platform::md5_size]);

// cdsaDeriveKey2 - an RC4 key from a pass phrase and a salt, in derive_rounds rounds
//
// key  receives key_bits / 8 bytes
int cdsaDeriveKey2(csp_data pass_phrase, unsigned char const* salt, std::size_t salt_size,
                   unsigned key_bits, unsigned char* key);

// ---- key pairs

// cdsaGenerateKeyPair - for signatures
int cdsaGenerateKeyPair(csp_session* session, cssm_algorithm algorithm, unsigned key_bits,
                        csp_key*& public_key, csp_key*& private_key);

// cdsaDhGenerateKeyPair - for a key exchange; public_value goes to the other side
int cdsaDhGenerateKeyPair(csp_session* session, csp_buffer& public_value, csp_key*& private_key);

// cdsaDhKeyExchange - the key that both sides agree on
int cdsaDhKeyExchange(csp_session* session, csp_key const* private_key, csp_data public_value,
                      cssm_algorithm algorithm, unsigned key_bits, csp_key*& key);

// cdsaSign - sign all data at once
int cdsaSign(csp_session* session, csp_key const* key, cssm_algorithm algorithm, csp_data data,
             csp_buffer& signature);

// cdsaVerify - 0 only when the signature is valid
int cdsaVerify(csp_session* session, csp_key const* key, cssm_algorithm algorithm, csp_data data,
               csp_data signature);

// cdsaStagedSignVerifyInit, cdsaStagedSign, cdsaStagedVerify - sign data in pieces with a private
// key, or verify it with a public key; signature is null until the last piece
int cdsaStagedSignVerifyInit(csp_session* session, csp_key const* key, cssm_algorithm algorithm,
                             csp_context*& context);
int cdsaStagedSign(csp_context* context, csp_data piece, csp_buffer* signature);
int cdsaStagedVerify(csp_context* context, csp_data piece, csp_data const* signature);

}  // namespace zelieml

#endif
