// libsendw.cpp - the send driver: one message file, one delivery

#include "libsendw/libsendw.h"

#include <cerrno>
#include <cstdint>
#include <optional>
#include <set>
#include <string_view>
#include <utility>
#include <vector>

#include "liblog/trace.h"
#include "libmsg/libmsg.h"
#include "libmsg/message_body.h"
#include "libsendw/pop.h"
#include "libsendw/send_settings.h"
#include "libsendw/smtp.h"
#include "libsendw/smtp_converse.h"
#include "libsendw/smtpmsg.h"
#include "platform/error_text.h"
#include "support/attempt_note.h"
#include "support/number.h"
#include "support/step_names.h"

namespace zelieml
{

namespace
{

// Bytes of a message file that is loaded as a whole: one piece is sent of it.
constexpr std::int64_t short_message = 65536;

int _pop_before_smtp(conf_settings const& conf, std::string& result_text)
{
    server_addr addr;
    if (get_pop_server_addr(addr, conf) != 0) {
        trace_msg("error:get_pop_server_addr");
        return send_other_failure;
    }
    userinfo info;
    if (get_pop_userinfo(info, conf) != 0) {
        trace_msg("error:get_smtp_userinfo");  // deliberate, see docs/ODDITIES.md
        return send_other_failure;
    }
    tls_choice const tls = get_pop_tls(conf);
    trace_msg("pop_before_smtp user:%s passwd:%s");
    return pop_before_smtp(addr.host, text_to_int(addr.port), info.user, info.password,
                           is_apop(conf), get_waittime(conf), result_text, &tls);
}

int ehlo_auth(_s_smtp* session, conf_settings const& conf)
{
    userinfo info;
    if (get_smtp_userinfo(info, conf) != 0) {
        trace_msg("error:get_smtp_userinfo");
        return -1;
    }
    std::string const auth_type = get_smtp_auth_type(conf);
    trace_msg("smtp_ehlo user:%s passwd:%s");
    return smtp_ehlo(session, auth_type, info.user, info.password);
}

// Keeps the first of several equal addresses.
void _delete_same_address(std::vector<std::string> const& addresses,
                          std::vector<std::string>&       unique)
{
    std::set<std::string_view> known;
    for (std::string const& address : addresses) {
        if (known.insert(address.c_str()).second) {
            unique.push_back(address);
        }
    }
}

int _send_rcptto(_s_smtp* session, void* msg)
{
    std::vector<std::string> unique;
    if (envelope_recipients(msg, unique) != 0) {
        trace_msg("error:smtpmsg_split_address");
        note_failure(eml_cause_message, step_name::recipient, "the message has no recipient");
        return -1;
    }
    if (smtp_rcptto(session, unique) != 0) {
        trace_msg("smtp_rcptto");
        return -1;
    }
    return 0;
}

// error  errno; 0 for a file that changes while it is sent
void note_not_read(int error)
{
    note_failure(error == ENOMEM ? eml_cause_memory : eml_cause_file, step_name::message,
                 "the message file cannot be read: %s",
                 error != 0 ? platform::error_text(error).c_str() : "it has changed meanwhile");
}

// Why a message file could not be loaded.
void note_not_loaded(message_file const& message, int error)
{
    if (message) {
        note_not_read(error);
    } else if (message.error() == EPERM || message.error() == ELOOP) {
        note_failure(eml_cause_file, step_name::message,
                     "the message file is not to be sent: it is a link or no regular file, has a "
                     "second name, is somebody else's, or is too large");
    } else {
        note_failure(message.error() == ENOMEM ? eml_cause_memory : eml_cause_file,
                     step_name::message, "the message file cannot be opened: %s",
                     platform::error_text(message.error()).c_str());
    }
}

// Composes the mail and sends it: a short one at once, a long one piece by piece.
//
// body  null if the record has it
int _send_text(_s_smtp* session, void* msg, message_body* body, conf_settings const& conf)
{
    mail_text                text;
    std::vector<std::string> lines;
    int const                composed = body != nullptr ? text.begin(msg, *body, lines, conf)
                                                        : smtpmsg_create_multiline(msg, lines, conf);
    if (composed != 0) {
        note_failure(eml_cause_message, step_name::message,
                     "the text of the mail cannot be composed");
        return -1;
    }
    while (!text.done()) {
        if (!text.next(lines.back())) {
            int const error = errno;
            trace_msg("error:ifstream(%s)");
            note_not_read(error);
            return -1;
        }
        if (!text.done()) {
            if (smtp_send_text(session, lines) != 0) {
                return -1;
            }
            lines.erase(lines.begin(), lines.end() - 1);
        }
    }
    return smtp_send_data(session, std::move(lines));
}

int _send_message(_s_smtp* session, void* msg, message_body* body, conf_settings const& conf)
{
    // The envelope sender is the reply-to address, not From, and an empty one sends "<>":
    // deliberate, see docs/ODDITIES.md.
    if (smtp_mailfrom(session, msg_get_replyto(msg)) != 0 || _send_rcptto(session, msg) != 0 ||
        smtp_start_data(session) != 0) {
        return -1;
    }
    return _send_text(session, msg, body, conf);
}

// msg_load, except that the body of a long message stays in its file
//
// body  receives it
int load_to_send(void** msg, message_file const& message, std::optional<message_body>& body)
{
    if (message.size() <= short_message) {
        return msg_load(msg, message);
    }
    body.emplace();
    int const result = body->load(msg, message);
    if (result != 0 || mail_text::takes(*msg, *body)) {
        return result;
    }
    body.reset();
    msg_destroy(*msg);
    return msg_load(msg, message);
}

int send_message(_s_smtp* session, message_file const& message, conf_settings const& conf)
{
    void*                       loaded = nullptr;
    std::optional<message_body> body;
    int const                   load  = load_to_send(&loaded, message, body);
    int const                   error = errno;
    message_holder const        msg(loaded);  // there is a record even when the file cannot be read
    if (load != 0) {
        note_not_loaded(message, error);
        return -1;
    }
    if (_send_message(session, msg.get(), body ? &*body : nullptr, conf) != 0) {
        trace_msg("error:_send_message");
        return -1;
    }
    return 0;
}

// From HELO or EHLO to QUIT.
int converse(_s_smtp* session, message_file const& message, conf_settings const& conf)
{
    if (is_auth(conf)) {
        if (ehlo_auth(session, conf) != 0) {
            trace_msg("error:smtp_ehlo");
            return send_not_authenticated;
        }
    } else if (smtp_helo(session) != 0) {
        trace_msg("error:smtp_helo");
        return send_helo_refused;
    }
    if (send_message(session, message, conf) != 0) {
        trace_msg("error:send_message");
        return send_message_refused;
    }
    if (smtp_quit(session) != 0) {
        trace_msg("error:smtp_quit");
        return send_quit_refused;
    }
    return send_ok;
}

}  // namespace

int isendw::send(char const* msg_fullpath, char const* conf_fullpath, std::string& result_text)
{
    return send(follow_message_file(msg_fullpath), conf_fullpath, result_text);
}

int isendw::send(message_file const& message, char const* conf_fullpath, std::string& result_text)
{
    trace_msg("msg_fullpath = %s");
    trace_msg("conf_fullpath = %s");
    conf_settings const conf = read_send_settings(conf_fullpath);
    if (is_pop_before_smtp(conf)) {
        int const result = _pop_before_smtp(conf, result_text);
        if (result != pop_ok) {
            return result;
        }
    }

    server_addr addr;
    if (get_smtp_server_addr(addr, conf) != 0) {
        trace_msg("error:get_smtp_server_addr");
        return send_no_server;
    }

    tls_choice const tls = get_smtp_tls(conf);
    return smtp_converse(
        addr.host, text_to_int(addr.port), result_text,
        [&](_s_smtp* session) { return converse(session, message, conf); }, &tls);
}

int envelope_recipients(void* msg, std::vector<std::string>& recipients)
{
    std::string list = msg_get_to(msg);
    if (msg_cc_exist(msg)) {
        list += "," + msg_get_cc(msg);
    }
    std::vector<std::string> addresses;
    if (smtpmsg_split_address(list, addresses) != 0) {
        return -1;
    }
    _delete_same_address(addresses, recipients);
    return 0;
}

int isendw_sys::init()
{
    return 0;  // nothing to set up, so callers may ignore the result
}

int isendw_sys::end()
{
    return 0;
}

}  // namespace zelieml
