// libCdsaKeyPair.cpp - the wrappers for key pairs
//
// A file of its own because the linker takes whole archive members: no exported function reaches
// this one, so the shared library does not need libhogweed.

#include "libcryptw/libCdsaCrypt.h"

namespace zelieml
{

int cdsaGenerateKeyPair(csp_session* session, cssm_algorithm algorithm, unsigned key_bits,
                        csp_key*& public_key, csp_key*& private_key)
{
    return platform::generate_key_pair(session, algorithm, key_bits, public_key, private_key);
}

int cdsaDhGenerateKeyPair(csp_session* session, csp_buffer& public_value, csp_key*& private_key)
{
    return platform::generate_exchange_pair(session, public_value, private_key);
}

int cdsaDhKeyExchange(csp_session* session, csp_key const* private_key, csp_data public_value,
                      cssm_algorithm algorithm, unsigned key_bits, csp_key*& key)
{
    return platform::exchange_key(session, private_key, public_value, algorithm, key_bits, key);
}

int cdsaSign(csp_session* session, csp_key const* key, cssm_algorithm algorithm, csp_data data,
             csp_buffer& signature)
{
    return platform::sign_at_once(session, key, algorithm, data, signature);
}

int cdsaVerify(csp_session* session, csp_key const* key, cssm_algorithm algorithm, csp_data data,
               csp_data signature)
{
    return platform::verify_at_once(session, key, algorithm, data, signature);
}

int cdsaStagedSignVerifyInit(csp_session* session, csp_key const* key, cssm_algorithm algorithm,
                             csp_context*& context)
{
    return platform::make_signature_context(session, key, algorithm, context);
}

int cdsaStagedSign(csp_context* context, csp_data piece, csp_buffer* signature)
{
    return platform::staged_sign(context, piece, signature);
}

int cdsaStagedVerify(csp_context* context, csp_data piece, csp_data const* signature)
{
    return platform::staged_verify(context, piece, signature);
}

}  // namespace zelieml
