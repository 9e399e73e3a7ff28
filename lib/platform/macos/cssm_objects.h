// cssm_objects.h - sessions, keys and contexts of the CSSM interface, for key_handle.cpp and
// key_pair.cpp

#ifndef ZELIEML_PLATFORM_MACOS_CSSM_OBJECTS_H
#define ZELIEML_PLATFORM_MACOS_CSSM_OBJECTS_H

#include <Security/Security.h>
#include <cstddef>
#include <cstdint>

#include "platform/key_objects.h"
#include "platform/macos/first_process.h"

namespace zelieml::platform
{

// A session with the provider attached.
struct attachment final : csp_session {
    CSSM_CSP_HANDLE csp;
};

inline CSSM_CSP_HANDLE csp_of(csp_session const& session)
{
    return static_cast<attachment const&>(session).csp;
}

// A key in the provider's form, with its bytes in the session's memory.
struct cssm_key : csp_key {
    using csp_key::csp_key;
    ~cssm_key() override
    {
        if (is_forked()) {
            session.give_back(key.KeyData.Data);
        } else if (key.KeyData.Data != nullptr) {
            ::CSSM_FreeKey(csp_of(session), nullptr, &key, CSSM_FALSE);
        }
    }
    cssm_key(cssm_key const&)            = delete;
    cssm_key& operator=(cssm_key const&) = delete;

    CSSM_KEY key = {};
};

struct symmetric_key final : cssm_key {
    using cssm_key::cssm_key;
};

// A context of the provider's. What it refers to must outlive it.
class cc_owner
{
public:
    cc_owner() = default;
    ~cc_owner() { reset(); }
    cc_owner(cc_owner const&)            = delete;
    cc_owner& operator=(cc_owner const&) = delete;

    CSSM_CC_HANDLE  get() const { return handle_; }
    CSSM_CC_HANDLE* out() { return &handle_; }

    void reset()
    {
        if (handle_ != CSSM_INVALID_HANDLE && !is_forked()) {
            ::CSSM_DeleteContext(handle_);
        }
        handle_ = CSSM_INVALID_HANDLE;
    }

private:
    CSSM_CC_HANDLE handle_ = CSSM_INVALID_HANDLE;
};

// The credentials of a caller without any. Contexts refer to them.
inline constexpr CSSM_ACCESS_CREDENTIALS nobody = {};

// as_cssm - the caller's bytes as an argument for the provider, which only reads them
//
// The pointer is not null even when there are none.
inline CSSM_DATA as_cssm(csp_data data)
{
    static std::uint8_t nothing = 0;
    if (data.size == 0) {
        return {0, &nothing};
    }
    return {data.size, const_cast<std::uint8_t*>(static_cast<std::uint8_t const*>(data.data))};
}

// A context for one message after the other, each in pieces.
struct text_context : csp_context {
    using csp_context::csp_context;

    cc_owner context;
    bool     begun = false;  // a message
};

// give_piece - give a context the next piece of its message, or the first piece of a new one
//
// begin, update  CSSM_DigestDataInit and CSSM_DigestDataUpdate, or those of signatures
// piece          an empty one is not passed on
//
// Returns 0 or an error code; after an error the next piece begins a new message.
template <class Begin, class Update>
int give_piece(Begin begin, Update update, text_context& running, csp_data piece)
{
    if (!running.begun) {
        CSSM_RETURN const status = begin(running.context.get());
        if (status != CSSM_OK) {
            return status;
        }
    }
    CSSM_DATA const   data = as_cssm(piece);
    CSSM_RETURN const status =
        piece.size != 0 ? update(running.context.get(), &data, 1) : CSSM_RETURN{CSSM_OK};
    running.begun = status == CSSM_OK;
    return status;
}

// take_result - end a message and take the result, which the provider has allocated with the
// session's functions
//
// final_step  CSSM_DigestDataFinal or CSSM_SignDataFinal
// result      receives the bytes, which the caller frees
//
// Returns 0 or an error code.
template <class Final>
int take_result(Final final_step, text_context& running, csp_buffer& result)
{
    running.begun            = false;
    CSSM_DATA         data   = {0, nullptr};
    CSSM_RETURN const status = final_step(running.context.get(), &data);
    if (status == CSSM_OK) {
        result = {data.Data, data.Length};
    }
    return status;
}

// key_label - the label of keys; the provider keeps no key, so any will do
inline CSSM_DATA key_label()
{
    static constexpr char text[] = "zelieml";
    return as_cssm({text, sizeof text - 1});
}

// Keys are returned in the clear, in the session's memory.
constexpr std::uint32_t key_attributes =
    static_cast<std::uint32_t>(CSSM_KEYATTR_RETURN_DATA) | CSSM_KEYATTR_EXTRACTABLE;

// is_rc4_size - whether an RC4 key can have this size
inline bool is_rc4_size(unsigned key_bits, unsigned max_bits)
{
    return key_bits != 0 && key_bits % 8 == 0 && key_bits <= max_bits;
}

// derive_with - run a context that derives a symmetric key
//
// parameter  the parameter of the context's algorithm
// key        receives the key, which the caller frees
//
// Returns 0 or an error code.
int derive_with(csp_session const& session, CSSM_CC_HANDLE context, CSSM_DATA parameter,
                csp_key*& key);

}  // namespace zelieml::platform

#endif
