// ext.cpp - the exported functions of zelieml_ext.h
//
// Each calls the unit that does the work, as an exported_call. The contracts are in the header.

#include "zelieml_ext.h"

#include "libaccess/libaccess.h"
#include "libcb/libcb.h"
#include "libcheck/message_check.h"
#include "libcheck/settings_check.h"
#include "libemlw/file.h"
#include "libemlw/libemlw.h"
#include "libreceive/libreceive.h"
#include "libsendw/preview.h"
#include "libsendw/probe.h"
#include "support/attempt_note.h"
#include "zelieml/exported_call.h"

using namespace zelieml;

static_assert(EML_REASON_SIZE == reason_capacity);

char const* eml_version(void)
{
    return EML_VERSION;
}

int eml_cb_get_number(void* cb, int* number)
{
    return exported_call(-1, [&] { return cb_get_number(cb, number); });
}

int eml_cb_get_attempt(void* cb, int* attempt)
{
    return exported_call(-1, [&] { return cb_get_attempt(cb, attempt); });
}

int eml_cb_get_seconds(void* cb, double* seconds)
{
    return exported_call(-1, [&] { return cb_get_seconds(cb, seconds); });
}

int eml_cb_get_file(void* cb, char* buf, int size)
{
    return exported_call(-1, [&] { return cb_get_file(cb, buf, size); });
}

int eml_cb_get_cause(void* cb, eml_cause* cause)
{
    return exported_call(-1, [&] { return cb_get_cause(cb, cause); });
}

int eml_cb_get_step(void* cb, char* buf, int size)
{
    return exported_call(-1, [&] { return cb_get_step(cb, buf, size); });
}

int eml_cb_get_reason(void* cb, char* buf, int size)
{
    return exported_call(-1, [&] { return cb_get_reason(cb, buf, size); });
}

eml_send_e test_pop_auth_sized(void* server, char* reply, int reply_size, char* reason,
                               int reason_size)
{
    return exported_call(eml_send_error_other, [&] {
        return zelieml::test_pop_auth_sized(server, reply, reply_size, reason, reason_size);
    });
}

eml_send_e test_smtp_auth_sized(void* server, char const* pop_before_smtp, char* reply,
                                int reply_size, char* reason, int reason_size)
{
    return exported_call(eml_send_error_other, [&] {
        return zelieml::test_smtp_auth_sized(server, pop_before_smtp, reply, reply_size, reason,
                                             reason_size);
    });
}

int server_info_set_tls(void* server, char const* smtp_tls, char const* pop_tls,
                        char const* ca_file)
{
    return exported_call(-1, [&] { return set_tls(server, smtp_tls, pop_tls, ca_file); });
}

int eml_receive_mails_sized(void* server, void* list, char const* domains, char* reply,
                            int reply_size, char* reason, int reason_size)
{
    return exported_call(-1, [&] {
        return receive_mails_sized(server, list, domains, reply, reply_size, reason, reason_size);
    });
}

int eml_receive_mails_result(void* server, void* list, char const* domains, void** result)
{
    return exported_call(-1, [&] { return receive_mails_result(server, list, domains, result); });
}

int eml_receive_msg_get_sender_utf8(void* list, int index, char* buf, int size)
{
    return exported_call(-1, [&] { return receive_msg_get_sender_utf8(list, index, buf, size); });
}

int eml_receive_msg_get_subject_utf8(void* list, int index, char* buf, int size)
{
    return exported_call(-1, [&] { return receive_msg_get_subject_utf8(list, index, buf, size); });
}

int eml_receive_msg_get_messageid(void* list, int index, char* buf, int size)
{
    return exported_call(-1, [&] { return receive_msg_get_messageid(list, index, buf, size); });
}

int eml_receive_msg_get_date(void* list, int index, char* buf, int size)
{
    return exported_call(-1, [&] { return receive_msg_get_date(list, index, buf, size); });
}

int eml_probe(char const* workdir, char const* sender, char const* recipient,
              void (*proc)(eml_probe_step const*, void*), void* user)
{
    return exported_call(-1, [&] {
        return workdir == nullptr
                   ? -1
                   : probe(conf_fullpath(workdir).c_str(), sender, recipient, proc, user);
    });
}

int eml_msg_preview(char const* workdir, void* msg, preview_proc proc, void* user)
{
    return exported_call(-1, [&] {
        return workdir == nullptr ? -1 : preview(conf_fullpath(workdir).c_str(), msg, proc, user);
    });
}

int eml_msg_check(void* msg, finding_proc proc, void* user)
{
    return exported_call(-1, [&] { return msg_check(msg, proc, user); });
}

int eml_settings_check(char const* path, finding_proc proc, void* user)
{
    return exported_call(-1, [&] { return settings_check(path, proc, user); });
}

int eml_queue_message_file(void* eml, char const* fullpath)
{
    return exported_call(-1, [&] { return queue_message_file(static_cast<ieml*>(eml), fullpath); });
}
