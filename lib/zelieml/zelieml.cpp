// zelieml.cpp - the exported functions: messages, posting, result records
//
// Each forwards to the unit that does the work and lets nothing be thrown through the C interface.
// The contracts stand in zelieml.h.

#include "zelieml.h"

#include "libcb/libcb.h"
#include "libemlw/libemlw.h"
#include "libmsg/libmsg.h"
#include "support/c_boundary.h"

using namespace zelieml;

int eml_msg_create(void** msg)
{
    return at_c_boundary(-1, [&] { return msg_create(msg); });
}

int eml_msg_destroy(void* msg)
{
    return at_c_boundary(-1, [&] { return msg_destroy(msg); });
}

int eml_msg_set_from(void* msg, char const* from)
{
    return at_c_boundary(-1, [&] { return msg_set_from(msg, from); });
}

int eml_msg_set_to(void* msg, char const* to)
{
    return at_c_boundary(-1, [&] { return msg_set_to(msg, to); });
}

int eml_msg_set_cc(void* msg, char const* cc)
{
    return at_c_boundary(-1, [&] { return msg_set_cc(msg, cc); });
}

int eml_msg_set_subject(void* msg, char const* subject)
{
    return at_c_boundary(-1, [&] { return msg_set_subject(msg, subject); });
}

int eml_msg_set_replyto(void* msg, char const* replyto)
{
    return at_c_boundary(-1, [&] { return msg_set_replyto(msg, replyto); });
}

int eml_msg_set_messageid(void* msg, char const* id)
{
    return at_c_boundary(-1, [&] { return msg_set_messageid(msg, id); });
}

int eml_msg_set_body(void* msg, char const* body)
{
    return at_c_boundary(-1, [&] { return msg_set_body(msg, body); });
}

int eml_msg_set_encoding(void* msg, eml_encoding enc)
{
    return at_c_boundary(-1, [&] { return msg_set_encoding(msg, enc); });
}

int eml_msg_get_from(void* msg, char* buf, int size)
{
    return at_c_boundary(-1, [&] { return msg_get_from(msg, buf, size); });
}

int eml_msg_get_to(void* msg, char* buf, int size)
{
    return at_c_boundary(-1, [&] { return msg_get_to(msg, buf, size); });
}

int eml_msg_get_cc(void* msg, char* buf, int size)
{
    return at_c_boundary(-1, [&] { return msg_get_cc(msg, buf, size); });
}

int eml_msg_get_subject(void* msg, char* buf, int size)
{
    return at_c_boundary(-1, [&] { return msg_get_subject(msg, buf, size); });
}

int eml_msg_get_replyto(void* msg, char* buf, int size)
{
    return at_c_boundary(-1, [&] { return msg_get_replyto(msg, buf, size); });
}

int eml_msg_get_encoding(void* msg, char* buf, int size)
{
    return at_c_boundary(-1, [&] { return msg_get_encoding(msg, buf, size); });
}

int eml_msg_get_body(void* msg, char* buf, int size)
{
    return at_c_boundary(-1, [&] { return msg_get_body(msg, buf, size); });
}

int eml_msg_get_messageid(void* msg, char* buf, int size)
{
    return at_c_boundary(-1, [&] { return msg_get_messageid(msg, buf, size); });
}

int eml_msg_save(void* msg, char const* path)
{
    return at_c_boundary(-1, [&] { return msg_save(msg, path); });
}

int eml_msg_load(void** msg, char const* path)
{
    return at_c_boundary(-1, [&] { return msg_load(msg, path); });
}

int eml_post_sync(char const* workdir, void* msg, void** result)
{
    return at_c_boundary(-1, [&] { return ifactory_emlw().post_sync(workdir, msg, result); });
}

int eml_cb_get_code(void* cb, eml_send_e* code)
{
    return at_c_boundary(-1, [&] { return cb_get_code(cb, code); });
}

int eml_cb_get_message(void* cb, char* buf, int size)
{
    return at_c_boundary(-1, [&] { return cb_get_message(cb, buf, size); });
}

int eml_cb_duplicate(void* cb, void** copy)
{
    return at_c_boundary(-1, [&] { return cb_duplicate(cb, copy); });
}

int eml_cb_delete(void* cb)
{
    return at_c_boundary(-1, [&] { return cb_destroy(cb); });
}
