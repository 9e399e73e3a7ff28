// libcb.cpp - the result record

#include "libcb/libcb.h"

#include <memory>

#include "support/c_boundary.h"
#include "support/format.h"

namespace zelieml
{

int cb_create(void** cb, eml_send_e code, char const* message)
{
    if (cb == nullptr || message == nullptr) {
        return -1;
    }
    return at_c_boundary(-1, [&] {
        auto record     = std::make_unique<_s_cb>();
        record->code    = code;
        record->message = message;
        *cb             = record.release();
        return 0;
    });
}

int cb_destroy(void* cb)
{
    delete static_cast<_s_cb*>(cb);
    return 0;
}

int cb_duplicate(void* cb, void** copy)
{
    if (cb == nullptr) {
        return -1;
    }
    auto const* const record = static_cast<_s_cb*>(cb);
    return cb_create(copy, record->code, record->message.c_str());
}

int cb_get_code(void* cb, eml_send_e* code)
{
    if (cb == nullptr || code == nullptr) {
        return -1;
    }
    *code = static_cast<_s_cb*>(cb)->code;
    return 0;
}

int cb_get_message(void* cb, char* buf, int size)
{
    if (cb == nullptr) {
        return -1;
    }
    return copy_to_caller(static_cast<_s_cb*>(cb)->message, buf, size);
}

}  // namespace zelieml
