// send_settings.h - what a send reads from the settings file
//
// docs/FORMATS.md lists the keys. Values are compared exactly.

#ifndef ZELIEML_LIBSENDW_SEND_SETTINGS_H
#define ZELIEML_LIBSENDW_SEND_SETTINGS_H

#include <string>

#include "libconfw/libconfw.h"
#include "libsendw/tunnel.h"

namespace zelieml
{

constexpr unsigned int setting_size = 1024;

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

// read_send_settings - all that a send asks for, read at once
conf_settings read_send_settings(char const* path);

// Switches: whether to log in to the POP3 server first, with APOP, and to the SMTP server.
bool is_pop_before_smtp(conf_settings const& conf);
bool is_apop(conf_settings const& conf);
bool is_auth(conf_settings const& conf);

// get_smtp_tls, get_pop_tls - the TLS that is asked for
//
// Unclear when the key may be in the file but has none of its values, or cannot be read: a mail
// that is to be sent with TLS never goes without because of a mistake in the file.
tls_choice get_smtp_tls(conf_settings const& conf);
tls_choice get_pop_tls(conf_settings const& conf);

// get_waittime - milliseconds to wait after the login to the POP3 server
int get_waittime(conf_settings const& conf);

// get_smtp_auth_type - the mechanism, see auth() in smtp.h
std::string get_smtp_auth_type(conf_settings const& conf);

// get_pop_server_addr, get_smtp_server_addr - a server
//
// Return 0, or -1 when its host or port is missing.
int get_pop_server_addr(server_addr& addr, conf_settings const& conf);
int get_smtp_server_addr(server_addr& addr, conf_settings const& conf);

// get_pop_userinfo, get_smtp_userinfo - an account
//
// Return 0, or -1 when user or password is missing, or the password cannot be decrypted.
int get_pop_userinfo(userinfo& info, conf_settings const& conf);
int get_smtp_userinfo(userinfo& info, conf_settings const& conf);

}  // namespace zelieml

#endif
