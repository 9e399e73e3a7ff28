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

constexpr char key_smtp_tls[]    = "smtp_tls";
constexpr char key_pop_tls[]     = "pop_tls";
constexpr char key_tls_ca_file[] = "tls_ca_file";

// All that the driver asks for.
constexpr std::initializer_list<char const*> setting_keys = {
    "pop_before_smtp", "pop_server",    "pop_port",      "pop_account", "pop_passwd",
    "pop_auth_type",   "pop_wait_time", "smtp_server",   "smtp_port",   "smtp_auth",
    "smtp_auth_type",  "smtp_account",  "smtp_passwd",   "passwd_raw",  key_subject_use_encoding,
    key_smtp_tls,      key_pop_tls,     key_tls_ca_file,
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

bool may_be_there(char const* key, conf_settings const& conf)
{
    return conf.find(key) != nullptr || conf.hides(key);
}

// Reads a setting that is there, or may be. Unlike other settings it must have a line of its own
// that says all there is to say of it, and end as a line must: without a CR its last character
// would be missing. Returns what is wrong, or null.
char const* read_strictly(char const* key, setting& value, conf_settings const& conf)
{
    if (!conf.is_whole()) {
        return "is not known: the file cannot be read to its end, or changed meanwhile";
    }
    if (conf.is_contested(key)) {
        return "must stand in one line only, which begins with it and \"=\"";
    }
    char const* const line    = conf.find(key);
    bool const        has_end = line != nullptr && line[std::strlen(line) - 1] == '\r';
    return has_end && !conf.hides(key) && read_setting(key, value, conf)
               ? nullptr
               : "cannot be read: its line must end in CR LF, and stand above any line of more "
                 "than 1023 bytes";
}

void make_unclear(tls_choice& choice, char const* key, char const* what, conf_settings const& conf)
{
    choice.mode = tls_mode::unclear;
    choice.fault += key;
    choice.fault += " in ";
    choice.fault += conf.has_path() ? conf.path() : "the settings";
    choice.fault += ' ';
    choice.fault += what;
}

tls_choice get_tls(char const* key, conf_settings const& conf)
{
    tls_choice choice;
    if (!may_be_there(key, conf)) {
        return choice;
    }
    setting     value;
    char const* wrong = read_strictly(key, value, conf);
    if (wrong == nullptr) {
        choice.mode = tls_mode_of(value);
        wrong       = choice.mode == tls_mode::unclear ? "must be no, starttls or tls" : nullptr;
    }
    if (wrong == nullptr && choice.mode != tls_mode::none && may_be_there(key_tls_ca_file, conf)) {
        key   = key_tls_ca_file;
        wrong = read_strictly(key, value, conf);
        if (wrong == nullptr) {
            choice.ca_file = value;
            wrong          = *value != '/' ? "must be a full path" : nullptr;
        }
    }
    if (wrong != nullptr) {
        make_unclear(choice, key, wrong, conf);
    }
    return choice;
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

tls_choice get_smtp_tls(conf_settings const& conf)
{
    return get_tls(key_smtp_tls, conf);
}

tls_choice get_pop_tls(conf_settings const& conf)
{
    return get_tls(key_pop_tls, conf);
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
