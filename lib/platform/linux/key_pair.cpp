// key_pair.cpp - RSA signatures (RFC 8017) and X25519 (RFC 7748) by libhogweed
//
// Alone in its object: no other file refers to libhogweed.

#include <cerrno>
#include <cstdint>
#include <cstring>
#include <nettle/bignum.h>
#include <nettle/curve25519.h>
#include <nettle/rsa.h>
#include <nettle/yarrow.h>
#include <unistd.h>

#include "platform/key_handle.h"
#include "platform/linux/key_objects.h"

namespace zelieml::platform
{

namespace
{

constexpr unsigned long public_exponent = 65537;

// A generator seeded by the kernel: once seeded it cannot fail.
class random_source
{
public:
    // Returns 0 or errno.
    int seed()
    {
        unsigned char start[YARROW256_SEED_FILE_SIZE];
        if (::getentropy(start, sizeof start) != 0) {
            return errno;
        }
        ::yarrow256_init(&generator_, 0, nullptr);
        ::yarrow256_seed(&generator_, sizeof start, start);
        return 0;
    }

    // The nettle_random_func for libhogweed, whose context is the source.
    static void fill(void* source, std::size_t size, std::uint8_t* out)
    {
        ::yarrow256_random(&static_cast<random_source*>(source)->generator_, size, out);
    }

private:
    yarrow256_ctx generator_;
};

struct rsa_public final : csp_key {
    explicit rsa_public(csp_session const& owner) : csp_key(owner) { ::rsa_public_key_init(&half); }
    ~rsa_public() override { ::rsa_public_key_clear(&half); }

    rsa_public_key half;
};

// The public half is needed for signing with blinding.
struct rsa_private final : csp_key {
    explicit rsa_private(csp_session const& owner) : csp_key(owner)
    {
        ::rsa_public_key_init(&public_half);
        ::rsa_private_key_init(&half);
    }
    ~rsa_private() override
    {
        ::rsa_private_key_clear(&half);
        ::rsa_public_key_clear(&public_half);
    }

    rsa_public_key  public_half;
    rsa_private_key half;
};

struct exchange_private final : csp_key {
    using csp_key::csp_key;

    unsigned char secret[CURVE25519_SIZE];
};

struct signature_scheme {
    cssm_algorithm algorithm;
    cssm_algorithm digest;
    int (*sign)(rsa_public_key const*, rsa_private_key const*, void*, nettle_random_func*,
                std::uint8_t const*, mpz_t);
    int (*verify)(rsa_public_key const*, std::uint8_t const*, mpz_t const);
};

constexpr signature_scheme schemes[] = {
    {CSSM_ALGID_SHA1WithRSA, CSSM_ALGID_SHA1, rsa_sha1_sign_digest_tr, rsa_sha1_verify_digest},
    {CSSM_ALGID_SHA256WithRSA, CSSM_ALGID_SHA256, rsa_sha256_sign_digest_tr,
     rsa_sha256_verify_digest},
};

// One of the keys is null: the context either signs or verifies.
struct signature_context final : csp_context {
    using csp_context::csp_context;

    signature_scheme const* scheme      = nullptr;
    rsa_private const*      private_key = nullptr;
    rsa_public const*       public_key  = nullptr;
    running_digest          digest;
};

// A number of libhogweed that frees itself.
struct big_number {
    big_number() { ::mpz_init(value); }
    ~big_number() { ::mpz_clear(value); }
    big_number(big_number const&)            = delete;
    big_number& operator=(big_number const&) = delete;

