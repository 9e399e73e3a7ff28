// libsendw.cpp - the send driver: one message file, one delivery

#include "libsendw/libsendw.h"

#include <cerrno>
#include <cstring>
#include <initializer_list>
#include <memory>
#include <set>
#include <string_view>
#include <utility>
#include <vector>

#include "libconfw/libconfw.h"
#include "libcryptw/libcryptw.h"
#include "liblog/trace.h"
#include "libmsg/libmsg.h"
#include "libsendw/pop.h"
#include "libsendw/smtp.h"
#include "libsendw/smtp_converse.h"
#include "libsendw/smtpmsg.h"
#include "platform/error_text.h"
#include "support/attempt_note.h"
#include "support/format.h"
#include "support/number.h"

namespace zelieml
{

namespace
{

constexpr unsigned int setting_size = 1024;

struct passwd_deleter {
    void operator()(unsigned char* text) const { icryptw().decrypt_free_passwd(text); }
};
using passwd_buffer = std::unique_ptr<unsigned char, passwd_deleter>;

// All that the driver asks for.
constexpr std::initializer_list<char const*> setting_keys = {
    "pop_before_smtp", "pop_server",    "pop_port",    "pop_account", "pop_passwd",
    "pop_auth_type",   "pop_wait_time", "smtp_server", "smtp_port",   "smtp_auth",
    "smtp_auth_type",  "smtp_account",  "smtp_passwd", "passwd_raw",  key_subject_use_encoding,
};

using setting = char[setting_size];

// A host and its port, as written in the settings.
struct server_addr {
    setting host;
    setting port;
};

struct userinfo {
    setting user;
    setting password;  // clear text
};

bool read_setting(char const* key, setting& value, conf_settings const& conf,
                  char const* when_missing = "error:conf_get_string %s")
{
    unsigned int length = setting_size;
    if (confw_get_string(key, value, &length, conf) != 0) {
        trace_msg(when_missing);
        return false;
    }
    return true;
}

// Why a setting that is needed could not be read.
void note_setting(char const* key, conf_settings const& conf)
{
    char const* const line = conf.find(key);
    if (!conf.has_path()) {
        note_no_memory();
    } else if (line == nullptr && conf.error() == EINVAL) {
        note_reason("settings: %s is not a regular file", conf.path());
    } else if (line == nullptr && conf.error() != 0) {
        note_reason("settings: %s cannot be read: %s", conf.path(),
                    platform::error_text(conf.error()).c_str());
    } else {
        note_reason("settings: %s %s in %s", key,
                    line == nullptr ? "is missing" : "has no \"=\"", conf.path());
    }
}

bool read_needed(char const* key, setting& value, conf_settings const& conf)
{
    if (!read_setting(key, value, conf)) {
        note_setting(key, conf);
        return false;
    }
    return true;
}

// Whether a setting has exactly this value.
bool setting_is(char const* key, char const* text, conf_settings const& conf)
{
    setting value;
    return read_setting(key, value, conf) && std::strcmp(value, text) == 0;
}

bool is_pop_before_smtp(conf_settings const& conf)
{
    return setting_is("pop_before_smtp", "yes", conf);
}

bool is_apop(conf_settings const& conf)
{
    return setting_is("pop_auth_type", "apop", conf);
}

bool is_auth(conf_settings const& conf)
{
    return setting_is("smtp_auth", "yes", conf);
}

int get_waittime(conf_settings const& conf)
{
    setting value;
    return read_setting("pop_wait_time", value, conf) ? text_to_int(value) : 0;
}

std::string get_smtp_auth_type(conf_settings const& conf)
{
    setting value;
    return read_setting("smtp_auth_type", value, conf) ? value : "auto";
}

int get_pop_server_addr(server_addr& addr, conf_settings const& conf)
{
    return read_needed("pop_server", addr.host, conf) && read_needed("pop_port", addr.port, conf)
               ? 0
               : -1;
}

int get_smtp_server_addr(server_addr& addr, conf_settings const& conf)
{
    return read_needed("smtp_server", addr.host, conf) && read_needed("smtp_port", addr.port, conf)
               ? 0
               : -1;
}

// Passwords are in clear text when passwd_raw is there and is not "no": deliberate, see
// docs/ODDITIES.md.
bool passwords_are_raw(conf_settings const& conf)
{
    setting value;
    return read_setting("passwd_raw", value, conf, "warning:conf_get_string %s") &&
           std::strcmp(value, "no") != 0;
}

int get_userinfo(char const* account_key, char const* passwd_key, userinfo& info,
                 conf_settings const& conf)
{
    if (!read_needed(account_key, info.user, conf) ||
        !read_needed(passwd_key, info.password, conf)) {
        return -1;
    }
    if (passwords_are_raw(conf)) {
        return 0;
    }

    passwd_buffer const clear(
        icryptw().decrypt_passwd(reinterpret_cast<unsigned char*>(info.password)));
    if (!clear) {
        trace_msg("error:crypt::decrypt_passwd");
        note_reason("settings: %s in %s cannot be decrypted", passwd_key, conf.path());
        return -1;
    }
    // Fits: it is half as long as its stored form.
    return copy_to_caller(reinterpret_cast<char const*>(clear.get()), info.password, setting_size);
}

int get_smtp_userinfo(userinfo& info, conf_settings const& conf)
{
    return get_userinfo("smtp_account", "smtp_passwd", info, conf);
}

int get_pop_userinfo(userinfo& info, conf_settings const& conf)
{
    return get_userinfo("pop_account", "pop_passwd", info, conf);
}

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
    trace_msg("pop_before_smtp user:%s passwd:%s");
    return pop_before_smtp(addr.host, text_to_int(addr.port), info.user, info.password,
                           is_apop(conf), get_waittime(conf), result_text);
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
    std::string list = msg_get_to(msg);
    if (msg_cc_exist(msg)) {
        list += "," + msg_get_cc(msg);
    }
    std::vector<std::string> addresses;
    if (smtpmsg_split_address(list, addresses) != 0) {
        trace_msg("error:smtpmsg_split_address");
        note_reason("the message has no recipient");
        return -1;
    }
    std::vector<std::string> unique;
    _delete_same_address(addresses, unique);
    if (smtp_rcptto(session, unique) != 0) {
        trace_msg("smtp_rcptto");
        return -1;
    }
    return 0;
}

// Composes the mail and sends it, a short one at once.
int _send_text(_s_smtp* session, void* msg, conf_settings const& conf)
{
    mail_text                text;
    std::vector<std::string> lines;
    if (text.begin(msg, lines, conf) != 0) {
        note_reason("the text of the mail cannot be composed");
        return -1;
    }
    if (text.done()) {
        return smtp_send_data(session, std::move(lines));
    }
    do {
        if (smtp_write_data(session, lines) != 0) {
            return -1;
        }
    } while (text.next(lines));
    return smtp_end_data(session);
}

int _send_message(_s_smtp* session, void* msg, conf_settings const& conf)
{
    // The envelope sender is the reply-to address, not From, and an empty one sends "<>":
    // deliberate, see docs/ODDITIES.md.
    if (smtp_mailfrom(session, msg_get_replyto(msg)) != 0 || _send_rcptto(session, msg) != 0 ||
        smtp_start_data(session) != 0) {
        return -1;
    }
    return _send_text(session, msg, conf);
}

// Why a message file could not be loaded.
void note_not_loaded(message_file const& message, int error)
{
    if (!message && (message.error() == EPERM || message.error() == ELOOP)) {
        note_reason("the message file is not to be sent: it is a link or no regular file, has a "
                    "second name, is somebody else's, or is too large");
    } else {
        note_reason("the message file cannot be %s: %s", message ? "read" : "opened",
                    platform::error_text(message ? error : message.error()).c_str());
    }
}

int send_message(_s_smtp* session, message_file const& message, conf_settings const& conf)
{
    void*                loaded = nullptr;
    int const            load   = msg_load(&loaded, message);
    int const            error  = errno;
    message_holder const msg(loaded);  // there is a record even when the file cannot be read
    if (load != 0) {
        note_not_loaded(message, error);
        return -1;
    }
    if (_send_message(session, msg.get(), conf) != 0) {
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
    conf_settings const conf = confw_read(conf_fullpath, setting_keys);
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

    return smtp_converse(addr.host, text_to_int(addr.port), result_text,
                         [&](_s_smtp* session) { return converse(session, message, conf); });
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
