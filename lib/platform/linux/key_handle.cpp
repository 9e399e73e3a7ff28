// key_handle.cpp - sessions, digests and symmetric keys by libnettle

#include "platform/key_handle.h"

#include <cerrno>
#include <cstdint>
#include <cstring>
#include <nettle/arcfour.h>

#include "platform/linux/key_objects.h"

namespace zelieml::platform
{

namespace
{

struct crypt_context final : csp_context {
    using csp_context::csp_context;

    std::size_t   key_size = 0;
    unsigned char key[rc4_max_size];
    arcfour_ctx   cipher;
    crypt_stage   stage = crypt_stage::idle;
};

struct digest_context final : csp_context {
    using csp_context::csp_context;

    running_digest digest;
};

int finish_into_buffer(csp_session const& session, running_digest& digest, csp_buffer& out)
{
    if (!make_buffer(session, digest.size(), out)) {
        return ENOMEM;
    }
    digest.finish(out.data);
    return 0;
}

}  // namespace

bool running_digest::begin(cssm_algorithm algorithm)
{
    switch (algorithm) {
    case CSSM_ALGID_MD5:
        hash_ = &nettle_md5;
        break;
    case CSSM_ALGID_SHA1:
        hash_ = &nettle_sha1;
        break;
    case CSSM_ALGID_SHA256:
        hash_ = &nettle_sha256;
        break;
    default:
        return false;
    }
    hash_->init(&state_);
    return true;
}

// libnettle needs no start.
int start_provider()
{
    return 0;
}

int attach(csp_memory const& memory, csp_session*& session)
{
    void* const room = memory.malloc_func(sizeof(csp_session), memory.ref);
    if (room == nullptr) {
        return ENOMEM;
    }
    session = new (room) csp_session{memory};
    return 0;
}

int detach(csp_session* session)
{
    if (session != nullptr) {
        csp_memory const memory = session->memory;
        memory.free_func(session, memory.ref);
    }
    return 0;
}

int derive_key(csp_session* session, csp_data pass_phrase, csp_data salt, unsigned rounds,
               cssm_algorithm algorithm, unsigned key_bits, csp_key*& key)
{
    if (session == nullptr || algorithm != CSSM_ALGID_RC4) {
        return EINVAL;
    }
    auto derived = make_object<symmetric_key>(*session);
    if (!derived) {
        return ENOMEM;
    }
    int const status = derive_rc4_key(static_cast<char const*>(pass_phrase.data), pass_phrase.size,
                                      static_cast<unsigned char const*>(salt.data), salt.size,
                                      rounds, derived->bytes, key_bits);
    if (status != 0) {
        return status;
    }
    derived->size = key_bits / 8;
    key           = derived.release();
    return 0;
}

int make_crypt_context(csp_session* session, csp_key const* key, csp_context*& context)
{
    auto const* const symmetric = dynamic_cast<symmetric_key const*>(key);
    if (session == nullptr || symmetric == nullptr) {
        return EINVAL;
    }
    auto made = make_object<crypt_context>(*session);
    if (!made) {
        return ENOMEM;
    }
    made->key_size = symmetric->size;
    std::memcpy(made->key, symmetric->bytes, symmetric->size);
    context = made.release();
    return 0;
}

int crypt_at_once(csp_context* context, crypt_direction direction, csp_data in, csp_buffer& out)
{
    auto const* const crypt = dynamic_cast<crypt_context const*>(context);
    if (crypt == nullptr) {
        return EINVAL;
    }
    csp_buffer result;
    if (!make_buffer(crypt->session, in.size, result)) {
        return ENOMEM;
    }
    int const status = rc4_crypt(crypt->key, crypt->key_size, direction,
                                 static_cast<unsigned char const*>(in.data), in.size, result.data);
    if (status != 0) {
        crypt->session.give_back(result.data);
        return status;
    }
    out = result;
    return 0;
}

int begin_staged_crypt(csp_context* context, crypt_direction direction)
{
    auto* const crypt = dynamic_cast<crypt_context*>(context);
    if (crypt == nullptr) {
        return EINVAL;
    }
    ::arcfour_set_key(&crypt->cipher, crypt->key_size, crypt->key);
    crypt->stage = stage_of(direction);
    return 0;
}

int staged_crypt(csp_context* context, crypt_direction direction, csp_data piece, bool last,
                 unsigned char* out, std::size_t capacity, std::size_t& produced)
{
    auto* const crypt = dynamic_cast<crypt_context*>(context);
    if (crypt == nullptr || crypt->stage != stage_of(direction) || piece.size > capacity) {
        return EINVAL;
    }
    ::arcfour_crypt(&crypt->cipher, piece.size, out, static_cast<std::uint8_t const*>(piece.data));
    produced = piece.size;
    if (last) {
        crypt->stage = crypt_stage::idle;
    }
    return 0;
}

int digest_at_once(csp_session* session, cssm_algorithm algorithm, csp_data data,
                   csp_buffer& digest)
{
    running_digest running;
    if (session == nullptr || !running.begin(algorithm)) {
        return EINVAL;
    }
    running.update(data);
    return finish_into_buffer(*session, running, digest);
}

int make_digest_context(csp_session* session, cssm_algorithm algorithm, csp_context*& context)
{
    if (session == nullptr) {
        return EINVAL;
    }
    auto made = make_object<digest_context>(*session);
    if (!made) {
        return ENOMEM;
    }
    if (!made->digest.begin(algorithm)) {
        return EINVAL;
    }
    context = made.release();
    return 0;
}

int staged_digest(csp_context* context, csp_data piece, csp_buffer* digest)
{
    auto* const running = dynamic_cast<digest_context*>(context);
    if (running == nullptr) {
        return EINVAL;
    }
    running->digest.update(piece);
    return digest != nullptr ? finish_into_buffer(running->session, running->digest, *digest) : 0;
}

}  // namespace zelieml::platform
