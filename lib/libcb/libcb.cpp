// libcb.cpp - the result record

#include "libcb/libcb.h"

#include <memory>

#include "support/c_boundary.h"
#include "support/format.h"

namespace zelieml
{

namespace
{

// Reads a member of a record that is a number.
template <class Value>
int get_value(void* cb, Value _s_cb::*member, Value* value)
{
    if (cb == nullptr || value == nullptr) {
        return -1;
    }
    *value = static_cast<_s_cb*>(cb)->*member;
    return 0;
}

// Copies a member of a record that is a string.
template <class Text>
int get_text(void* cb, Text _s_cb::*member, char* buf, int size)
{
    if (cb == nullptr) {
        return -1;
    }
    return copy_to_caller(static_cast<_s_cb*>(cb)->*member, buf, size);
}

}  // namespace

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
    if (cb == nullptr || copy == nullptr) {
        return -1;
    }
    return at_c_boundary(-1, [&] {
        *copy = new _s_cb(*static_cast<_s_cb*>(cb));
        return 0;
    });
}

int cb_get_code(void* cb, eml_send_e* code)
{
    return get_value(cb, &_s_cb::code, code);
}

int cb_get_message(void* cb, char* buf, int size)
{
    return get_text(cb, &_s_cb::message, buf, size);
}

int cb_get_number(void* cb, int* number)
{
    return get_value(cb, &_s_cb::number, number);
}

int cb_get_attempt(void* cb, int* attempt)
{
    return get_value(cb, &_s_cb::attempt, attempt);
}

int cb_get_seconds(void* cb, double* seconds)
{
    return get_value(cb, &_s_cb::seconds, seconds);
}

int cb_get_cause(void* cb, eml_cause* cause)
{
    return get_value(cb, &_s_cb::cause, cause);
}

int cb_get_file(void* cb, char* buf, int size)
{
    return get_text(cb, &_s_cb::file, buf, size);
}

int cb_get_reason(void* cb, char* buf, int size)
{
    return get_text(cb, &_s_cb::reason, buf, size);
}

int cb_get_step(void* cb, char* buf, int size)
{
    return get_text(cb, &_s_cb::step, buf, size);
}

}  // namespace zelieml