    mpz_t value;
};

int sign_digest(signature_context& context, csp_buffer& signature)
{
    random_source random;
    int const     seeded = random.seed();
    if (seeded != 0) {
        return seeded;
    }
    unsigned char digest[running_digest::max_size];
    context.digest.finish(digest);
    rsa_private const& key = *context.private_key;
    big_number         number;
    if (context.scheme->sign(&key.public_half, &key.half, &random, random_source::fill, digest,
                             number.value) == 0) {
        return EINVAL;
    }
    if (!make_buffer(context.session, key.half.size, signature)) {
        return ENOMEM;
    }
    ::nettle_mpz_get_str_256(signature.size, signature.data, number.value);
    return 0;
}

int verify_digest(signature_context& context, csp_data signature)
{
    unsigned char digest[running_digest::max_size];
    context.digest.finish(digest);
    rsa_public_key const& key = context.public_key->half;
    if (signature.size != key.size) {
        return EBADMSG;
    }
    big_number number;
    ::nettle_mpz_set_str_256_u(number.value, signature.size,
                               static_cast<std::uint8_t const*>(signature.data));
    return context.scheme->verify(&key, digest, number.value) != 0 ? 0 : EBADMSG;
}

}  // namespace

int generate_key_pair(csp_session* session, cssm_algorithm algorithm, unsigned key_bits,
                      csp_key*& public_key, csp_key*& private_key)
{
    if (session == nullptr || algorithm != CSSM_ALGID_RSA || key_bits < min_rsa_bits ||
        key_bits > max_rsa_bits) {
        return EINVAL;
    }
    auto made_public  = make_object<rsa_public>(*session);
    auto made_private = make_object<rsa_private>(*session);
    if (!made_public || !made_private) {
        return ENOMEM;
    }
    random_source random;
    int const     seeded = random.seed();
    if (seeded != 0) {
        return seeded;
    }
    rsa_public_key& half = made_private->public_half;
    ::mpz_set_ui(half.e, public_exponent);
    if (::rsa_generate_keypair(&half, &made_private->half, &random, random_source::fill, nullptr,
                               nullptr, key_bits, 0) == 0) {
        return EINVAL;
    }
    ::mpz_set(made_public->half.n, half.n);
    ::mpz_set(made_public->half.e, half.e);
    made_public->half.size = half.size;
    public_key             = made_public.release();
    private_key            = made_private.release();
    return 0;
}

int generate_exchange_pair(csp_session* session, csp_buffer& public_value, csp_key*& private_key)
{
    if (session == nullptr) {
        return EINVAL;
    }
    auto       made = make_object<exchange_private>(*session);
    csp_buffer value;
    if (!made) {
        return ENOMEM;
    }
    if (::getentropy(made->secret, sizeof made->secret) != 0) {
        return errno;
    }
    if (!make_buffer(*session, CURVE25519_SIZE, value)) {
        return ENOMEM;
    }
    ::curve25519_mul_g(value.data, made->secret);
    public_value = value;
    private_key  = made.release();
    return 0;
}

int exchange_key(csp_session* session, csp_key const* private_key, csp_data public_value,
                 cssm_algorithm algorithm, unsigned key_bits, csp_key*& key)
{
    auto const* const own = dynamic_cast<exchange_private const*>(private_key);
    if (session == nullptr || own == nullptr || public_value.size != CURVE25519_SIZE ||
        algorithm != CSSM_ALGID_RC4 || key_bits == 0 || key_bits % 8 != 0 ||
        key_bits / 8 > SHA256_DIGEST_SIZE) {
        return EINVAL;
    }
    unsigned char shared[CURVE25519_SIZE];
    ::curve25519_mul(shared, own->secret, static_cast<std::uint8_t const*>(public_value.data));
    // A point of small order gives the secret zero with every key.
    unsigned char const zero[CURVE25519_SIZE] = {};
    if (std::memcmp(shared, zero, sizeof shared) == 0) {
        return EINVAL;
    }

    auto made = make_object<symmetric_key>(*session);
    if (!made) {
        return ENOMEM;
    }
    running_digest digest;
    digest.begin(CSSM_ALGID_SHA256);
    digest.update({shared, sizeof shared});
    digest.finish(made->bytes);
    made->size = key_bits / 8;
    key        = made.release();
    return 0;
}

int make_signature_context(csp_session* session, csp_key const* key, cssm_algorithm algorithm,
                           csp_context*& context)
{
    auto const* const private_key = dynamic_cast<rsa_private const*>(key);
    auto const* const public_key  = dynamic_cast<rsa_public const*>(key);
    if (session == nullptr || (private_key == nullptr && public_key == nullptr)) {
        return EINVAL;
    }
    for (signature_scheme const& scheme : schemes) {
        if (scheme.algorithm == algorithm) {
            auto made = make_object<signature_context>(*session);
            if (!made) {
                return ENOMEM;
            }
            made->scheme      = &scheme;
            made->private_key = private_key;
            made->public_key  = public_key;
            made->digest.begin(scheme.digest);
            context = made.release();
            return 0;
        }
    }
    return EINVAL;
}

int staged_sign(csp_context* context, csp_data piece, csp_buffer* signature)
{
    auto* const signing = dynamic_cast<signature_context*>(context);
    if (signing == nullptr || signing->private_key == nullptr) {
        return EINVAL;
    }
    signing->digest.update(piece);
    return signature != nullptr ? sign_digest(*signing, *signature) : 0;
}

int staged_verify(csp_context* context, csp_data piece, csp_data const* signature)
{
    auto* const verifying = dynamic_cast<signature_context*>(context);
    if (verifying == nullptr || verifying->public_key == nullptr) {
        return EINVAL;
    }
    verifying->digest.update(piece);
    return signature != nullptr ? verify_digest(*verifying, *signature) : 0;
}

}  // namespace zelieml::platform
