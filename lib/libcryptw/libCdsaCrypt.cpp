// libCdsaCrypt.cpp - the wrappers, without those for key pairs

#include "libcryptw/libCdsaCrypt.h"

#include <cstring>
#include <limits>

#include "support/heap.h"

namespace zelieml
{

namespace
{

constexpr csp_memory app_memory = {appMalloc, appFree, appRealloc, appCalloc, nullptr};

}  // namespace

void* appMalloc(std::size_t size, void* /*ref*/)
{
    return heap_alloc(size);
}

void appFree(void* buffer, void* /*ref*/)
{
    heap_free(buffer);
}

void* appRealloc(void* buffer, std::size_t size, void* /*ref*/)
{
    return heap_realloc(buffer, size);
}

void* appCalloc(std::uint32_t count, std::size_t size, void* /*ref*/)
{
    if (count != 0 && size > std::numeric_limits<std::size_t>::max() / count) {
        return nullptr;
    }
    void* const buffer = heap_alloc(count * size);
    return buffer != nullptr ? std::memset(buffer, 0, count * size) : nullptr;
}

int cssmStartup()
{
    return platform::start_provider();
}

int cdsaCspAttach(csp_session*& session)
{
    int const status = cssmStartup();
    return status == 0 ? platform::attach(app_memory, session) : status;
}

int cdsaCspDetach(csp_session* session)
{
    return platform::detach(session);
}

int cdsaDeriveKey(csp_session* session, csp_data pass_phrase, csp_data salt,
                  cssm_algorithm algorithm, unsigned key_bits, csp_key*& key)
{
    return platform::derive_key(session, pass_phrase, salt, derive_rounds, algorithm, key_bits,
                                key);
}

int cdsaFreeKey(csp_key* key)
{
    return platform::free_key(key);
}

int genCryptHandle(csp_session* session, csp_key const* key, csp_context*& context)
{
    return platform::make_crypt_context(session, key, context);
}

int freeCryptHandle(csp_context* context)
{
    return platform::free_context(context);
}

int cdsaEncrypt(csp_context* context, csp_data clear, csp_buffer& cipher)
{
    return platform::crypt_at_once(context, crypt_direction::encrypt, clear, cipher);
}

int cdsaDecrypt(csp_context* context, csp_data cipher, csp_buffer& clear)
{
    return platform::crypt_at_once(context, crypt_direction::decrypt, cipher, clear);
}

int cdsaStagedEncDecrInit(csp_context* context, crypt_direction direction)
{
    return platform::begin_staged_crypt(context, direction);
}

int cdsaStagedEncrypt(csp_context* context, csp_data piece, bool last, unsigned char* out,
                      std::size_t capacity, std::size_t& produced)
{
    return platform::staged_crypt(context, crypt_direction::encrypt, piece, last, out, capacity,
                                  produced);
}

int cdsaStagedDecrypt(csp_context* context, csp_data piece, bool last, unsigned char* out,
                      std::size_t capacity, std::size_t& produced)
{
    return platform::staged_crypt(context, crypt_direction::decrypt, piece, last, out, capacity,
                                  produced);
}

int cdsaDigest(csp_session* session, cssm_algorithm algorithm, csp_data data, csp_buffer& digest)
{
    return platform::digest_at_once(session, algorithm, data, digest);
}

int cdsaStagedDigestInit(csp_session* session, cssm_algorithm algorithm, csp_context*& context)
{
    return platform::make_digest_context(session, algorithm, context);
}

int cdsaStagedDigest(csp_context* context, csp_data piece, csp_buffer* digest)
{
    return platform::staged_digest(context, piece, digest);
}

int cdsaDigest2(csp_data data, unsigned char (&digest)[platform::md5_size])
{
    return platform::digest_md5(data.data, data.size, digest);
}

int cdsaDeriveKey2(csp_data pass_phrase, unsigned char const* salt, std::size_t salt_size,
                   unsigned key_bits, unsigned char* key)
{
    return platform::derive_rc4_key(static_cast<char const*>(pass_phrase.data), pass_phrase.size,
                                    salt, salt_size, derive_rounds, key, key_bits);
}

}  // namespace zelieml
