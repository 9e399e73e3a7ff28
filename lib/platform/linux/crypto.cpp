// crypto.cpp - libnettle, which needs no initialisation and has no global state

#include "platform/crypto.h"

#include <cerrno>
#include <cstdint>
#include <nettle/arcfour.h>
#include <nettle/md5.h>
#include <nettle/pbkdf2.h>

namespace zelieml::platform
{

int digest_md5(void const* data, std::size_t size, unsigned char (&digest)[md5_size])
{
    static_assert(md5_size == MD5_DIGEST_SIZE);

    md5_ctx context;
    ::md5_init(&context);
    ::md5_update(&context, size, static_cast<std::uint8_t const*>(data));
    ::md5_digest(&context, md5_size, digest);
    return 0;
}

int derive_rc4_key(char const* pass_phrase, std::size_t pass_phrase_size, unsigned char const* salt,
                   std::size_t salt_size, unsigned rounds, unsigned char* key, unsigned key_bits)
{
    if (rounds == 0 || key_bits == 0 || key_bits % 8 != 0 || key_bits / 8 > rc4_max_size) {
        return EINVAL;
    }
    ::pbkdf2_hmac_sha1(pass_phrase_size, reinterpret_cast<std::uint8_t const*>(pass_phrase), rounds,
                       salt_size, salt, key_bits / 8, key);
    return 0;
}

// RC4 decrypts in the same way as it encrypts.
int rc4_crypt(unsigned char const* key, std::size_t key_size, crypt_direction /*direction*/,
              unsigned char const* in, std::size_t size, unsigned char* out)
{
    static_assert(rc4_max_size == ARCFOUR_MAX_KEY_SIZE && ARCFOUR_MIN_KEY_SIZE == 1);

    if (key_size == 0 || key_size > rc4_max_size) {
        return EINVAL;
    }
    arcfour_ctx context;
    ::arcfour_set_key(&context, key_size, key);
    ::arcfour_crypt(&context, size, out, in);
    return 0;
}

}  // namespace zelieml::platform
