// key_pair.cpp - RSA signatures (RFC 8017) and Diffie-Hellman (PKCS 3) by CSSM

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <cstring>

#include "platform/macos/cssm_objects.h"

namespace zelieml::platform
{

namespace
{

// Group 14 of RFC 3526, which both sides of an exchange must use, as the provider expects it: a
// sequence of the name dhKeyAgreement and a DHParameter of PKCS 3, which is a sequence of the
// 2048-bit prime and the base 2.
constexpr unsigned      exchange_bits         = 2048;
constexpr unsigned      max_exchange_key_bits = 256;
constexpr unsigned char exchange_parameters[] = {
    0x30, 0x82, 0x01, 0x17, 0x06, 0x09, 0x2a, 0x86, 0x48, 0x86, 0xf7, 0x0d, 0x01, 0x03, 0x01, 0x30,
    0x82, 0x01, 0x08, 0x02, 0x82, 0x01, 0x01, 0x00, 0xff, 0xff, 0xff, 0xff, 0xff, 0xff, 0xff, 0xff,
    0xc9, 0x0f, 0xda, 0xa2, 0x21, 0x68, 0xc2, 0x34, 0xc4, 0xc6, 0x62, 0x8b, 0x80, 0xdc, 0x1c, 0xd1,
    0x29, 0x02, 0x4e, 0x08, 0x8a, 0x67, 0xcc, 0x74, 0x02, 0x0b, 0xbe, 0xa6, 0x3b, 0x13, 0x9b, 0x22,
    0x51, 0x4a, 0x08, 0x79, 0x8e, 0x34, 0x04, 0xdd, 0xef, 0x95, 0x19, 0xb3, 0xcd, 0x3a, 0x43, 0x1b,
    0x30, 0x2b, 0x0a, 0x6d, 0xf2, 0x5f, 0x14, 0x37, 0x4f, 0xe1, 0x35, 0x6d, 0x6d, 0x51, 0xc2, 0x45,
    0xe4, 0x85, 0xb5, 0x76, 0x62, 0x5e, 0x7e, 0xc6, 0xf4, 0x4c, 0x42, 0xe9, 0xa6, 0x37, 0xed, 0x6b,
    0x0b, 0xff, 0x5c, 0xb6, 0xf4, 0x06, 0xb7, 0xed, 0xee, 0x38, 0x6b, 0xfb, 0x5a, 0x89, 0x9f, 0xa5,
    0xae, 0x9f, 0x24, 0x11, 0x7c, 0x4b, 0x1f, 0xe6, 0x49, 0x28, 0x66, 0x51, 0xec, 0xe4, 0x5b, 0x3d,
    0xc2, 0x00, 0x7c, 0xb8, 0xa1, 0x63, 0xbf, 0x05, 0x98, 0xda, 0x48, 0x36, 0x1c, 0x55, 0xd3, 0x9a,
    0x69, 0x16, 0x3f, 0xa8, 0xfd, 0x24, 0xcf, 0x5f, 0x83, 0x65, 0x5d, 0x23, 0xdc, 0xa3, 0xad, 0x96,
    0x1c, 0x62, 0xf3, 0x56, 0x20, 0x85, 0x52, 0xbb, 0x9e, 0xd5, 0x29, 0x07, 0x70, 0x96, 0x96, 0x6d,
    0x67, 0x0c, 0x35, 0x4e, 0x4a, 0xbc, 0x98, 0x04, 0xf1, 0x74, 0x6c, 0x08, 0xca, 0x18, 0x21, 0x7c,
    0x32, 0x90, 0x5e, 0x46, 0x2e, 0x36, 0xce, 0x3b, 0xe3, 0x9e, 0x77, 0x2c, 0x18, 0x0e, 0x86, 0x03,
    0x9b, 0x27, 0x83, 0xa2, 0xec, 0x07, 0xa2, 0x8f, 0xb5, 0xc5, 0x5d, 0xf0, 0x6f, 0x4c, 0x52, 0xc9,
    0xde, 0x2b, 0xcb, 0xf6, 0x95, 0x58, 0x17, 0x18, 0x39, 0x95, 0x49, 0x7c, 0xea, 0x95, 0x6a, 0xe5,
    0x15, 0xd2, 0x26, 0x18, 0x98, 0xfa, 0x05, 0x10, 0x15, 0x72, 0x8e, 0x5a, 0x8a, 0xac, 0xaa, 0x68,
    0xff, 0xff, 0xff, 0xff, 0xff, 0xff, 0xff, 0xff, 0x02, 0x01, 0x02,
};
constexpr unsigned char const* exchange_prime      = exchange_parameters + 24;
constexpr std::size_t          exchange_prime_size = exchange_bits / 8;

struct rsa_public final : cssm_key {
    using cssm_key::cssm_key;
};

struct rsa_private final : cssm_key {
    using cssm_key::cssm_key;
};

struct exchange_private final : cssm_key {
    using cssm_key::cssm_key;
};

struct signature_context final : text_context {
    using text_context::text_context;

