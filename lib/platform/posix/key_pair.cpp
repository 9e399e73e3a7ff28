// key_pair.cpp - signing and verifying at once: staged operations of a single piece

#include "platform/key_handle.h"
#include "platform/key_objects.h"

namespace zelieml::platform
{

namespace
{

// Runs a step, callable with the context, on a context that is freed after it.
template <class Step>
int with_signature_context(csp_session* session, csp_key const* key, cssm_algorithm algorithm,
                           Step&& step)
{
    csp_context* context = nullptr;
    int const    status  = make_signature_context(session, key, algorithm, context);
    if (status != 0) {
        return status;
    }
    object_holder<csp_context> const holder(context);
    return step(context);
}

}  // namespace

int sign_at_once(csp_session* session, csp_key const* key, cssm_algorithm algorithm, csp_data data,
                 csp_buffer& signature)
{
    return with_signature_context(session, key, algorithm, [&](csp_context* context) {
        return staged_sign(context, data, &signature);
    });
}

int verify_at_once(csp_session* session, csp_key const* key, cssm_algorithm algorithm,
                   csp_data data, csp_data signature)
{
    return with_signature_context(session, key, algorithm, [&](csp_context* context) {
        return staged_verify(context, data, &signature);
    });
}

}  // namespace zelieml::platform
