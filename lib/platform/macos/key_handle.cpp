// key_handle.cpp - sessions, digests and symmetric keys by CSSM and the system's own provider
//
// The system deprecates this interface. Stored passwords need only the transforms of crypto.cpp.

#include <cerrno>
#include <cstring>
#include <mutex>

#include "platform/macos/cssm_objects.h"

namespace zelieml::platform
{

namespace
{

constexpr CSSM_VERSION version = {2, 0};

// Identifies the library to CSSM: any number will do, if it is the same in all calls.
constexpr CSSM_GUID caller = {0x7a656c69, 0x656d, 0x6c00, {0, 0, 0, 0, 0, 0, 0, 1}};

struct crypt_context final : csp_context {
    using csp_context::csp_context;
    ~crypt_context() override
    {
        context.reset();
        session.give_back(key.KeyData.Data);
    }

    CSSM_KEY    key = {};  // a copy, to which the provider's context refers
    cc_owner    context;   // of one message
    crypt_stage stage = crypt_stage::idle;
};

struct digest_context final : text_context {
    using text_context::text_context;
};

// The provider's number of a digest; CSSM_ALGID_NONE for anything else.
CSSM_ALGORITHMS digest_number(cssm_algorithm algorithm)
{
    switch (algorithm) {
    case CSSM_ALGID_MD5:
        return ::CSSM_ALGID_MD5;
    case CSSM_ALGID_SHA1:
        return ::CSSM_ALGID_SHA1;
    case CSSM_ALGID_SHA256:
        return static_cast<CSSM_ALGORITHMS>(::CSSM_ALGID_SHA256);
    default:
        return ::CSSM_ALGID_NONE;
    }
}

int start()
{
    CSSM_PVC_MODE     policy = CSSM_PVC_NONE;
    CSSM_RETURN const status = ::CSSM_Init(&version, CSSM_PRIVILEGE_SCOPE_NONE, &caller,
                                           CSSM_KEY_HIERARCHY_NONE, &policy, nullptr);
    if (status != CSSM_OK) {
        return status;
    }
    return ::CSSM_ModuleLoad(&gGuidAppleCSP, CSSM_KEY_HIERARCHY_NONE, nullptr, nullptr);
}

// Ends a message in pieces: what the provider has held back is appended.
int finish(crypt_context& crypt, unsigned char* out, std::size_t capacity, std::size_t& produced)
{
    auto const final_step =
        crypt.stage == crypt_stage::encrypting ? CSSM_EncryptDataFinal : CSSM_DecryptDataFinal;
    CSSM_DATA         rest   = {0, nullptr};
    CSSM_RETURN const status = final_step(crypt.context.get(), &rest);
    int               result = status;
    if (status == CSSM_OK && rest.Length > capacity - produced) {
        result = EINVAL;
    } else if (status == CSSM_OK && rest.Length != 0) {
        std::memcpy(out + produced, rest.Data, rest.Length);
        produced += rest.Length;
    }
    if (rest.Data != nullptr) {
        crypt.session.give_back(rest.Data);
    }
    return result;
}

}  // namespace

int derive_with(csp_session const& session, CSSM_CC_HANDLE context, CSSM_DATA parameter,
                csp_key*& key)
{
    auto made = make_object<symmetric_key>(session);
    if (!made) {
        return ENOMEM;
    }
    CSSM_DATA const   label  = key_label();
    CSSM_RETURN const status = ::CSSM_DeriveKey(context, &parameter, CSSM_KEYUSE_ANY,
                                                key_attributes, &label, nullptr, &made->key);
    if (status != CSSM_OK) {
        return status;
    }
    key = made.release();
    return 0;
}

int start_provider()
{
    if (is_forked()) {
        return EINVAL;
    }
    static std::mutex                 guard;
    static bool                       started = false;
    std::lock_guard<std::mutex> const hold(guard);
    if (!started) {
        int const status = start();
        if (status != 0) {
            return status;
        }
        started = true;
    }
    return 0;
}

int attach(csp_memory const& memory, csp_session*& session)
{
    if (is_forked()) {
        return EINVAL;
    }
    CSSM_API_MEMORY_FUNCS const functions = {memory.malloc_func, memory.free_func,
                                             memory.realloc_func, memory.calloc_func, memory.ref};

    void* const room = memory.malloc_func(sizeof(attachment), memory.ref);
    if (room == nullptr) {
        return ENOMEM;
    }
    auto* const       made = new (room) attachment{{memory}, CSSM_INVALID_HANDLE};
    CSSM_RETURN const status =
        ::CSSM_ModuleAttach(&gGuidAppleCSP, &version, &functions, 0, CSSM_SERVICE_CSP, 0,
                            CSSM_KEY_HIERARCHY_NONE, nullptr, 0, nullptr, &made->csp);
    if (status != CSSM_OK) {
        memory.free_func(room, memory.ref);
        return status;
    }
    session = made;
    return 0;
}

int detach(csp_session* session)
{
    if (session == nullptr) {
        return 0;
    }
    CSSM_RETURN const status = !is_forked() ? ::CSSM_ModuleDetach(csp_of(*session)) : CSSM_OK;
    csp_memory const  memory = session->memory;
    memory.free_func(session, memory.ref);
    return status;
}

int derive_key(csp_session* session, csp_data pass_phrase, csp_data salt, unsigned rounds,
               cssm_algorithm algorithm, unsigned key_bits, csp_key*& key)
{
    if (is_forked() || session == nullptr || algorithm != CSSM_ALGID_RC4 || rounds == 0 ||
        !is_rc4_size(key_bits, rc4_max_size * 8)) {
        return EINVAL;
    }
    CSSM_DATA const   salt_data = as_cssm(salt);
    cc_owner          context;
    CSSM_RETURN const status = ::CSSM_CSP_CreateDeriveKeyContext(
        csp_of(*session), CSSM_ALGID_PKCS5_PBKDF2, ::CSSM_ALGID_RC4, key_bits, nullptr, nullptr,
        rounds, &salt_data, nullptr, context.out());
    if (status != CSSM_OK) {
        return status;
    }
    CSSM_PKCS5_PBKDF2_PARAMS parameters = {as_cssm(pass_phrase), CSSM_PKCS5_PBKDF2_PRF_HMAC_SHA1};
    return derive_with(*session, context.get(), as_cssm({&parameters, sizeof parameters}), key);
}

int make_crypt_context(csp_session* session, csp_key const* key, csp_context*& context)
{
    auto const* const symmetric = dynamic_cast<symmetric_key const*>(key);
    if (is_forked() || session == nullptr || symmetric == nullptr) {
        return EINVAL;
    }
    auto       made = make_object<crypt_context>(*session);
    csp_buffer bytes;
    if (!made || !make_buffer(*session, symmetric->key.KeyData.Length, bytes)) {
        return ENOMEM;
    }
    std::memcpy(bytes.data, symmetric->key.KeyData.Data, bytes.size);
    made->key              = symmetric->key;
    made->key.KeyData.Data = bytes.data;
    context                = made.release();
    return 0;
}

int crypt_at_once(csp_context* context, crypt_direction direction, csp_data in, csp_buffer& out)
{
    int const begun = begin_staged_crypt(context, direction);
    if (begun != 0) {
        return begun;
    }
    csp_buffer result;
    if (!make_buffer(context->session, in.size, result)) {
        return ENOMEM;
    }
    int const status =
        staged_crypt(context, direction, in, true, result.data, in.size, result.size);
    if (status != 0) {
        context->session.give_back(result.data);
        return status;
    }
    out = result;
    return 0;
}

int begin_staged_crypt(csp_context* context, crypt_direction direction)
{
    auto* const crypt = dynamic_cast<crypt_context*>(context);
    if (is_forked() || crypt == nullptr) {
        return EINVAL;
    }
    // A new context, since the provider leaks the cipher of one that is initialised again.
    crypt->stage = crypt_stage::idle;
    crypt->context.reset();
    CSSM_RETURN const made = ::CSSM_CSP_CreateSymmetricContext(
        csp_of(crypt->session), ::CSSM_ALGID_RC4, CSSM_ALGMODE_NONE, &nobody, &crypt->key, nullptr,
        CSSM_PADDING_NONE, nullptr, crypt->context.out());
    if (made != CSSM_OK) {
        return made;
    }
    auto const begin =
        direction == crypt_direction::encrypt ? CSSM_EncryptDataInit : CSSM_DecryptDataInit;
    CSSM_RETURN const status = begin(crypt->context.get());
    if (status == CSSM_OK) {
        crypt->stage = stage_of(direction);
    }
    return status;
}

int staged_crypt(csp_context* context, crypt_direction direction, csp_data piece, bool last,
                 unsigned char* out, std::size_t capacity, std::size_t& produced)
{
    auto* const crypt = dynamic_cast<crypt_context*>(context);
    if (is_forked() || crypt == nullptr || crypt->stage != stage_of(direction) ||
        piece.size > capacity) {
        return EINVAL;
    }
    auto const step =
        direction == crypt_direction::encrypt ? CSSM_EncryptDataUpdate : CSSM_DecryptDataUpdate;
    CSSM_DATA const in     = as_cssm(piece);
    CSSM_DATA       result = {capacity, out};
    CSSM_SIZE       size   = 0;
    int             status = CSSM_OK;
    if (piece.size != 0) {
        status = step(crypt->context.get(), &in, 1, &result, 1, &size);
    }
    if (status == CSSM_OK && last) {
        status = finish(*crypt, out, capacity, size);
    }
    if (last || status != CSSM_OK) {
        crypt->stage = crypt_stage::idle;
    }
    if (status != CSSM_OK) {
        return status;
    }
    produced = size;
    return 0;
}

// As a staged digest of one piece, which the provider allows to be empty.
int digest_at_once(csp_session* session, cssm_algorithm algorithm, csp_data data,
                   csp_buffer& digest)
{
    csp_context* context = nullptr;
    int const    status  = make_digest_context(session, algorithm, context);
    if (status != 0) {
        return status;
    }
    object_holder<csp_context> const holder(context);
    return staged_digest(context, data, &digest);
}

int make_digest_context(csp_session* session, cssm_algorithm algorithm, csp_context*& context)
{
    CSSM_ALGORITHMS const number = digest_number(algorithm);
    if (is_forked() || session == nullptr || number == ::CSSM_ALGID_NONE) {
        return EINVAL;
    }
    auto made = make_object<digest_context>(*session);
    if (!made) {
        return ENOMEM;
    }
    CSSM_RETURN const status =
        ::CSSM_CSP_CreateDigestContext(csp_of(*session), number, made->context.out());
    if (status != CSSM_OK) {
        return status;
    }
    context = made.release();
    return 0;
}

int staged_digest(csp_context* context, csp_data piece, csp_buffer* digest)
{
    auto* const running = dynamic_cast<digest_context*>(context);
    if (is_forked() || running == nullptr) {
        return EINVAL;
    }
    int const status = give_piece(CSSM_DigestDataInit, CSSM_DigestDataUpdate, *running, piece);
    if (status != 0 || digest == nullptr) {
        return status;
    }
    return take_result(CSSM_DigestDataFinal, *running, *digest);
}

}  // namespace zelieml::platform
