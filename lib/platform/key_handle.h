// key_handle.h - cryptography through a provider, its keys and its contexts
//
// lib/platform/macos/key_handle.cpp: the CSSM interface of the Security framework.
// lib/platform/linux/key_handle.cpp: libnettle; lib/platform/linux/key_pair.cpp, for the functions
// after "key pairs" below: libhogweed, which only programs that use these need.
//
// A session is one attachment to the provider. Keys and contexts belong to their session and must
// be freed before it is detached. A context is one operation in progress; when a step fails, the
// operation is over.
//
// Every function returns 0, or the platform's error code with nothing allocated. A null object, or
// one of the wrong kind, is an error; freeing or detaching null does nothing and returns 0.
// Whatever a session hands out is allocated with the memory functions given to attach. Only one
// thread at a time may use an object; several may read a key.
//
// On macOS every function fails in a forked child of a process that has used the frameworks, see
// macos/first_process.h; only freeing and detaching give back the memory of what the parent made.
//
// The algorithms have the names of CSSM, but other numbers.

#ifndef ZELIEML_PLATFORM_KEY_HANDLE_H
#define ZELIEML_PLATFORM_KEY_HANDLE_H

#include <cstddef>
#include <cstdint>

#include "platform/crypto.h"

namespace zelieml
{

enum cssm_algorithm {
    CSSM_ALGID_NONE,
    // digests
    CSSM_ALGID_MD5,
    CSSM_ALGID_SHA1,
    CSSM_ALGID_SHA256,
    // keys
    CSSM_ALGID_RC4,
    CSSM_ALGID_RSA,
    // signatures (RFC 8017, RSASSA-PKCS1-v1_5)
    CSSM_ALGID_SHA1WithRSA,
    CSSM_ALGID_SHA256WithRSA
};

struct csp_session;
struct csp_key;
struct csp_context;

// The memory functions of a session; ref is passed to each call.
struct csp_memory {
    void* (*malloc_func)(std::size_t size, void* ref);
    void (*free_func)(void* buffer, void* ref);
    void* (*realloc_func)(void* buffer, std::size_t size, void* ref);
    void* (*calloc_func)(std::uint32_t count, std::size_t size, void* ref);
    void* ref;
};

// Bytes that the caller owns; data may be null when size is 0.
struct csp_data {
    void const* data;
    std::size_t size;
};

// Bytes from the provider, allocated with the session's memory functions; the caller frees them.
struct csp_buffer {
    unsigned char* data = nullptr;
    std::size_t    size = 0;
};

namespace platform
{

// start_provider - start the provider for this process; may be called again, on any thread
int start_provider();

// attach - begin a session
//
// memory   copied
// session  receives the session, which the caller detaches
int attach(csp_memory const& memory, csp_session*& session);

int detach(csp_session* session);

// derive_key - a symmetric key from a pass phrase, by PBKDF2 with HMAC-SHA1 (RFC 8018)
//
// salt       macOS fails with fewer than 8 bytes
// rounds     at least 1; macOS fails with fewer than 1000
// algorithm  what the key is for: CSSM_ALGID_RC4
// key_bits   8 to 2048, a multiple of 8
// key        receives the key, which the caller frees with free_key
int derive_key(csp_session* session, csp_data pass_phrase, csp_data salt, unsigned rounds,
               cssm_algorithm algorithm, unsigned key_bits, csp_key*& key);

// free_key - free a key of any kind
int free_key(csp_key* key);

// make_crypt_context - a context that encrypts or decrypts with a symmetric key
//
// key      copied
// context  receives the context, which the caller frees with free_context
int make_crypt_context(csp_session* session, csp_key const* key, csp_context*& context);

// free_context - free a context of any kind, even during an operation
int free_context(csp_context* context);

// crypt_at_once - encrypt or decrypt all data at once
//
// out  receives the result
int crypt_at_once(csp_context* context, crypt_direction direction, csp_data in, csp_buffer& out);

// begin_staged_crypt - begin encrypting or decrypting data in pieces
int begin_staged_crypt(csp_context* context, crypt_direction direction);

// staged_crypt - encrypt or decrypt the next piece
//
// direction  that of begin_staged_crypt
// last       true for the last piece
// out        room for capacity bytes; a block cipher may produce up to 8 bytes more than the piece
// produced   receives the number of bytes written to out
int staged_crypt(csp_context* context, crypt_direction direction, csp_data piece, bool last,
                 unsigned char* out, std::size_t capacity, std::size_t& produced);

// digest_at_once - the digest of all data at once
int digest_at_once(csp_session* session, cssm_algorithm algorithm, csp_data data,
                   csp_buffer& digest);

// make_digest_context - a context for a digest of data in pieces
//
// context  receives the context, which the caller frees with free_context
int make_digest_context(csp_session* session, cssm_algorithm algorithm, csp_context*& context);

// staged_digest - add the next piece
//
// digest  null while more pieces follow; receives the digest with the last piece
int staged_digest(csp_context* context, csp_data piece, csp_buffer* digest);

// ---- key pairs

// generate_key_pair - a key pair for signatures
//
// algorithm    CSSM_ALGID_RSA
// key_bits     size of the modulus, 512 to 16384; on macOS at most 8192
// public_key, private_key  receive the keys, which the caller frees with free_key
int generate_key_pair(csp_session* session, cssm_algorithm algorithm, unsigned key_bits,
                      csp_key*& public_key, csp_key*& private_key);

// generate_exchange_pair - a Diffie-Hellman pair
//
// The parameters are the provider's (on Linux X25519, RFC 7748), so both sides of an exchange must
// run on the same system.
//
// public_value  receives the value to send to the other side
// private_key   receives the key, which the caller frees with free_key
int generate_exchange_pair(csp_session* session, csp_buffer& public_value, csp_key*& private_key);

// exchange_key - the symmetric key that both sides of an exchange agree on
//
// private_key   from generate_exchange_pair
// public_value  from the other side
// algorithm     what the key is for: CSSM_ALGID_RC4
// key_bits      8 to 256, a multiple of 8
// key           receives the key, which the caller frees with free_key
int exchange_key(csp_session* session, csp_key const* private_key, csp_data public_value,
                 cssm_algorithm algorithm, unsigned key_bits, csp_key*& key);

// sign_at_once - sign all data at once
//
// key        private key of generate_key_pair
// algorithm  CSSM_ALGID_SHA1WithRSA or CSSM_ALGID_SHA256WithRSA
int sign_at_once(csp_session* session, csp_key const* key, cssm_algorithm algorithm, csp_data data,
                 csp_buffer& signature);

// verify_at_once - check the signature of all data at once
//
// key  public key of generate_key_pair
//
// Returns 0 only when the signature is valid.
int verify_at_once(csp_session* session, csp_key const* key, cssm_algorithm algorithm,
                   csp_data data, csp_data signature);

// make_signature_context - a context that signs data in pieces with a private key, or checks its
// signature with a public key
//
// key      must outlive the context
// context  receives the context, which the caller frees with free_context
int make_signature_context(csp_session* session, csp_key const* key, cssm_algorithm algorithm,
                           csp_context*& context);

// staged_sign - add the next piece
//
// signature  null while more pieces follow; receives the signature with the last piece
int staged_sign(csp_context* context, csp_data piece, csp_buffer* signature);

// staged_verify - add the next piece
//
// signature  null while more pieces follow; the signature to check with the last piece
//
// Returns 0 for the last piece only when the signature is valid.
int staged_verify(csp_context* context, csp_data piece, csp_data const* signature);

}  // namespace platform
}  // namespace zelieml

#endif
