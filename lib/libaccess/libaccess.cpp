// libaccess.cpp - server records, and test logins to the servers they name

#include "libaccess/libaccess.h"

#include <cstring>
#include <limits>

#include "libemlw/callback.h"
#include "liblog/trace.h"
#include "libsendw/libsendw.h"
#include "libsendw/pop.h"
#include "libsendw/smtp.h"
#include "libsendw/smtp_converse.h"
#include "support/attempt_note.h"
#include "support/c_boundary.h"
#include "support/format.h"
#include "support/step_names.h"

namespace zelieml
{

namespace
{

// The size of a buffer of unknown size: deliberate, see docs/ODDITIES.md.
constexpr int unlimited = std::numeric_limits<int>::max();

// EHLO and login; QUIT unless the login failed.
int greet(_s_smtp* session, _s_mailserver const& server)
{
    if (smtp_ehlo2(session, "auto", server.smtp_user, server.smtp_password, server.smtp_auth) !=
        0) {
        trace_msg("error:smtp_ehlo2");
        return send_not_authenticated;
    }
    if (smtp_quit(session) != 0) {
        trace_msg("error:smtp_quit");
        return send_quit_refused;
    }
    return send_ok;
}

// All but the mode, which is returned.
tls_mode take_tls(tls_choice& choice, char const* name, char const* text, char const* ca_file)
{
    tls_mode mode  = text != nullptr ? tls_mode_of(text) : tls_mode::none;
    choice.ca_file = ca_file != nullptr ? ca_file : "";
    if (mode == tls_mode::unclear) {
        std::string fault = name;
        fault += " of the server record must be no, starttls or tls";
        choice.fault.swap(fault);
    } else if (mode != tls_mode::none && ca_file != nullptr && *ca_file != '/') {
        choice.fault = "ca_file of the server record must be a full path";
        mode         = tls_mode::unclear;
    }
    return mode;
}

// A caller's buffer for a string of which as much is written as fits.
struct cut_buffer {
    char* buf;
    int   size;

    void put(char const* text) const { copy_cut(text, buf, size); }
};

using access_proc = int (*)(_s_mailserver* server, char const* pop_before_smtp, std::string& reply);

int access_pop_only(_s_mailserver* server, char const* /*pop_before_smtp*/, std::string& reply)
{
    return access_receive(server, reply);
}

// Runs an access and turns its result into a code. The buffers hold empty strings even when memory
// is lacking.
eml_send_e report(access_proc access, void* server, char const* pop_before_smtp,
                  cut_buffer const& reply, cut_buffer const& reason)
{
    reply.put("");
    reason.put("");
    noting_attempt const attempt;
    int                  result = send_other_failure;
    contained([&] {
        std::string text;
        result = access(static_cast<_s_mailserver*>(server), pop_before_smtp, text);
        reply.put(text.c_str());
    });
    if (result == send_other_failure) {
        note_no_memory();  // unless the access knows better
    }
    if (result != send_ok) {
        reason.put(attempt->reason);
    }
    return get_callback_code(result);
}

}  // namespace

int server_create(void** server)
{
    if (server == nullptr) {
        return -1;
    }
    *server = new _s_mailserver();
    return 0;
}

int server_destroy(void* server)
{
    delete static_cast<_s_mailserver*>(server);
    return 0;
}

int set_pop(void* server, char const* host, char const* user, char const* password,
            char const* auth_type, int port, int wait_ms)
{
    if (server == nullptr) {
        return -1;
    }
    auto& record         = *static_cast<_s_mailserver*>(server);
    record.pop_host      = host;
    record.pop_user      = user;
    record.pop_password  = password;
    record.pop_auth_type = auth_type;
    record.pop_port      = port;
    record.pop_wait      = wait_ms;
    return 0;
}

int set_smtp(void* server, char const* host, char const* user, char const* password,
             char const* auth, int port)
{
    if (server == nullptr) {
        return -1;
    }
    auto& record         = *static_cast<_s_mailserver*>(server);
    record.smtp_host     = host;
    record.smtp_user     = user;
    record.smtp_password = password;
    record.smtp_auth     = auth;
    record.smtp_port     = port;
    return 0;
}

int set_tls(void* server, char const* smtp_tls, char const* pop_tls, char const* ca_file)
{
    if (server == nullptr) {
        return -1;
    }
    auto& record         = *static_cast<_s_mailserver*>(server);
    record.smtp_tls.mode = tls_mode::unclear;  // as long as the rest may throw
    record.pop_tls.mode  = tls_mode::unclear;
    record.smtp_tls.fault.clear();
    record.pop_tls.fault.clear();
    tls_mode const smtp  = take_tls(record.smtp_tls, "smtp_tls", smtp_tls, ca_file);
    record.pop_tls.mode  = take_tls(record.pop_tls, "pop_tls", pop_tls, ca_file);
    record.smtp_tls.mode = smtp;
    return 0;
}

int pop_access(_s_mailserver const* server, bool use_wait, std::string& reply)
{
    if (server == nullptr || server->pop_auth_type == nullptr) {
        note_failure(eml_cause_settings, step_name::settings,
                     server == nullptr ? "no server record is given"
                                       : "no way to log in to the POP3 server is given");
        return send_other_failure;
    }
    // Anything but "pop" means APOP here, whereas receiving asks for "apop": deliberate, see
    // docs/ODDITIES.md.
    bool const apop = std::strcmp(server->pop_auth_type, "pop") != 0;
    return pop_before_smtp(server->pop_host, server->pop_port, server->pop_user,
                           server->pop_password, apop, use_wait ? server->pop_wait : 0, reply,
                           &server->pop_tls);
}

int access_receive(_s_mailserver const* server, std::string& reply)
{
    return pop_access(server, false, reply);
}

int access_send(_s_mailserver* server, char const* pop_before_smtp, std::string& reply)
{
    if (server == nullptr || pop_before_smtp == nullptr) {
        note_failure(eml_cause_settings, step_name::settings,
                     server == nullptr ? "no server record is given"
                                       : "no switch for POP before SMTP is given");
        return send_other_failure;
    }
    server->pop_before_smtp = pop_before_smtp;
    if (std::strcmp(pop_before_smtp, "on") == 0) {
        int const result = pop_access(server, true, reply);
        if (result != pop_ok) {
            return result;
        }
    }

    return smtp_converse(
        server->smtp_host, server->smtp_port, reply,
        [&](_s_smtp* session) { return greet(session, *server); }, &server->smtp_tls);
}

eml_send_e test_pop_auth(void* server, char* message)
{
    return test_pop_auth_sized(server, message, unlimited, nullptr, 0);
}

eml_send_e test_smtp_auth(void* server, char const* pop_before_smtp, char* message)
{
    return test_smtp_auth_sized(server, pop_before_smtp, message, unlimited, nullptr, 0);
}

eml_send_e test_pop_auth_sized(void* server, char* reply, int reply_size, char* reason,
                               int reason_size)
{
    return report(access_pop_only, server, nullptr, {reply, reply_size}, {reason, reason_size});
}

eml_send_e test_smtp_auth_sized(void* server, char const* pop_before_smtp, char* reply,
                                int reply_size, char* reason, int reason_size)
{
    return report(access_send, server, pop_before_smtp, {reply, reply_size}, {reason, reason_size});
}

}  // namespace zelieml
