// crypto.h - digest, key derivation and stream cipher, each in one call
//
// lib/platform/macos/crypto.cpp: the Security framework's transforms (SecDigestTransformCreate,
// SecKeyDeriveFromPassword and SecItemExport, SecKeyCreateFromData with SecEncryptTransformCreate
// or SecDecryptTransformCreate).
// lib/platform/linux/crypto.cpp: libnettle.
//
// Each function returns 0, or the platform's error code with its output undefined. Any thread;
// nothing is kept between calls. On macOS each fails in a forked child of a process that has used
// the frameworks, see macos/first_process.h.

#ifndef ZELIEML_PLATFORM_CRYPTO_H
#define ZELIEML_PLATFORM_CRYPTO_H

#include <cstddef>

namespace zelieml
{

enum class crypt_direction {
    encrypt,
    decrypt
};

namespace platform
{

constexpr std::size_t md5_size     = 16;
constexpr std::size_t rc4_max_size = 256;  // bytes of the longest RC4 key

// digest_md5 - MD5 (RFC 1321)
//
// data, size  the bytes; data may be null when size is 0
int digest_md5(void const* data, std::size_t size, unsigned char (&digest)[md5_size]);

// derive_rc4_key - an RC4 key from a pass phrase, by PBKDF2 with HMAC-SHA1 (RFC 8018)
//
// pass_phrase  UTF-8
// salt         salt_size bytes; macOS may fail with fewer than 8
// rounds       at least 1; macOS may fail with fewer than 1000
// key          receives key_bits / 8 bytes
// key_bits     8 to 2048, a multiple of 8
int derive_rc4_key(char const* pass_phrase, std::size_t pass_phrase_size, unsigned char const* salt,
                   std::size_t salt_size, unsigned rounds, unsigned char* key, unsigned key_bits);

// rc4_crypt - RC4 over the whole input, without mode or padding
//
// key   key_size bytes, 1 to rc4_max_size
// in    size bytes
// out   receives as many bytes; may be the same as in
int rc4_crypt(unsigned char const* key, std::size_t key_size, crypt_direction direction,
              unsigned char const* in, std::size_t size, unsigned char* out);

}  // namespace platform
}  // namespace zelieml

#endif