    bool signs = false;  // or else verifies
};

// The provider's number of a signature; CSSM_ALGID_NONE for anything else.
CSSM_ALGORITHMS signature_number(cssm_algorithm algorithm)
{
    switch (algorithm) {
    case CSSM_ALGID_SHA1WithRSA:
        return ::CSSM_ALGID_SHA1WithRSA;
    case CSSM_ALGID_SHA256WithRSA:
        return static_cast<CSSM_ALGORITHMS>(::CSSM_ALGID_SHA256WithRSA);
    default:
        return ::CSSM_ALGID_NONE;
    }
}

// What the halves of a pair are for.
struct pair_usage {
    std::uint32_t public_half;
    std::uint32_t private_half;
};

// Makes both halves of a pair.
//
// parameters  of the algorithm; may be null
//
// Returns 0 or an error code.
int generate(csp_session const& session, CSSM_ALGORITHMS algorithm, unsigned key_bits,
             CSSM_DATA const* parameters, pair_usage usage, cssm_key& public_half,
             cssm_key& private_half)
{
    cc_owner          context;
    CSSM_RETURN const status =
        ::CSSM_CSP_CreateKeyGenContext(csp_of(session), algorithm, key_bits, nullptr, nullptr,
                                       nullptr, nullptr, parameters, context.out());
    if (status != CSSM_OK) {
        return status;
    }
    CSSM_DATA const label = key_label();
    return ::CSSM_GenerateKeyPair(context.get(), usage.public_half, key_attributes, &label,
                                  &public_half.key, usage.private_half, key_attributes, &label,
                                  nullptr, &private_half.key);
}

// Whether a number is a valid public value, from 2 to the prime less 2: with 0, 1 and the prime
// less 1 the secret hardly depends on the key.
bool is_public_value(csp_data value)
{
    auto const* const begin = static_cast<unsigned char const*>(value.data);
    auto const* const end   = begin + value.size;
    auto const* const first = std::find_if(begin, end, [](unsigned char c) { return c != 0; });
    auto const        size  = static_cast<std::size_t>(end - first);
    if (size != exchange_prime_size) {
        return size < exchange_prime_size && (size > 1 || (size == 1 && *first > 1));
    }
    // The prime is odd: one less differs in the last byte only.
    constexpr std::size_t last  = exchange_prime_size - 1;
    int const             order = std::memcmp(first, exchange_prime, last);
    return order < 0 || (order == 0 && first[last] < exchange_prime[last] - 1);
}

}  // namespace

int generate_key_pair(csp_session* session, cssm_algorithm algorithm, unsigned key_bits,
                      csp_key*& public_key, csp_key*& private_key)
{
    if (is_forked() || session == nullptr || algorithm != CSSM_ALGID_RSA ||
        key_bits < min_rsa_bits || key_bits > max_rsa_bits) {
        return EINVAL;
    }
    auto made_public  = make_object<rsa_public>(*session);
    auto made_private = make_object<rsa_private>(*session);
    if (!made_public || !made_private) {
        return ENOMEM;
    }
    int const status =
        generate(*session, ::CSSM_ALGID_RSA, key_bits, nullptr,
                 {CSSM_KEYUSE_VERIFY, CSSM_KEYUSE_SIGN}, *made_public, *made_private);
    if (status != 0) {
        return status;
    }
    public_key  = made_public.release();
    private_key = made_private.release();
    return 0;
}

int generate_exchange_pair(csp_session* session, csp_buffer& public_value, csp_key*& private_key)
{
    if (is_forked() || session == nullptr) {
        return EINVAL;
    }
    auto const public_half = make_object<cssm_key>(*session);
    auto       made        = make_object<exchange_private>(*session);
    if (!public_half || !made) {
        return ENOMEM;
    }
    CSSM_DATA const parameters = as_cssm({exchange_parameters, sizeof exchange_parameters});
    int const       status     = generate(*session, CSSM_ALGID_DH, exchange_bits, &parameters,
                                          {CSSM_KEYUSE_DERIVE, CSSM_KEYUSE_DERIVE}, *public_half, *made);
    if (status != 0) {
        return status;
    }
    csp_buffer value;
    if (!make_buffer(*session, public_half->key.KeyData.Length, value)) {
        return ENOMEM;
    }
    std::copy_n(public_half->key.KeyData.Data, value.size, value.data);
    public_value = value;
    private_key  = made.release();
    return 0;
}

int exchange_key(csp_session* session, csp_key const* private_key, csp_data public_value,
                 cssm_algorithm algorithm, unsigned key_bits, csp_key*& key)
{
    auto const* const own = dynamic_cast<exchange_private const*>(private_key);
    if (is_forked() || session == nullptr || own == nullptr || !is_public_value(public_value) ||
        algorithm != CSSM_ALGID_RC4 || !is_rc4_size(key_bits, max_exchange_key_bits)) {
        return EINVAL;
    }
    cc_owner          context;
    CSSM_RETURN const status = ::CSSM_CSP_CreateDeriveKeyContext(
        csp_of(*session), CSSM_ALGID_DH, ::CSSM_ALGID_RC4, key_bits, &nobody, &own->key, 0, nullptr,
        nullptr, context.out());
    if (status != CSSM_OK) {
        return status;
    }
    return derive_with(*session, context.get(), as_cssm(public_value), key);
}

int make_signature_context(csp_session* session, csp_key const* key, cssm_algorithm algorithm,
                           csp_context*& context)
{
    bool const            signs  = dynamic_cast<rsa_private const*>(key) != nullptr;
    bool const            checks = dynamic_cast<rsa_public const*>(key) != nullptr;
    CSSM_ALGORITHMS const number = signature_number(algorithm);
    if (is_forked() || session == nullptr || (!signs && !checks) || number == ::CSSM_ALGID_NONE) {
        return EINVAL;
    }
    auto made = make_object<signature_context>(*session);
    if (!made) {
        return ENOMEM;
    }
    CSSM_RETURN const status = ::CSSM_CSP_CreateSignatureContext(
        csp_of(*session), number, &nobody, &static_cast<cssm_key const*>(key)->key,
        made->context.out());
    if (status != CSSM_OK) {
        return status;
    }
    made->signs = signs;
    context     = made.release();
    return 0;
}

int staged_sign(csp_context* context, csp_data piece, csp_buffer* signature)
{
    auto* const signing = dynamic_cast<signature_context*>(context);
    if (is_forked() || signing == nullptr || !signing->signs) {
        return EINVAL;
    }
    int const status = give_piece(CSSM_SignDataInit, CSSM_SignDataUpdate, *signing, piece);
    if (status != 0 || signature == nullptr) {
        return status;
    }
    return take_result(CSSM_SignDataFinal, *signing, *signature);
}

int staged_verify(csp_context* context, csp_data piece, csp_data const* signature)
{
    auto* const verifying = dynamic_cast<signature_context*>(context);
    if (is_forked() || verifying == nullptr || verifying->signs) {
        return EINVAL;
    }
    int const status = give_piece(CSSM_VerifyDataInit, CSSM_VerifyDataUpdate, *verifying, piece);
    if (status != 0 || signature == nullptr) {
        return status;
    }
    verifying->begun     = false;
    CSSM_DATA const data = as_cssm(*signature);
    return ::CSSM_VerifyDataFinal(verifying->context.get(), &data);
}

}  // namespace zelieml::platform
