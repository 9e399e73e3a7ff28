// send_settings.cpp - what a send reads from the settings file

#include "libsendw/send_settings.h"

#include <cerrno>
#include <cstring>
#include <initializer_list>
#include <memory>

#include "libcryptw/libcryptw.h"
#include "liblog/trace.h"
#include "libsendw/smtpmsg.h"
#include "platform/error_text.h"
#include "support/attempt_note.h"
#include "support/format.h"
#include "support/number.h"
#include "support/step_names.h"

namespace zelieml
{

namespace
{

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
        note_no_memory(step_name::settings);
    } else if (line == nullptr && conf.error() == EINVAL) {
        note_failure(eml_cause_settings, step_name::settings, "settings: %s is not a regular file",
                     conf.path());
    } else if (line == nullptr && conf.error() != 0) {
        note_failure(conf.error() == ENOMEM ? eml_cause_memory : eml_cause_settings,
                     step_name::settings, "settings: %s cannot be read: %s", conf.path(),
                     platform::error_text(conf.error()).c_str());
    } else {
        note_failure(eml_cause_settings, step_name::settings, "settings: %s %s in %s", key,
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
        note_failure(eml_cause_settings, step_name::settings,
                     "settings: %s in %s cannot be decrypted", passwd_key, conf.path());
        return -1;
    }
    // Fits: it is half as long as its stored form.
    return copy_to_caller(reinterpret_cast<char const*>(clear.get()), info.password, setting_size);
}

}  // namespace

conf_settings read_send_settings(char const* path)
{
    return confw_read(path, setting_keys);
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

int get_smtp_userinfo(userinfo& info, conf_settings const& conf)
{
    return get_userinfo("smtp_account", "smtp_passwd", info, conf);
}

int get_pop_userinfo(userinfo& info, conf_settings const& conf)
{
    return get_userinfo("pop_account", "pop_passwd", info, conf);
}

}  // namespace zelieml
